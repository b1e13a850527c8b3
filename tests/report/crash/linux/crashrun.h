// One run of crashprogram, and what it left behind.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

struct Run {
    QByteArray facts;
    QString report; // standard error
    int status = -1; // exit code, or 128 + signal
    qint64 elapsed = 0; // ms from the fault to the end of the process
    QString trouble; // why it did not end by itself; empty when it did
    QStringList files; // what is in its current directory
    QString fileText; // content of the first of them

    QByteArray fact(const char *name) const
    {
        for (const QByteArray &line : facts.split('\n')) {
            if (line.startsWith(QByteArray(name) + '='))
                return line.mid(static_cast<int>(qstrlen(name)) + 1);
        }
        return {};
    }
};

/// What becomes of the program's standard error: read to the end; a pipe whose other end is closed;
/// a pipe that is full and stays so.
enum class Errors { Read, Closed, Stuck };

/// Runs the program in an empty folder of its own.
Run runProgram(const QStringList &arguments, Errors errors = Errors::Read);

/// Base name of the file that is mapped at the address, from the facts of the run.
QString mappedFile(const QByteArray &maps, qulonglong address);
