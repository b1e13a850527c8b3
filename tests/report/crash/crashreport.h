// What a report of a crash says.
#pragma once

#include <QString>

/// The value of a line of the report; empty without a line of that name.
QString field(const QString &report, const QString &name);

/// Holds the report's registers against those of faults.h at that instruction, 16 hexadecimal
/// digits. For a test, which it fails.
void checkRegisters(const QString &report, const QString &instruction);
