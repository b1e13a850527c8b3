// What a report of a crash says.
#pragma once

#include <QString>

/// The value of a line of the report; empty without a line of that name.
QString field(const QString &report, const QString &name);

/// Compares the report's registers with what faults.h sets before that instruction (its address, 16
/// hexadecimal digits). Fails the calling test where they differ.
void checkRegisters(const QString &report, const QString &instruction);

/// The rows of a test that holds reports against the kept ones: column "kind" is the crash, the
/// row's name the kept report's.
void addGoldenRows();
