// Where this host keeps the capture diagnostic log.
#pragma once

#include <QString>

/// Absolute path of the log file; its folder exists afterwards when it can be made.
QString diagnosticLogPath();
