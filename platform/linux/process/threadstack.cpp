#include "platform/linux/process/threadstack.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>

namespace {

// The report is written on it: room for Qt and the unwinder. Pages cost nothing until touched.
constexpr std::size_t kHandlerStackBytes = 512UL * 1024;
constexpr std::size_t kGuardBytes = 4096;

std::atomic<bool> s_enabled {false};
thread_local StackLimits t_limits {0, 0};

class HandlerStack {
public:
    HandlerStack()
    {
        m_memory = mmap(nullptr, kGuardBytes + kHandlerStackBytes, PROT_NONE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (m_memory == MAP_FAILED)
            return;
        if (!use(static_cast<char *>(m_memory) + kGuardBytes)) {
            giveBack();
            return;
        }
        pthread_attr_t attributes;
        void *low = nullptr;
        std::size_t size = 0;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            if (pthread_attr_getstack(&attributes, &low, &size) == 0) {
                t_limits.low = reinterpret_cast<std::uintptr_t>(low);
                t_limits.high = t_limits.low + size;
            }
            pthread_attr_destroy(&attributes);
        }
    }

    ~HandlerStack()
    {
        if (m_memory == MAP_FAILED)
            return;
        t_limits = {0, 0};
        // Where the old one cannot be set again, the kernel goes on using this one.
        if (sigaltstack(&m_previous, nullptr) == 0)
            giveBack();
    }

    HandlerStack(const HandlerStack &) = delete;
    HandlerStack &operator=(const HandlerStack &) = delete;

private:
    bool use(char *start)
    {
        stack_t stack {};
        stack.ss_sp = start;
        stack.ss_size = kHandlerStackBytes;
        return mprotect(start, kHandlerStackBytes, PROT_READ | PROT_WRITE) == 0
            && sigaltstack(&stack, &m_previous) == 0;
    }

    void giveBack()
    {
        munmap(m_memory, kGuardBytes + kHandlerStackBytes);
        m_memory = MAP_FAILED;
    }

    void *m_memory = MAP_FAILED;
    stack_t m_previous {};
};

struct ThreadStart {
    void *(*function)(void *);
    void *argument;
};

void *startThread(void *data)
{
    const ThreadStart start = *static_cast<ThreadStart *>(data);
    delete static_cast<ThreadStart *>(data);
    unblockFaultSignals(); // the mask is inherited
    const HandlerStack stack; // ends with the thread, also by pthread_exit and pthread_cancel
    return start.function(start.argument);
}

} // namespace

// Qt, the sound library and others start threads, and all of them call this function. The loader
// finds this definition before the C library's, which it calls in turn.
extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*function)(void *), void *argument) noexcept
{
    static const auto create =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (!s_enabled.load())
        return create(thread, attributes, function, argument);

    auto *const start = new (std::nothrow) ThreadStart {function, argument};
    if (!start)
        return EAGAIN;
    const int result = create(thread, attributes, startThread, start);
    if (result != 0)
        delete start;
    return result;
}

void useHandlerStacks()
{
    if (s_enabled.exchange(true))
        return;
    // The main thread's stack lives as long as the process. A leak check finds it here.
    [[maybe_unused]] static HandlerStack *volatile s_mainThreadStack;
    s_mainThreadStack = new HandlerStack;
}

void unblockFaultSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kFaultSignals)
        sigaddset(&set, signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

StackLimits threadStackLimits()
{
    return t_limits;
}
