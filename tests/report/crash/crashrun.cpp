#include "crashrun.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <ctime>
#include <unistd.h>

namespace {

constexpr int Patience = 30000; // ms after which a run counts as hung

qint64 monotonicNow() // ns, the same clock in all processes
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * Q_INT64_C(1000000000) + now.tv_nsec;
}

class Program : public QProcess {
public:
    explicit Program(bool readsErrors)
        : m_readsErrors(readsErrors)
    {
    }

protected:
    void setupChildProcess() override
    {
        int ends[2];
        if (m_readsErrors || pipe(ends) != 0)
            return;
        ::close(ends[0]);
        dup2(ends[1], STDERR_FILENO);
        ::close(ends[1]);
    }

private:
    const bool m_readsErrors;
};

} // namespace

Run runProgram(const QStringList &arguments, bool readsErrors)
{
    const QTemporaryDir folder;
    Program process(readsErrors);
    process.setWorkingDirectory(folder.path());
    process.start(QStringLiteral(CRASH_PROGRAM), arguments);

    Run run;
    QElapsedTimer clock;
    clock.start();
    while (!run.facts.contains("\ncrashing\n") && process.state() != QProcess::NotRunning
           && clock.elapsed() < Patience) {
        process.waitForReadyRead(Patience);
        run.facts += process.readAllStandardOutput();
    }
    run.hung = !process.waitForFinished(Patience);
    run.elapsed = (monotonicNow() - run.fact("fault").toLongLong()) / 1000000;
    if (run.hung) {
        process.kill();
        process.waitForFinished();
    }
    run.report = QString::fromLocal8Bit(process.readAllStandardError());
    // For a process that a signal ended, QProcess gives the signal.
    run.status = process.exitCode() + (process.exitStatus() == QProcess::CrashExit ? 128 : 0);
    run.files = QDir(folder.path()).entryList(QDir::Files);
    if (!run.files.isEmpty()) {
        QFile file(folder.filePath(run.files.first()));
        if (file.open(QIODevice::ReadOnly))
            run.fileText = QString::fromUtf8(file.readAll());
    }
    return run;
}

QString field(const QString &report, const QString &name)
{
    const QRegularExpression line(QStringLiteral("^  %1: +(.*)$").arg(name),
                                  QRegularExpression::MultilineOption);
    return line.match(report).captured(1);
}

QString mappedFile(const QByteArray &maps, qulonglong address)
{
    const QRegularExpression line(
        QStringLiteral("^([0-9a-f]+)-([0-9a-f]+) \\S+ \\S+ \\S+ \\S+ *(.*)$"));
    for (const QByteArray &text : maps.split('\n')) {
        const auto match = line.match(QString::fromLocal8Bit(text));
        if (match.hasMatch() && match.captured(1).toULongLong(nullptr, 16) <= address
            && address < match.captured(2).toULongLong(nullptr, 16)) {
            return match.captured(3).section(QLatin1Char('/'), -1);
        }
    }
    return {};
}
