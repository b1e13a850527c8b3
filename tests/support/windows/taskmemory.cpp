#include "tests/support/taskmemory.h"

#include <objbase.h>

void *taskAlloc(std::size_t size, const void *)
{
    return CoTaskMemAlloc(size);
}

int taskBlocksAlive(const void *)
{
    return 0;
}
