// Process-wide and clock calls.
#pragma once

#include <windef.h>

/// Milliseconds since the machine started; never runs backwards.
ULONGLONG GetTickCount64();

inline LONG InterlockedIncrement(volatile LONG *value)
{
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(volatile LONG *value)
{
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
