// Calls of the host go through pointers, __imp_<name>, of which an import library brings what is
// still missing: the linker takes the ones of this file.
#include <windows.h>
#include <objbase.h>
#include <QLibrary>

extern "C" {

void __wrap_GetVersionExW();
extern void (*const __imp_GetVersionExW)() = __wrap_GetVersionExW;
void __wrap_GetSystemInfo();
extern void (*const __imp_GetSystemInfo)() = __wrap_GetSystemInfo;
void __wrap_GlobalMemoryStatusEx();
extern void (*const __imp_GlobalMemoryStatusEx)() = __wrap_GlobalMemoryStatusEx;
void __wrap_EnumDisplaySettingsW();
extern void (*const __imp_EnumDisplaySettingsW)() = __wrap_EnumDisplaySettingsW;
void __wrap_OpenSCManagerW();
extern void (*const __imp_OpenSCManagerW)() = __wrap_OpenSCManagerW;
void __wrap_OpenServiceW();
extern void (*const __imp_OpenServiceW)() = __wrap_OpenServiceW;
void __wrap_QueryServiceStatus();
extern void (*const __imp_QueryServiceStatus)() = __wrap_QueryServiceStatus;
void __wrap_CloseServiceHandle();
extern void (*const __imp_CloseServiceHandle)() = __wrap_CloseServiceHandle;
void __wrap_LoadLibraryW();
extern void (*const __imp_LoadLibraryW)() = __wrap_LoadLibraryW;
void __wrap_GetProcAddress();
extern void (*const __imp_GetProcAddress)() = __wrap_GetProcAddress;
void __wrap_CoInitializeEx();
extern void (*const __imp_CoInitializeEx)() = __wrap_CoInitializeEx;

HRESULT realCoInitializeEx(LPVOID reserved, DWORD coInit)
{
    // Qt's library has pointers of its own.
    const auto function = reinterpret_cast<HRESULT(WINAPI *)(LPVOID, DWORD)>(
        QLibrary::resolve(QStringLiteral("ole32"), "CoInitializeEx"));
    return function(reserved, coInit);
}

} // extern "C"
