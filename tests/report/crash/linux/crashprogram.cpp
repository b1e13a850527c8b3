// Fails in the way that its argument names. Prints, one fact a line, what the report must show,
// and last "crashing".
#include "report/crashhandlers.h"
#include "report/deliverreport.h"
#include "tests/report/crash/faults.h"

#include <atomic>
#include <cfenv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <malloc.h>
#include <QApplication>
#include <QFile>
#include <QThread>
#include <QTimer>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
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

void meet()
{
    --g_waiting;
    while (g_waiting > 0) { }
}

void faultTogether()
{
    meet();
    faultRead();
}

void runTogether(void (*first)(), void (*second)())
{
    std::thread other([second] {
        meet();
        second();
    });
    meet();
    first();
    other.join();
}

// On another thread, while this one is on the way to the end.
void failElsewhere(void (*function)())
{
    std::thread(function).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
}

void readBeyondTheFile()
{
    const int file = memfd_create("empty", 0);
    void *const memory = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
        std::exit(2);
    std::printf("data=%016llx\n", reinterpret_cast<unsigned long long>(memory));
    announce();
    g_depth = *static_cast<volatile char *>(memory);
}

// The allocator finds it while it holds its lock, which it does only in a process with threads.
void corruptHeap()
{
    std::thread([] {
        while (true)
            pause();
    }).detach();
    // Volatile, so that the calls stay; the blocks are larger than those a thread keeps for itself.
    const volatile std::size_t size = 5000;
    char *const volatile block = static_cast<char *>(std::malloc(size));
    char *const volatile next = static_cast<char *>(std::malloc(size));
    announce();
    std::memset(block, 'x', malloc_usable_size(block) + 24); // the next block's size as well
    std::free(block);
    std::free(next);
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
    } else if (kind == "worker-blocked") {
        announce(faultReadAt);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr); // what the worker inherits
        runOnWorker([] { faultRead(); });
    } else if (kind == "bus") {
        readBeyondTheFile();
    } else if (kind == "float-division") {
        announce(faultFloatDivisionAt);
        feenableexcept(FE_DIVBYZERO);
        faultFloatDivision(1.0, 0.0);
    } else if (kind == "two-throw") {
        announce();
        runTogether(throwNow, throwNow);
    } else if (kind == "fault-and-throw") {
        announce();
        runTogether(faultRead, throwNow);
    } else if (kind == "heap-corruption") {
        corruptHeap();
    } else if (kind == "deliver") {
        announce();
        deliverReport(QStringLiteral("a report\n"));
        QTimer::singleShot(100, [] { QCoreApplication::exit(7); });
        return;
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

LONG WINAPI outpacedFilter(EXCEPTION_POINTERS *pointers)
{
    failElsewhere(throwNow);
    return crashFilter(pointers);
}

// What happens after the report has been printed.
ReportSink sinkNamed(const std::string &name)
{
    if (name == "hanging-sink") {
        return [](const QString &) {
            while (true)
                pause();
        };
    }
    if (name == "faulting-sink")
        return [](const QString &) { faultRead(); };
    if (name == "fault-elsewhere-sink")
        return [](const QString &) { failElsewhere(faultRead); };
    if (name == "throw-elsewhere-sink")
        return [](const QString &) { failElsewhere(throwNow); };
    return nullptr;
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
    if (name == "outpaced")
        return outpacedFilter;
    return crashFilter;
}

} // namespace

// usage: crashprogram kind [filter or sink]; a kind that begins with "early-" runs without an
// application.
int main(int argc, char **argv)
{
    const rlimit noCore {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(filterNamed(argc > 2 ? argv[2] : ""));
    setReportSink(sinkNamed(argc > 2 ? argv[2] : ""));
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
        if (kind != "deliver") // which ends in order
            QCoreApplication::exit(3);
    });
    return QApplication::exec();
}
