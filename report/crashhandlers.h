// The two process-wide hooks that turn a crash into a report.
#pragma once

#include <windows.h>

/// The unhandled-exception filter, for SetUnhandledExceptionFilter. Prints the report with
/// registers and stack trace to standard error, hands it to deliverReport and returns
/// EXCEPTION_EXECUTE_HANDLER, after which the system ends the process. Runs on the faulting
/// thread and locks nothing.
LONG WINAPI crashFilter(EXCEPTION_POINTERS *pointers);

/// The terminate handler, for std::set_terminate. Prints the report, hands it to deliverReport and
/// ends the process at once with exit code 1: no destructor and no atexit handler runs.
[[noreturn]] void terminateHandler();
