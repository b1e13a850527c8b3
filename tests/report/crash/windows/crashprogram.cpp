// Fails in the way that its argument names.
#include "report/crashhandlers.h"
#include "tests/report/crash/crashkinds.h"
#include "tests/report/crash/faults.h"

#include <windows.h>
#include <cstdio>
#include <exception>
#include <tlhelp32.h>
#include <vector>

namespace {

// Every module in which a frame may lie: "module=<first> <end> <file name>".
void printModules()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, GetCurrentProcessId());
    MODULEENTRY32W module {};
    module.dwSize = sizeof(module);
    for (BOOL more = Module32FirstW(snapshot, &module); more;
         more = Module32NextW(snapshot, &module)) {
        const auto first = reinterpret_cast<unsigned long long>(module.modBaseAddr);
        std::printf("module=%016llx %016llx %ls\n", first, first + module.modBaseSize,
                    module.szModule);
    }
    CloseHandle(snapshot);
}

const std::vector<CrashKind> kOwn = {
    {"raised",
     [] {
         announce();
         RaiseException(0xC000008E, EXCEPTION_NONCONTINUABLE, 0, nullptr);
     }},
};

} // namespace

void announce(const char *instruction)
{
    if (instruction)
        std::printf("instruction=%016llx\n", reinterpret_cast<unsigned long long>(instruction));
    printModules();
    std::puts("crashing");
    std::fflush(stdout);
}

// usage: crashprogram kind; a kind that begins with "early-" runs without an application.
int main(int argc, char **argv)
{
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(crashFilter);
    return runCrashProgram(argc, argv, kOwn);
}
