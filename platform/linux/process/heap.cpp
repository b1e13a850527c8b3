#include "platform/heap.h"

#include <malloc.h>

void returnFreeMemory()
{
    malloc_trim(0);
}
