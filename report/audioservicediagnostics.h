// The audio section of a start-failure report.
#pragma once

#include <QString>

/// A snapshot of the two audio services, of COM on the calling thread, of the default endpoints
/// and the number of active ones, and a fixed list of error codes. A failed call is reported by
/// its own line or leaves out the lines that depend on it; nothing ends the section early. Takes
/// no lock; a thread without COM is in an apartment-threaded apartment afterwards.
QString audioServiceDiagnostics();
