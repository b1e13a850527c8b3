#include <windows.h>

namespace {

thread_local DWORD t_lastError = ERROR_SUCCESS;

} // namespace

DWORD GetLastError()
{
    return t_lastError;
}

void SetLastError(DWORD code)
{
    t_lastError = code;
}

// Pseudo handles, with the values that the API has for them.
HANDLE GetCurrentProcess()
{
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));
}

HANDLE GetCurrentThread()
{
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-2));
}
