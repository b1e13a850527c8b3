#include "platform/crashstack.h"

#include <windows.h>

void reserveCrashStack()
{
    ULONG size = 64 * 1024;
    SetThreadStackGuarantee(&size);
}
