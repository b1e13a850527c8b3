#include "tests/report/crash/linux/hardfaults.h"

#include "tests/report/crash/faults.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<bool> s_locked {false};
std::atomic<bool> s_endFaults {false};

[[noreturn]] void keepLocked()
{
    s_locked = true;
    while (true)
        pause();
}

void holdOnAnotherThread(void (*takeLock)())
{
    std::thread(takeLock).detach();
    while (!s_locked)
        std::this_thread::yield();
}

// Bytes of private memory that can be written, as the system counts them against its limit.
rlim_t dataBytes()
{
    std::FILE *const status = std::fopen("/proc/self/status", "r");
    char line[256];
    unsigned long kibibytes = 0;
    while (status && std::fgets(line, sizeof(line), status)) {
        if (std::sscanf(line, "VmData: %lu", &kibibytes) == 1)
            break;
    }
    if (kibibytes == 0)
        std::exit(2);
    std::fclose(status);
    return static_cast<rlim_t>(kibibytes) * 1024;
}

void setDataLimit(rlim_t bytes)
{
    rlimit limit {};
    if (getrlimit(RLIMIT_DATA, &limit) != 0)
        std::exit(2);
    limit.rlim_cur = bytes;
    if (setrlimit(RLIMIT_DATA, &limit) != 0)
        std::exit(2);
}

void *faultWithMemoryAgain(void *)
{
    stack_t stack {};
    sigaltstack(nullptr, &stack);
    if ((stack.ss_flags & SS_DISABLE) == 0) // there was memory after all
        std::exit(2);
    setDataLimit(RLIM_INFINITY);
    faultRead();
}

} // namespace

// In place of the library's: the first thing that the end of a failed report asks for.
extern "C" int poll(pollfd *files, nfds_t count, int timeout)
{
    if (s_endFaults)
        faultDivide();
    return static_cast<int>(syscall(SYS_poll, files, count, timeout));
}

void makeTheEndFault()
{
    s_endFaults = true;
}

void holdLoaderLock()
{
    holdOnAnotherThread([] {
        dl_iterate_phdr([](dl_phdr_info *, std::size_t, void *) -> int { keepLocked(); }, nullptr);
    });
}

void holdErrorsLock()
{
    holdOnAnotherThread([] {
        flockfile(stderr);
        keepLocked();
    });
}

[[gnu::noinline]] void faultOnOverwrittenStack()
{
    // From the caller's frame to the arguments and the environment, which lie above all frames.
    char *const first = static_cast<char *>(__builtin_frame_address(0)) + 2 * sizeof(void *);
    char *const last = reinterpret_cast<char *>(environ) - 4096;
    if (first < last)
        std::memset(first, 0xA5, static_cast<std::size_t>(last - first));
    faultRead();
}

void faultWithoutHandlerStack()
{
    // The thread's own stack is there already, so that only the handlers' is missing.
    constexpr std::size_t kStackBytes = 4 * 1024 * 1024;
    void *const memory =
        mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    pthread_attr_t attributes;
    pthread_t thread {};
    if (memory == MAP_FAILED || pthread_attr_init(&attributes) != 0
        || pthread_attr_setstack(&attributes, memory, kStackBytes) != 0)
        std::exit(2);
    setDataLimit(dataBytes() + 128 * 1024);
    if (pthread_create(&thread, &attributes, faultWithMemoryAgain, nullptr) != 0)
        std::exit(2);
    pthread_join(thread, nullptr);
    std::exit(2);
}
