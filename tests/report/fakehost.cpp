#include "tests/report/fakehost.h"

#include <cstdint>
#include <cwchar>
#include <objbase.h>

// Every call of a name arrives in __wrap_<name>: see wrappednames.cpp of each host.

FakeHost &fakeHost()
{
    static FakeHost host;
    return host;
}

namespace {

constexpr std::uintptr_t kManager = 1;
const wchar_t *const kServices[] = {L"Audiosrv", L"AudioEndpointBuilder"};

SC_HANDLE handle(std::uintptr_t number)
{
    return reinterpret_cast<SC_HANDLE>(number);
}

} // namespace

extern "C" {

// The host's own function, from the file of the same name for each host.
HRESULT realCoInitializeEx(LPVOID reserved, DWORD coInit);

BOOL __wrap_GetVersionExW(OSVERSIONINFOW *version)
{
    auto *extended = reinterpret_cast<OSVERSIONINFOEXW *>(version);
    const bool sized = version->dwOSVersionInfoSize == sizeof(OSVERSIONINFOEXW);
    return sized && fakeHost().getVersion ? fakeHost().getVersion(extended) : FALSE;
}

void __wrap_GetSystemInfo(SYSTEM_INFO *info)
{
    if (fakeHost().getSystemInfo)
        fakeHost().getSystemInfo(info);
}

BOOL __wrap_GlobalMemoryStatusEx(MEMORYSTATUSEX *status)
{
    return status->dwLength == 64 && fakeHost().getMemory ? fakeHost().getMemory(status) : FALSE;
}

BOOL __wrap_EnumDisplaySettingsW(LPCWSTR device, DWORD mode, DEVMODEW *settings)
{
    const bool right =
        !device && mode == ENUM_CURRENT_SETTINGS && settings->dmSize == sizeof(DEVMODEW);
    return right && fakeHost().getDisplay ? fakeHost().getDisplay(settings) : FALSE;
}

SC_HANDLE __wrap_OpenSCManagerW(LPCWSTR machine, LPCWSTR database, DWORD access)
{
    FakeHost &host = fakeHost();
    ++host.managerCalls;
    if (machine || database || access != SC_MANAGER_CONNECT || !host.managerOpens
        || !host.managerOpens(host.managerCalls)) {
        return nullptr;
    }
    ++host.openHandles;
    return handle(kManager);
}

SC_HANDLE __wrap_OpenServiceW(SC_HANDLE manager, LPCWSTR name, DWORD access)
{
    FakeHost &host = fakeHost();
    host.lastServiceAccess = access;
    if (manager != handle(kManager) || !host.serviceOpens || !host.serviceOpens(name))
        return nullptr;
    for (std::uintptr_t i = 0; i < 2; ++i) {
        if (std::wcscmp(kServices[i], name) == 0) {
            ++host.openHandles;
            return handle(kManager + 1 + i);
        }
    }
    return nullptr;
}

BOOL __wrap_QueryServiceStatus(SC_HANDLE service, SERVICE_STATUS *status)
{
    const auto number = reinterpret_cast<std::uintptr_t>(service);
    if (number <= kManager || number > kManager + 2 || !fakeHost().queryService)
        return FALSE;
    return fakeHost().queryService(kServices[number - kManager - 1], status);
}

BOOL __wrap_CloseServiceHandle(SC_HANDLE)
{
    --fakeHost().openHandles;
    return TRUE;
}

HMODULE __wrap_LoadLibraryW(LPCWSTR name)
{
    ++fakeHost().loadCalls;
    return fakeHost().loadLibrary ? fakeHost().loadLibrary(name) : nullptr;
}

FARPROC __wrap_GetProcAddress(HMODULE, LPCSTR name)
{
    ++fakeHost().resolveCalls;
    return fakeHost().getProcAddress ? fakeHost().getProcAddress(name) : nullptr;
}

HRESULT __wrap_CoInitializeEx(LPVOID reserved, DWORD coInit)
{
    return fakeHost().coInitialize ? fakeHost().coInitialize()
                                   : realCoInitializeEx(reserved, coInit);
}

} // extern "C"
