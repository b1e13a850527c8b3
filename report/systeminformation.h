// The system facts of an error report.
#pragma once

#include <QString>

/// Lines on system version, processor, memory and primary display, each starting with two blanks
/// and ending in a line feed; a query that fails leaves its lines out. Callable from any thread.
QString systemInformation();
