#include "platform/linux/process/lastreport.h"
#include "platform/linux/process/machinecontext.h"
#include "platform/linux/process/threadstack.h"

#include <windows.h>
#include <atomic>
#include <cstdint>
#include <unistd.h>

namespace {

std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> s_filter {nullptr};

// A signal that kill or raise sent tells nothing about an instruction of this program. Only abort()
// sends its signal on purpose.
bool isFault(const siginfo_t &info)
{
    if (info.si_signo == SIGABRT)
        return info.si_code == SI_TKILL && info.si_pid == getpid();
    return info.si_code > 0;
}

// A handler starts with the interrupted thread's flags. With this one set, every access that is not
// aligned faults, the compiler's own and the library's included.
void permitUnalignedAccess()
{
    constexpr unsigned long long kAlignmentCheck = 1ULL << 18;
    __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~kAlignmentCheck);
}

void handleFault(int signal, siginfo_t *info, void *machineContext)
{
    permitUnalignedAccess();
    if (!isFault(*info)) {
        endAfterReturn(info);
        return;
    }
    const auto &machine = *static_cast<const ucontext_t *>(machineContext);
    const auto instruction = static_cast<std::uintptr_t>(machine.uc_mcontext.gregs[REG_RIP]);
    claimLastReport({signal, reinterpret_cast<std::uintptr_t>(info->si_addr), instruction});

    CONTEXT context;
    toContext(machine, &context);
    EXCEPTION_RECORD record;
    toExceptionRecord(*info, machine, threadStackLimits(), &record);
    context.Rip = reinterpret_cast<DWORD64>(record.ExceptionAddress);
    EXCEPTION_POINTERS pointers {&record, &context};
    try {
        if (const LPTOP_LEVEL_EXCEPTION_FILTER filter = s_filter)
            filter(&pointers);
    } catch (...) {
        // The process ends all the same, by the original signal.
    }
    endAfterReturn(info);
}

} // namespace

LPTOP_LEVEL_EXCEPTION_FILTER SetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER filter)
{
    if (filter) {
        useHandlerStacks();
        unblockFaultSignals(); // the parent may have left them blocked
    }
    const LPTOP_LEVEL_EXCEPTION_FILTER before = s_filter.exchange(filter);

    struct sigaction action { };
    if (filter) {
        action.sa_sigaction = handleFault;
        // Not blocked meanwhile, so that a fault in the handler comes back to it and ends it.
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    } else {
        action.sa_handler = SIG_DFL;
    }
    for (const int signal : kFaultSignals)
        sigaction(signal, &action, nullptr);
    return before;
}
