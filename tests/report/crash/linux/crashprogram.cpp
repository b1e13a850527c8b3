// Fails in the way that its argument names.
#include "report/crashhandlers.h"
#include "report/deliverreport.h"
#include "tests/report/crash/crashkinds.h"
#include "tests/report/crash/faults.h"
#include "tests/report/crash/linux/hardfaults.h"

#include <atomic>
#include <cfenv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <malloc.h>
#include <QCoreApplication>
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

void announce(const char *instruction)
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

namespace {

// The frames are kept apart by what follows the call.
volatile int s_depth = 0;

[[gnu::noinline]] int overflow(int depth)
{
    volatile char frame[512];
    std::memset(const_cast<char *>(frame), depth, sizeof(frame));
    s_depth = depth;
    return depth < 0 ? frame[0] : overflow(depth + 1) + frame[1];
}

std::atomic<int> s_waiting {2};

void meet()
{
    --s_waiting;
    while (s_waiting > 0) { }
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
    s_depth = *static_cast<volatile unsigned char *>(memory);
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

void overflowNow()
{
    overflow(0);
}

const std::vector<CrashKind> kOwn = {
    {"alignment",
     [] {
         announce(faultAlignmentAt);
         faultAlignment();
     }},
    {"quotient",
     [] {
         announce(faultQuotientAt);
         faultQuotient();
     }},
    {"lost-stack",
     [] {
         announce(faultLostStackAt);
         faultLostStack();
     }},
    {"overwritten-stack",
     [] {
         announce(faultReadAt);
         faultOnOverwrittenStack();
     }},
    {"no-handler-stack",
     [] {
         announce(faultReadAt);
         faultWithoutHandlerStack();
     }},
    {"loader-locked",
     [] {
         holdLoaderLock();
         announce(faultReadAt);
         faultRead();
     }},
    {"errors-locked",
     [] {
         holdErrorsLock();
         announce(faultReadAt);
         faultRead();
     }},
    {"stack-overflow",
     [] {
         announce();
         overflow(0);
     }},
    {"worker-stack-overflow",
     [] {
         announce();
         runOnWorker(overflowNow);
     }},
    {"std-thread-stack-overflow",
     [] {
         announce();
         std::thread(overflowNow).join();
     }},
    {"pure",
     [] {
         announce();
         Concrete object;
     }},
    {"abort",
     [] {
         announce();
         std::abort();
     }},
    {"worker-blocked",
     [] {
         announce(faultReadAt);
         sigset_t all;
         sigfillset(&all);
         pthread_sigmask(SIG_BLOCK, &all, nullptr); // what the worker inherits
         runOnWorker([] { faultRead(); });
     }},
    {"bus", [] { readBeyondTheFile(); }},
    {"float-division",
     [] {
         announce(faultFloatDivisionAt);
         feenableexcept(FE_DIVBYZERO);
         faultFloatDivision(1.0, 0.0);
     }},
    {"two-throw",
     [] {
         announce();
         runTogether(throwNow, throwNow);
     }},
    {"fault-and-throw",
     [] {
         announce();
         runTogether(faultRead, throwNow);
     }},
    {"heap-corruption", [] { corruptHeap(); }},
    {"deliver",
     [] {
         announce();
         deliverReport(QStringLiteral("a report\n"));
         QTimer::singleShot(100, [] { QCoreApplication::exit(7); });
     },
     true},
    {"two",
     [] {
         announce(faultReadAt);
         QThread::create(faultTogether)->start();
         faultTogether();
     }},
    {"sent",
     [] {
         announce();
         kill(getpid(), SIGSEGV);
     }},
};

LONG WINAPI hangingFilter(EXCEPTION_POINTERS *)
{
    while (true)
        pause();
}

LONG WINAPI faultingFilter(EXCEPTION_POINTERS *)
{
    faultDivide();
}

LONG WINAPI endFaultingFilter(EXCEPTION_POINTERS *)
{
    makeTheEndFault();
    faultRead();
}

LONG WINAPI misalignedFilter(EXCEPTION_POINTERS *)
{
    faultAlignment();
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
    if (name == "end-faulting")
        return endFaultingFilter;
    if (name == "misaligned")
        return misalignedFilter;
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
// application, one that begins with "blocked-" with every signal blocked, as a parent may leave
// them.
int main(int argc, char **argv)
{
    constexpr char kBlocked[] = "blocked-";
    if (argc > 1 && std::strncmp(argv[1], kBlocked, std::strlen(kBlocked)) == 0) {
        argv[1] += std::strlen(kBlocked);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
    }
    const rlimit noCore {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    std::set_terminate(terminateHandler);
    SetUnhandledExceptionFilter(filterNamed(argc > 2 ? argv[2] : ""));
    setReportSink(sinkNamed(argc > 2 ? argv[2] : ""));
    return runCrashProgram(argc, argv, kOwn);
}
