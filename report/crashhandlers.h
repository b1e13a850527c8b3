// The two process-wide hooks that turn a crash into a report.
#pragma once

#include <windows.h>

/// The unhandled-exception filter, for SetUnhandledExceptionFilter. Prints the report with
/// registers and stack trace to standard error, hands it to deliverReport and returns
/// EXCEPTION_EXECUTE_HANDLER, after which the system ends the process. Runs on the faulting
/// thread. It allocates memory, so it may wait for a lock that the fault has left behind: on Linux
/// the host gives it five seconds.
LONG WINAPI crashFilter(EXCEPTION_POINTERS *pointers);

/// The terminate handler, for std::set_terminate. Prints the report, hands it to deliverReport and
/// ends the process at once with exit code 1: no destructor and no atexit handler runs. Of several
/// threads that fail, by an exception or, on Linux, by a fault, only the first one reports; it has
/// five seconds.
[[noreturn]] void terminateHandler();
