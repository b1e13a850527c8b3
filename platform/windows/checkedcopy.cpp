#include "platform/checkedcopy.h"

#include <string.h>

void checkedCopy(void *to, std::size_t size, const void *from)
{
    memcpy_s(to, size, from, size);
}
