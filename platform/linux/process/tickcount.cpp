// The millisecond clock.
#include <ctime>
#include <winbase.h>

// Time that the machine sleeps counts, as it does in the API's clock.
ULONGLONG GetTickCount64()
{
    timespec now {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000U
        + static_cast<ULONGLONG>(now.tv_nsec) / 1000000U;
}
