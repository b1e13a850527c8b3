// Fails in the way that its argument names. Prints, one fact a line, what the report must show,
// and last "crashing".
#include "faults.h"
#include "report/crashhandlers.h"

#include <QApplication>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

// Known outside of this file, so that the compiler cannot tell which run() is called.
struct Abstract;
void callPure(Abstract *object);

struct Abstract {
    Abstract() { callPure(this); } // the derived class is not there yet
    virtual ~Abstract() = default;
    virtual void run() = 0;
};

struct Concrete : Abstract {
    void run() override { }
};

[[gnu::noinline]] void callPure(Abstract *object)
{
    object->run();
}

namespace {

void announce(const char *instruction = nullptr)
{
    if (instruction)
        std::printf("instruction=%016llx\n", reinterpret_cast<unsigned long long>(instruction));
    // Every module in which a frame may lie.
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (maps.open(QIODevice::ReadOnly))
        std::fputs(maps.readAll().constData(), stdout);
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::printf("fault=%lld\ncrashing\n", now.tv_sec * 1000000000LL + now.tv_nsec);
    std::fflush(stdout);
}

// The frames are kept apart by what follows the call.
volatile int g_depth = 0;

[[gnu::noinline]] int overflow(int depth)
{
    volatile char frame[512];
    std::memset(const_cast<char *>(frame), depth, sizeof(frame));
    g_depth = depth;
    return depth < 0 ? frame[0] : overflow(depth + 1) + frame[1];
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

void runOnWorker(void (*function)())
{
    Worker worker(function);
    worker.start();
    worker.wait();
}

std::atomic<int> g_waiting {2};

void faultTogether()
{
    --g_waiting;
    while (g_waiting > 0) { }
    faultRead();
}

[[gnu::noinline]] void callNowhere()
{
    const auto nowhere = reinterpret_cast<void (*)()>(std::uintptr_t {0x10});
    nowhere();
    g_depth = 1; // keeps the call from being a jump
}

void overflowNow()
{
    overflow(0);
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
    } else if (kind == "bad-call") {
        announce();
        callNowhere();
    } else if (kind == "breakpoint") {
        announce(faultBreakpointAt + 1);
        faultBreakpoint();
    } else if (kind == "stack-overflow") {
        announce();
        overflow(0);
    } else if (kind == "worker-stack-overflow") {
        announce();
        runOnWorker(overflowNow);
    } else if (kind == "std-thread-stack-overflow") {
        announce();
        std::thread(overflowNow).join();
    } else if (kind == "throw") {
        announce();
        throwNow();
    } else if (kind == "noexcept") {
        announce();
        throwFromNoexcept();
    } else if (kind == "pure") {
        announce();
        Concrete object;
    } else if (kind == "abort") {
        announce();
        std::abort();
    } else if (kind == "worker") {
        announce(faultReadAt);
        runOnWorker([] { faultRead(); });
    } else if (kind == "two") {
        announce(faultReadAt);
        Worker worker(faultTogether);
        worker.start();
        faultTogether();
    } else if (kind == "sent") {
        announce();
        kill(getpid(), SIGSEGV);
    } else {
        std::fprintf(stderr, "no such kind: %s\n", kind.c_str());
        std::exit(2);
    }
}

LONG WINAPI hangingFilter(EXCEPTION_POINTERS *)
{
    while (true)
        pause();
}

LONG WINAPI faultingFilter(EXCEPTION_POINTERS *)
{
    faultDivide();
}

LONG WINAPI abortingFilter(EXCEPTION_POINTERS *)
{
    std::abort();
}

LONG WINAPI throwingFilter(EXCEPTION_POINTERS *)
{
    throw std::runtime_error("on purpose");
}

LPTOP_LEVEL_EXCEPTION_FILTER filterNamed(const std::string &name)
{
    if (name == "hanging")
        return hangingFilter;
    if (name == "faulting")
        return faultingFilter;
    if (name == "aborting")
        return abortingFilter;
    if (name == "throwing")
        return throwingFilter;
    return crashFilter;
}

} // namespace

// usage: crashprogram kind [filter]; a kind that begins with "early-" runs without an application.
int main(int argc, char **argv)
{
    const rlimit noCore {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(filterNamed(argc > 2 ? argv[2] : ""));
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    std::string kind = argc > 1 ? argv[1] : "";
    if (kind.rfind("early-", 0) == 0) {
        crash(kind.substr(6));
        return 3;
    }
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0.0"));
    QTimer::singleShot(0, [&kind] {
        crash(kind);
        QCoreApplication::exit(3);
    });
    return QApplication::exec();
}
