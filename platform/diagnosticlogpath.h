// Where the capture diagnostic log is.
#pragma once

#include <QString>

/// Absolute path of the capture diagnostic log; its folder exists afterwards when it can be made.
QString diagnosticLogPath();
