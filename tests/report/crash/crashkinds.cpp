#include "tests/report/crash/crashkinds.h"

#include "tests/report/crash/faults.h"
#include "tests/support/noinline.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <QApplication>
#include <QThread>
#include <QTimer>
#include <stdexcept>

namespace {

class Worker : public QThread {
public:
    explicit Worker(void (*function)())
        : m_function(function)
    {
    }

protected:
    void run() override { m_function(); }

private:
    void (*const m_function)();
};

// What leaves a noexcept function ends the program: one of the ways to crash.
// NOLINTNEXTLINE(bugprone-exception-escape)
TONEWELL_NOINLINE void throwFromNoexcept() noexcept
{
    throwNow();
}

volatile int s_depth = 0;

TONEWELL_NOINLINE void callNowhere()
{
    const auto nowhere = reinterpret_cast<void (*)()>(std::uintptr_t {0x10});
    nowhere();
    s_depth = 1; // keeps the call from being a jump
}

const CrashKind kCommon[] = {
    {"null-read",
     [] {
         announce(faultReadAt);
         faultRead();
     }},
    {"null-write",
     [] {
         announce(faultWriteAt);
         faultWrite();
     }},
    {"divide",
     [] {
         announce(faultDivideAt);
         faultDivide();
     }},
    {"illegal",
     [] {
         announce(faultIllegalAt);
         faultIllegal();
     }},
    {"non-canonical",
     [] {
         announce(faultNonCanonicalAt);
         faultNonCanonical();
     }},
    {"breakpoint",
     [] {
         announce(faultBreakpointAt);
         faultBreakpoint();
     }},
    {"privileged",
     [] {
         announce(faultPrivilegedAt);
         faultPrivileged();
     }},
    {"bad-call",
     [] {
         announce();
         callNowhere();
     }},
    {"throw",
     [] {
         announce();
         throwNow();
     }},
    {"noexcept",
     [] {
         announce();
         throwFromNoexcept();
     }},
    {"worker",
     [] {
         announce(faultReadAt);
         runOnWorker([] { faultRead(); });
     }},
};

const CrashKind &kindNamed(const std::string &name, const std::vector<CrashKind> &own)
{
    for (const CrashKind &kind : own) {
        if (name == kind.name)
            return kind;
    }
    for (const CrashKind &kind : kCommon) {
        if (name == kind.name)
            return kind;
    }
    std::fprintf(stderr, "no such kind: %s\n", name.c_str());
    std::exit(2);
}

} // namespace

TONEWELL_NOINLINE void throwNow()
{
    throw std::runtime_error("on purpose");
}

void runOnWorker(void (*function)())
{
    Worker worker(function);
    worker.start();
    worker.wait();
}

int runCrashProgram(int argc, char **argv, const std::vector<CrashKind> &own)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    std::atexit([] { std::fputs(kExitHandlersRan, stdout); });
    const std::string name = argc > 1 ? argv[1] : "";
    if (name.rfind("early-", 0) == 0) {
        kindNamed(name.substr(6), own).fail();
        return 3;
    }
    const CrashKind &kind = kindNamed(name, own);
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9"));
    QTimer::singleShot(0, [&kind] {
        kind.fail();
        if (!kind.returns)
            QCoreApplication::exit(3);
    });
    return QApplication::exec();
}
