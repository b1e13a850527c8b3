// The report with which the process ends, and the stack on which it is made.
#pragma once

/// Keeps room on the calling thread's stack in which the unhandled-exception filter can run when
/// the stack has overflowed; call it once at the start of a thread. On Linux every thread has a
/// stack of its own for that, and there is nothing to do.
void reserveCrashStack();

/// Makes the calling thread the only one that may report before the process ends. Another thread
/// that calls this later waits here for the end. A second call on the same thread means that the
/// report itself has failed: it ends the process at once. The report has five seconds, then the
/// process ends without it; on Linux time for which the process is stopped is not counted. The exit
/// code is 1 in both cases.
///
/// For the terminate handler. On Linux the host does the same for the unhandled-exception filter
/// before it calls it: terminate handler and filter share the one reporter. A process that ends
/// because of a fault ends by its signal.
void beginLastReport();

/// Tells that the report has been printed. A process that ends earlier prints on standard error
/// that there is no report.
void setLastReportPrinted();
