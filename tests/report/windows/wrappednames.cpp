// Calls of the host go through pointers, __imp_<name>; the linker takes the pointers of this file.
#include <objbase.h>

extern "C" {

void __wrap_GetVersionExW();
extern void (*const __wrap___imp_GetVersionExW)() = __wrap_GetVersionExW;
void __wrap_GetSystemInfo();
extern void (*const __wrap___imp_GetSystemInfo)() = __wrap_GetSystemInfo;
void __wrap_GlobalMemoryStatusEx();
extern void (*const __wrap___imp_GlobalMemoryStatusEx)() = __wrap_GlobalMemoryStatusEx;
void __wrap_EnumDisplaySettingsW();
extern void (*const __wrap___imp_EnumDisplaySettingsW)() = __wrap_EnumDisplaySettingsW;
void __wrap_OpenSCManagerW();
extern void (*const __wrap___imp_OpenSCManagerW)() = __wrap_OpenSCManagerW;
void __wrap_OpenServiceW();
extern void (*const __wrap___imp_OpenServiceW)() = __wrap_OpenServiceW;
void __wrap_QueryServiceStatus();
extern void (*const __wrap___imp_QueryServiceStatus)() = __wrap_QueryServiceStatus;
void __wrap_CloseServiceHandle();
extern void (*const __wrap___imp_CloseServiceHandle)() = __wrap_CloseServiceHandle;
void __wrap_LoadLibraryW();
extern void (*const __wrap___imp_LoadLibraryW)() = __wrap_LoadLibraryW;
void __wrap_GetProcAddress();
extern void (*const __wrap___imp_GetProcAddress)() = __wrap_GetProcAddress;
void __wrap_CoInitializeEx();
extern void (*const __wrap___imp_CoInitializeEx)() = __wrap_CoInitializeEx;

extern HRESULT(WINAPI *const __real___imp_CoInitializeEx)(LPVOID, DWORD);

HRESULT realCoInitializeEx(LPVOID reserved, DWORD coInit)
{
    return __real___imp_CoInitializeEx(reserved, coInit);
}

} // extern "C"
