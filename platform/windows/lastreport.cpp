#include "platform/lastreport.h"

#include <windows.h>
#include <atomic>

namespace {

constexpr DWORD kTimeLimitMs = 5000; // that a report has
constexpr DWORD kWritingLimitMs = 500;
constexpr char kNoReport[] = "Program crash: the report could not be finished\n";

std::atomic<DWORD> s_reporter {0}; // the thread that reports, 0 before any has failed
std::atomic<bool> s_printed {false};

DWORD WINAPI sayThatThereIsNoReport(void *)
{
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), kNoReport, sizeof(kNoReport) - 1, &written, nullptr);
    return 0;
}

[[noreturn]] void endNow()
{
    // The reader of standard error may have stopped, so a thread that may hang writes the line.
    if (!s_printed) {
        if (const HANDLE writer =
                CreateThread(nullptr, 0, sayThatThereIsNoReport, nullptr, 0, nullptr))
            WaitForSingleObject(writer, kWritingLimitMs);
    }
    TerminateProcess(GetCurrentProcess(), 1);
    while (true)
        Sleep(INFINITE);
}

DWORD WINAPI endAfterTheLimit(void *)
{
    Sleep(kTimeLimitMs);
    endNow();
}

} // namespace

void reserveCrashStack()
{
    ULONG size = 64 * 1024;
    SetThreadStackGuarantee(&size);
}

void beginLastReport()
{
    const DWORD self = GetCurrentThreadId();
    DWORD reporter = 0;
    if (!s_reporter.compare_exchange_strong(reporter, self)) {
        if (reporter == self)
            endNow();
        while (true)
            Sleep(INFINITE);
    }
    if (const HANDLE limit = CreateThread(nullptr, 0, endAfterTheLimit, nullptr, 0, nullptr))
        CloseHandle(limit);
}

void setLastReportPrinted()
{
    s_printed = true;
}
