// What the host knows of the program that publishes the spectrum, for one who waits for it.
#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

struct ServiceLookup {
    /// Copies that this user runs, each by its temporary folder, in which its socket is. A
    /// copy in another session's run-time folder is left out. Empty where the host does not say.
    QStringList runningIn;

    /// True when the copy whose socket is where this process looks is told of another sound server
    /// than this process: what plays here is then not what it hears.
    bool hearsElsewhere = false;

    /// The user that the socket belongs to, if that is another one; else empty.
    QString foreignOwner;

    /// Where this process looks for the socket; empty where the host gives it no place.
    QString socket;

    /// Starts it: a program and its arguments. The unit of the user's service manager, where there
    /// are both, else the program beside this one or in PATH. Empty: it is not installed.
    QStringList startCommand;
};

/// Looks for it now; takes some milliseconds. processes: the system's list of processes; where
/// TONEWELL_PROCESSES is set it names the folder of another one, so that a test sees no other
/// copies than its own. beside: the folder in which the program is looked for before PATH.
ServiceLookup lookForService(
    const QString &processes = qEnvironmentVariable("TONEWELL_PROCESSES", QStringLiteral("/proc")),
    const QString &beside = QCoreApplication::applicationDirPath());
