// The report sink: where a finished report goes.
#pragma once

#include <QString>

/// Hands a finished report over. With an application object it is shown in the error report
/// dialog by a zero-delay timer of the calling thread, so the call returns at once and the dialog
/// appears only if that thread's event loop goes on; where no dialog can be seen, the report also
/// goes to standard error at that point. Without an application object it is written to
/// "crash_report_<yyyyMMdd_HHmmss>.txt" in the current directory; a file that cannot be opened is
/// passed over in silence.
void deliverReport(const QString &report);

/// A function with the contract of deliverReport.
using ReportSink = void (*)(const QString &report);

/// Replaces the sink for every later deliverReport of the process; null brings the built-in one
/// back. Meant for tests; callable from any thread. Returns what was set.
ReportSink setReportSink(ReportSink sink);
