#include "platform/heap.h"

#include <windows.h>

void returnFreeMemory()
{
    HeapCompact(GetProcessHeap(), 0);
}
