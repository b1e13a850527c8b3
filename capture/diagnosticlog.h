// Append-only text log of capture events, for finding format and device problems.
#pragma once

#include <QString>

/// Switches the log of the whole process on or off; off at first. Callable from any thread.
void enableDiagnosticLog(bool enabled);

/// Appends "[HH:mm:ss.zzz] message" and a line feed (UTF-8, local time) to diagnosticLogPath() when
/// the log is on. The file is opened and closed for every line; one that cannot be opened is
/// ignored. Callable from any thread; lines of different threads come in no particular order.
void writeDiagnosticLog(const QString &message);
