#include "machinecontext.h"
#include "threadstack.h"

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned TimeLimit = 5; // seconds that a filter has
constexpr int Signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT};

std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> s_filter {nullptr};
std::atomic<pid_t> s_reporter {0}; // the thread that reports, 0 before any has faulted
std::atomic<int> s_signal {0}; // what it reports

pid_t threadId()
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void restoreDefault(int signal)
{
    struct sigaction action { };
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
}

void setBlocked(int signal, bool blocked)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &set, nullptr);
}

[[noreturn]] void endNow(int signal)
{
    restoreDefault(signal);
    setBlocked(signal, false);
    syscall(SYS_tgkill, getpid(), threadId(), signal);
    std::_Exit(128 + signal);
}

// Lets the interrupted thread end by the signal once the handler has returned: what the system
// sees, records and dumps is then the fault itself, not the handler.
void endAfterReturn(siginfo_t *info)
{
    restoreDefault(info->si_signo);
    setBlocked(info->si_signo, true); // undone by the return
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), threadId(), info->si_signo, info) != 0)
        endNow(info->si_signo);
}

// A signal that somebody sent says nothing about an instruction of this program. The one that is
// sent on purpose is abort's.
bool isFault(const siginfo_t &info)
{
    if (info.si_signo == SIGABRT)
        return info.si_code == SI_TKILL && info.si_pid == getpid();
    return info.si_code > 0;
}

void handleTimeout(int)
{
    endNow(s_signal);
}

void startTimeLimit()
{
    struct sigaction action { };
    action.sa_handler = handleTimeout;
    action.sa_flags = SA_ONSTACK;
    sigaction(SIGALRM, &action, nullptr);
    setBlocked(SIGALRM, false);
    alarm(TimeLimit);
}

void handleFault(int signal, siginfo_t *info, void *machineContext)
{
    if (!isFault(*info)) {
        endAfterReturn(info);
        return;
    }
    const pid_t self = threadId();
    pid_t reporter = 0;
    if (!s_reporter.compare_exchange_strong(reporter, self)) {
        if (reporter == self) // a fault in the filter
            endNow(s_signal);
        while (true) // another thread is reporting; it ends the process
            pause();
    }
    s_signal = signal;
    startTimeLimit();

    const auto &machine = *static_cast<const ucontext_t *>(machineContext);
    CONTEXT context;
    toContext(machine, &context);
    EXCEPTION_RECORD record;
    toExceptionRecord(*info, machine, threadStackLimits(), &record);
    EXCEPTION_POINTERS pointers {&record, &context};
    try {
        if (const LPTOP_LEVEL_EXCEPTION_FILTER filter = s_filter)
            filter(&pointers);
    } catch (...) {
        // The end comes either way, and by the original signal.
    }
    endAfterReturn(info);
}

} // namespace

LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter)
{
    if (filter)
        useHandlerStacks();
    const LPTOP_LEVEL_EXCEPTION_FILTER before = s_filter.exchange(filter);

    struct sigaction action { };
    if (filter) {
        action.sa_sigaction = handleFault;
        // Not blocked meanwhile, so that a fault in the handler comes back to it and ends it.
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        sigaddset(&action.sa_mask, SIGPIPE); // nobody may be reading standard error any more
    } else {
        action.sa_handler = SIG_DFL;
    }
    for (const int signal : Signals)
        sigaction(signal, &action, nullptr);
    return before;
}
