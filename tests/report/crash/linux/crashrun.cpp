#include "tests/report/crash/linux/crashrun.h"

#include "platform/qtgeneration.h"
#include "tests/report/crash/crashreport.h"

#include <ctime>
#include <fcntl.h>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kPatienceMs = 30000;

qint64 monotonicNow() // ns, the same clock in all processes
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * Q_INT64_C(1000000000) + now.tv_nsec;
}

class Program : public PreparedProcess {
public:
    explicit Program(Errors errors)
        : m_errors(errors)
    {
    }
    ~Program() override
    {
        if (m_reader >= 0)
            ::close(m_reader);
    }

    /// To be called before the start.
    bool preparePipe()
    {
        int ends[2] {-1, -1};
        if (m_errors == Errors::Read)
            return true;
        if (pipe2(ends, O_CLOEXEC) != 0)
            return false;
        m_reader = ends[0];
        m_writer = ends[1];
        if (m_errors == Errors::Closed) {
            ::close(m_reader);
            m_reader = -1;
            return true;
        }
        fcntl(m_writer, F_SETFL, O_NONBLOCK);
        const std::vector<char> filling(65536, ' ');
        while (::write(m_writer, filling.data(), filling.size()) > 0) { }
        return fcntl(m_writer, F_SETFL, 0) == 0;
    }

    /// To be called after it.
    void dropPipe()
    {
        if (m_writer >= 0)
            ::close(m_writer);
    }

protected:
    void prepare() override
    {
        if (m_writer >= 0)
            dup2(m_writer, STDERR_FILENO);
    }

private:
    const Errors m_errors;
    int m_reader = -1;
    int m_writer = -1;
};

} // namespace

Run runProgram(const QStringList &arguments, Errors errors)
{
    const QTemporaryDir folder;
    Program process(errors);
    process.setWorkingDirectory(folder.path());
    if (!process.preparePipe())
        return {};
    process.start(QStringLiteral(CRASH_PROGRAM), arguments);
    process.dropPipe();

    Run run;
    QElapsedTimer clock;
    clock.start();
    while (!run.facts.contains("\ncrashing\n") && process.state() != QProcess::NotRunning
           && clock.elapsed() < kPatienceMs) {
        process.waitForReadyRead(kPatienceMs);
        run.facts += process.readAllStandardOutput();
    }
    run.trouble = waitForEnd(&process);
    run.elapsed = (monotonicNow() - run.fact("fault").toLongLong()) / 1000000;
    run.facts += process.readAllStandardOutput();
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
