// The end of a process that has failed: who reports it, and how long that may take.
#pragma once

#include <csignal>

/// Makes the calling thread the reporter of the whole process, see platform/lastreport.h, and
/// starts the five seconds of its report. The process is to end by the signal, or with exit code 1
/// for 0.
void claimLastReport(int signal);

/// Ends the process in the way that the reporter has named. Says on standard error that there is no
/// report if there is none. Callable in a signal handler.
[[noreturn]] void endNow();

/// Lets the interrupted thread end by the signal once its handler has returned: what the system
/// sees, records and dumps is then the fault itself, not the handler.
void endAfterReturn(siginfo_t *info);
