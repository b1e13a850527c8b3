// What a report of a crash says.
#pragma once

#include <QProcess>
#include <QString>

/// Waits for the end of a process that has been started, for thirty seconds; one that runs on is
/// killed. What kept it from ending by itself, in words; empty when nothing did.
QString waitForEnd(QProcess *process);

/// Fails the calling test when a program that is not there passes for one that runs on.
void verifyThatNoProgramIsNoHang();

/// The value of a line of the report; empty without a line of that name.
QString field(const QString &report, const QString &name);

/// Compares the report's registers with what faults.h sets before that instruction (its address, 16
/// hexadecimal digits). Fails the calling test where they differ.
void checkRegisters(const QString &report, const QString &instruction);

/// The rows of a test that holds reports against the kept ones: column "kind" is the crash, the
/// row's name the kept report's.
void addGoldenRows();
