// Process-wide calls: clock, unhandled exceptions, libraries, system facts, last error.
#pragma once

#include <windef.h>
#include <winnt.h>

#define EXCEPTION_EXECUTE_HANDLER 1

#define EXCEPTION_DATATYPE_MISALIGNMENT 0x80000002U
#define EXCEPTION_BREAKPOINT 0x80000003U
#define EXCEPTION_SINGLE_STEP 0x80000004U
#define EXCEPTION_ACCESS_VIOLATION 0xC0000005U
#define EXCEPTION_INVALID_HANDLE 0xC0000008U
#define EXCEPTION_ILLEGAL_INSTRUCTION 0xC000001DU
#define EXCEPTION_NONCONTINUABLE_EXCEPTION 0xC0000025U
#define EXCEPTION_ARRAY_BOUNDS_EXCEEDED 0xC000008CU
#define EXCEPTION_FLT_DIVIDE_BY_ZERO 0xC000008EU
#define EXCEPTION_FLT_INEXACT_RESULT 0xC000008FU
#define EXCEPTION_FLT_INVALID_OPERATION 0xC0000090U
#define EXCEPTION_FLT_OVERFLOW 0xC0000091U
#define EXCEPTION_FLT_UNDERFLOW 0xC0000093U
#define EXCEPTION_INT_DIVIDE_BY_ZERO 0xC0000094U
#define EXCEPTION_INT_OVERFLOW 0xC0000095U
#define EXCEPTION_PRIV_INSTRUCTION 0xC0000096U
#define EXCEPTION_STACK_OVERFLOW 0xC00000FDU
#define STATUS_STACK_BUFFER_OVERRUN 0xC0000409U

/// Version of the system. The caller sets dwOSVersionInfoSize to the size of the structure it
/// passes; with the two-byte WCHAR of the original host that is 284 for OSVERSIONINFOEXW.
struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

struct OSVERSIONINFOEXW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
    WORD wServicePackMajor;
    WORD wServicePackMinor;
    WORD wSuiteMask;
    BYTE wProductType;
    BYTE wReserved;
};
static_assert(sizeof(OSVERSIONINFOEXW) == 28 + 128 * sizeof(WCHAR), "no padding");

struct SYSTEM_INFO {
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
static_assert(sizeof(SYSTEM_INFO) == 48, "size on x86-64");

struct MEMORYSTATUSEX {
    DWORD dwLength;
    DWORD dwMemoryLoad;
    DWORDLONG ullTotalPhys;
    DWORDLONG ullAvailPhys;
    DWORDLONG ullTotalPageFile;
    DWORDLONG ullAvailPageFile;
    DWORDLONG ullTotalVirtual;
    DWORDLONG ullAvailVirtual;
    DWORDLONG ullAvailExtendedVirtual;
};
static_assert(sizeof(MEMORYSTATUSEX) == 64, "size on x86-64");

using LPTOP_LEVEL_EXCEPTION_FILTER = LONG(WINAPI *)(EXCEPTION_POINTERS *);

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

extern "C" {

/// The calling thread's code of the last failed call of this API.
DWORD GetLastError();
void SetLastError(DWORD code);

HANDLE GetCurrentProcess();
HANDLE GetCurrentThread();

/// Sets what runs when a thread of the process faults, null for nothing; returns what was set.
///
/// Reported are hardware faults (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP) and the process's own
/// abort(). The filter runs on the faulting thread, on a stack of its own, so that the overflow of
/// a stack is reported too. Whatever it returns, the process then ends by the original signal. A
/// second fault of that thread, or five seconds without a return, end the process at once. When
/// several threads fault, the first one reports and the others wait for the end. A signal sent by
/// kill or raise is no fault: it ends the process without a report.
LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter);

/// The one library of this host is "dbghelp.dll"; null with ERROR_MOD_NOT_FOUND for any other.
HMODULE LoadLibraryW(LPCWSTR name);
/// A function of a library by its name; null with ERROR_PROC_NOT_FOUND when it has none.
FARPROC GetProcAddress(HMODULE library, LPCSTR name);

/// Always fails with ERROR_CALL_NOT_IMPLEMENTED: this host has no version in that numbering.
BOOL GetVersionExW(OSVERSIONINFOW *version);
void GetSystemInfo(SYSTEM_INFO *info);
/// dwLength must be 64. Available is what programs can get without swapping; the load is the
/// share in percent of the rest.
BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX *status);

} // extern "C"
