#include "platform/checkedcopy.h"

#include <cstring>

void checkedCopy(void *to, std::size_t size, const void *from)
{
    if (from)
        std::memcpy(to, from, size);
    else
        std::memset(to, 0, size);
}
