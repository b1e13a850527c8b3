// The report with which the process ends, and the stack on which it is made.
#pragma once

/// Keeps room on the calling thread's stack in which the unhandled-exception filter can run when
/// the stack has overflowed; call it once at the start of a thread. On Linux every thread has a
/// stack of its own for that, and there is nothing to do.
void reserveCrashStack();

/// Makes the calling thread the one whose report the process ends with. There is one for the whole
/// process: whoever comes later, on another thread, waits here for the end. Come again on the same
/// thread, it is the report that has failed, and the process ends at once. The report has five
/// seconds; then the process ends without it. The exit code is 1 then.
///
/// For the terminate handler. On Linux it is one election with the unhandled-exception filter's,
/// which the host holds before it calls the filter and in which the end is by the signal.
void beginLastReport();

/// Says that the report is out. A process that ends before says on standard error that there is
/// none.
void setLastReportPrinted();
