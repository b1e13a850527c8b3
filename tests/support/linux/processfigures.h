// What the kernel tells of a process that a test has started.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QString>

/// The figure in kB on the line "NAME: N kB" of /proc/PID/FILE; -1 when there is none.
inline long kilobytes(const QProcess &process, const QString &file, const QByteArray &name)
{
    QFile figures(QStringLiteral("/proc/%1/%2").arg(process.processId()).arg(file));
    if (!figures.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray start = name + ':';
    const QList<QByteArray> lines = figures.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(start))
            return line.mid(start.size()).trimmed().split(' ').constFirst().toLong();
    }
    return -1;
}

/// Resident memory, kB; -1 when it cannot be read.
inline long residentMemory(const QProcess &process)
{
    return kilobytes(process, QStringLiteral("status"), "VmRSS");
}

/// Memory that is no file's, kB; -1 when it cannot be read.
inline long ownMemory(const QProcess &process)
{
    return kilobytes(process, QStringLiteral("smaps_rollup"), "Anonymous");
}

/// How many descriptors are open; 0 when that cannot be read.
inline int descriptors(const QProcess &process)
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(process.processId()))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}
