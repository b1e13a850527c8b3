// Fails in the way that its argument names. Prints, one fact a line, what the report must show,
// and last "crashing".
#include "report/crashhandlers.h"
#include "tests/report/crash/faults.h"

#include <windows.h>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <QApplication>
#include <QFileInfo>
#include <QThread>
#include <QTimer>
#include <stdexcept>
#include <string>
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

void announce(const char *instruction = nullptr)
{
    if (instruction)
        std::printf("instruction=%016llx\n", reinterpret_cast<unsigned long long>(instruction));
    printModules();
    std::puts("crashing");
    std::fflush(stdout);
}

[[gnu::noinline]] void throwNow()
{
    throw std::runtime_error("on purpose");
}

[[gnu::noinline]] void throwFromNoexcept() noexcept
{
    throwNow();
}

class Worker : public QThread {
protected:
    void run() override { faultRead(); }
};

volatile int g_depth = 0;

[[gnu::noinline]] void callNowhere()
{
    const auto nowhere = reinterpret_cast<void (*)()>(std::uintptr_t {0x10});
    nowhere();
    g_depth = 1; // keeps the call from being a jump
}

[[gnu::noinline]] void crash(const std::string &kind)
{
    if (kind == "null-read") {
        announce(faultReadAt);
        faultRead();
    } else if (kind == "null-write") {
        announce(faultWriteAt);
        faultWrite();
    } else if (kind == "divide") {
        announce(faultDivideAt);
        faultDivide();
    } else if (kind == "illegal") {
        announce(faultIllegalAt);
        faultIllegal();
    } else if (kind == "non-canonical") {
        announce(faultNonCanonicalAt);
        faultNonCanonical();
    } else if (kind == "breakpoint") {
        announce(faultBreakpointAt);
        faultBreakpoint();
    } else if (kind == "bad-call") {
        announce();
        callNowhere();
    } else if (kind == "raised") {
        announce();
        RaiseException(0xC000008E, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    } else if (kind == "throw") {
        announce();
        throwNow();
    } else if (kind == "noexcept") {
        announce();
        throwFromNoexcept();
    } else if (kind == "worker") {
        announce(faultReadAt);
        Worker worker;
        worker.start();
        worker.wait();
    } else {
        std::fprintf(stderr, "no such kind: %s\n", kind.c_str());
        std::exit(2);
    }
}

} // namespace

// usage: crashprogram kind; a kind that begins with "early-" runs without an application.
int main(int argc, char **argv)
{
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(crashFilter);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    std::string kind = argc > 1 ? argv[1] : "";
    if (kind.rfind("early-", 0) == 0) {
        crash(kind.substr(6));
        return 3;
    }
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9"));
    QTimer::singleShot(0, [&kind] {
        crash(kind);
        QCoreApplication::exit(3);
    });
    return QApplication::exec();
}
