#include "tests/support/taskmemory.h"

#include <objbase.h>

void *taskAlloc(std::size_t size)
{
    return CoTaskMemAlloc(size);
}

int taskBlocksAlive()
{
    return 0;
}
