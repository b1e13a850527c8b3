// Service queries.
#pragma once

#include <windef.h>

#define SC_MANAGER_CONNECT 0x0001U
#define SERVICE_QUERY_CONFIG 0x0001U
#define SERVICE_QUERY_STATUS 0x0004U

#define SERVICE_DRIVER 0x0000000BU
#define SERVICE_WIN32 0x00000030U

#define SERVICE_STOPPED 0x00000001U
#define SERVICE_START_PENDING 0x00000002U
#define SERVICE_STOP_PENDING 0x00000003U
#define SERVICE_RUNNING 0x00000004U
#define SERVICE_CONTINUE_PENDING 0x00000005U
#define SERVICE_PAUSE_PENDING 0x00000006U
#define SERVICE_PAUSED 0x00000007U

using SC_HANDLE = struct SC_HANDLE__ *;

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
static_assert(sizeof(SERVICE_STATUS) == 28, "size");

extern "C" {

/// There is no service control manager on this host: every call fails with
/// ERROR_CALL_NOT_IMPLEMENTED.
SC_HANDLE OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access);
SC_HANDLE OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access);
BOOL QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS *status);
BOOL CloseServiceHandle(SC_HANDLE handle);

} // extern "C"
