// The host calls of a report, answered by the test. They take the place of the real ones in a
// program that is linked with tonewell_fake_host().
#pragma once

#include <windows.h>
#include <functional>
#include <winsvc.h>

/// What each call does; where the function is empty, the call fails.
struct FakeHost {
    std::function<BOOL(OSVERSIONINFOEXW *)> getVersion;
    std::function<void(SYSTEM_INFO *)> getSystemInfo;
    std::function<BOOL(MEMORYSTATUSEX *)> getMemory;
    std::function<BOOL(DEVMODEW *)> getDisplay;

    std::function<bool(int)> managerOpens; ///< argument: the number of this attempt, from 1
    std::function<bool(const wchar_t *)> serviceOpens;
    std::function<BOOL(const wchar_t *, SERVICE_STATUS *)> queryService;
    DWORD lastServiceAccess = 0;
    int managerCalls = 0;
    int openHandles = 0;

    std::function<HRESULT()> coInitialize; ///< the real call when empty

    std::function<HMODULE(const wchar_t *)> loadLibrary;
    std::function<FARPROC(const char *)> getProcAddress;
    int loadCalls = 0;
    int resolveCalls = 0;
};

FakeHost &fakeHost();
