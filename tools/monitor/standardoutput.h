#pragma once

#include <QByteArray>
#include <QString>

/// Writes to standard output, and at once. False when not all of it could be written.
bool writeToStandardOutput(const QByteArray &bytes);

/// Why the first write that failed did; empty if all were written.
QString standardOutputError();
