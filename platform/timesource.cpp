#include "platform/timesource.h"

#include <windows.h>

quint64 tickCountMs()
{
    if (TimeSource *const time = timeSource())
        return time->nowMs();
    return GetTickCount64();
}
