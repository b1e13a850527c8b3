// The end of a process that has failed: who reports it, and how long that may take.
#pragma once

#include <csignal>
#include <cstdint>

/// What is known of a fault before anything is asked that may fail.
struct FaultFacts {
    int signal; ///< 0 for an exception that nobody has caught
    std::uintptr_t address; ///< of the data, as the signal says
    std::uintptr_t instruction; ///< the program counter
};

/// Makes the calling thread the reporter of the whole process, see platform/lastreport.h, and
/// starts the five seconds of its report. The process is to end by the signal, or with exit code 1
/// for 0.
void claimLastReport(const FaultFacts &facts);

/// Ends the process in the way that the reporter has named. If there is no report, a last line on
/// standard error says so and names the fault's facts. Whatever faults in here ends the process by
/// its own signal. Callable in a signal handler.
[[noreturn]] void endNow();

/// Lets the interrupted thread end by the signal once its handler has returned: what the system
/// sees, records and dumps is then the fault itself, not the handler.
void endAfterReturn(siginfo_t *info);
