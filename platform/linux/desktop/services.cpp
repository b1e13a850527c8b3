#include <windows.h>
#include <winsvc.h>

SC_HANDLE OpenSCManagerW(LPCWSTR, LPCWSTR, DWORD)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return nullptr;
}

SC_HANDLE OpenServiceW(SC_HANDLE, LPCWSTR, DWORD)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return nullptr;
}

BOOL QueryServiceStatus(SC_HANDLE, SERVICE_STATUS *)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}

BOOL CloseServiceHandle(SC_HANDLE)
{
    SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
    return FALSE;
}
