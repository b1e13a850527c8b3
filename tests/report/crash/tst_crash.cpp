// Runs crashprogram in all the ways that a program can fail, and checks what each leaves behind:
// the report on standard error, its registers and stack, and the exit status of the fault itself.
//
// Every kind runs TONEWELL_CRASH_RUNS times, three unless set. The table at the end says what was
// seen.
#include "tests/report/masked.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <ctime>

namespace {

constexpr int TimeLimit = 5000; // ms from the fault to the end of the report
constexpr int Patience = 30000; // ms after which a run counts as hung

struct Run {
    QByteArray facts;
    QString report; // standard error
    int status = -1; // exit code, or 128 + signal
    qint64 elapsed = 0; // ms from the fault to the end of the process
    bool hung = false;
    QStringList files; // what is in its current directory
    QString fileText; // content of the first of them

    QByteArray fact(const char *name) const
    {
        for (const QByteArray &line : facts.split('\n')) {
            if (line.startsWith(QByteArray(name) + '='))
                return line.mid(int(qstrlen(name)) + 1);
        }
        return {};
    }
};

qint64 monotonicNow() // ns, the same clock in all processes
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * Q_INT64_C(1000000000) + now.tv_nsec;
}

Run runProgram(const QStringList &arguments)
{
    const QTemporaryDir folder;
    QProcess process;
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

// Base name of the file that is mapped at the address.
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

struct Expected {
    int status;
    QString type;
    QString message; // pattern of the message without the address suffix
    bool registers; // set to known values
};

const QString Digits16 = QStringLiteral("[0-9a-f]{16}");

} // namespace

class TestCrash : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void crash_data();
    void crash();
    void withoutApplicationTheReportIsAFile();
    void otherFaultsAreReported_data();
    void otherFaultsAreReported();
    void filterThatFailsEndsTheProcess_data();
    void filterThatFailsEndsTheProcess();
    void sentSignalIsNoFault();
    void goldenReport_data();
    void goldenReport();
    void cleanupTestCase();

private:
    void checkReport(const Run &run, const Expected &expected);
    void checkRegisters(const Run &run);
    int checkFrames(const Run &run);
    void checkRun(const QString &kind, const Run &run, const Expected &expected);

    int m_runs = 3;
    int m_total = 0;
    qint64 m_slowest = 0; // of the kind that is being run, ms
    int m_fewest = -1; // frames of that kind
    QMap<QString, QString> m_table;
};

void TestCrash::initTestCase()
{
    bool given = false;
    const int runs = qEnvironmentVariableIntValue("TONEWELL_CRASH_RUNS", &given);
    if (given)
        m_runs = runs;
    QVERIFY(m_runs > 0);
}

void TestCrash::init()
{
    m_slowest = 0;
    m_fewest = -1;
}

void TestCrash::checkReport(const Run &run, const Expected &expected)
{
    QVERIFY2(!run.hung, "still running after thirty seconds");
    QCOMPARE(run.report.count(QLatin1String("Program crash:\n")), 1);
    // The C++ run time may have a line of its own to say before.
    const QString before = run.report.section(QLatin1String("Program crash:\n====="), 0, 0);
    QVERIFY(before.isEmpty() || before == QLatin1String("pure virtual method called\n"));
    QCOMPARE(run.report.count(QLatin1String("            End of Report\n")), 1);
    QCOMPARE(field(run.report, QStringLiteral("Exception Type")), expected.type);
    const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected.message));
    const QString message = field(run.report, QStringLiteral("Exception Message"));
    QVERIFY2(pattern.match(message).hasMatch(), qPrintable(message));
}

void TestCrash::checkRegisters(const Run &run)
{
    const QString instruction = QString::fromLatin1(run.fact("instruction"));
    QCOMPARE(instruction.size(), 16);
    const auto value = [&run](const char *name) {
        return field(run.report, QString::fromLatin1(name));
    };
    QCOMPARE(value("RIP"), QStringLiteral("0x") + instruction);
    QVERIFY(
        value("Exception Message").endsWith(QStringLiteral("(Address: 0x%1)").arg(instruction)));
    QCOMPARE(value("RAX"), QStringLiteral("0x0000000000000000"));
    QCOMPARE(value("RCX"), QStringLiteral("0x0000000000000000"));
    QCOMPARE(value("RBX"), QStringLiteral("0x1111111111111111"));
    QCOMPARE(value("RDX"), QStringLiteral("0x2222222222222222"));
    for (int number = 8; number <= 15; ++number) {
        const QString digits(16, QString::number(number, 16).at(0));
        QCOMPARE(field(run.report, QStringLiteral("R%1").arg(number)),
                 QStringLiteral("0x") + digits);
    }
    QCOMPARE(value("RSP"), value("RSI"));
    QCOMPARE(value("RBP"), value("RDI"));
    QVERIFY(value("RSP") != QStringLiteral("0x0000000000000000"));
}

// Number of frames, all of them in the module that the report names.
int TestCrash::checkFrames(const Run &run)
{
    const QString trace = run.report.section(QStringLiteral("\n[Stack Trace]\n"), 1);
    const QRegularExpression line(QStringLiteral("^  #([ 0-9][0-9]) 0x([0-9a-f]{16}) \\((.*)\\)$"));
    int frames = 0;
    for (const QString &text : trace.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const auto match = line.match(text);
        QString file = mappedFile(run.facts, match.captured(2).toULongLong(nullptr, 16));
        if (file.isEmpty())
            file = QStringLiteral("[unknown]");
        // The loader knows a library by the name of a link to its file, without the last numbers.
        const QString module = match.captured(3);
        if (!match.hasMatch() || match.captured(1) != QString::number(frames).rightJustified(2)
            || (file != module && !file.startsWith(module + QLatin1Char('.')))) {
            qWarning() << "unexpected frame" << text << "in" << file;
            return -1;
        }
        ++frames;
    }
    return frames;
}

void TestCrash::checkRun(const QString &kind, const Run &run, const Expected &expected)
{
    checkReport(run, expected);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(run.elapsed < TimeLimit, qPrintable(QString::number(run.elapsed)));
    QCOMPARE(run.status, expected.status);
    if (expected.registers) {
        checkRegisters(run);
        if (QTest::currentTestFailed())
            return;
    }
    int frames = 0;
    if (expected.type == QLatin1String("std::terminate")) {
        QVERIFY(
            run.report.endsWith(QLatin1String("===========================================\n\n")));
    } else {
        frames = checkFrames(run);
        QVERIFY2(frames >= 3, qPrintable(run.report));
        QVERIFY(frames <= 32);
    }
    ++m_total;
    m_slowest = qMax(m_slowest, run.elapsed);
    m_fewest = m_fewest < 0 ? frames : qMin(m_fewest, frames);
    m_table[kind] = QStringLiteral("%1 | %2 | %3 s | %4")
                        .arg(kind, -25)
                        .arg(run.status, 3)
                        .arg(double(m_slowest) / 1000.0, 0, 'f', 3)
                        .arg(m_fewest);
}

void TestCrash::crash_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("registers");

    const QString address = QStringLiteral(" \\(Address: 0x%1\\)").arg(Digits16);
    const QString access = QStringLiteral("EXCEPTION_ACCESS_VIOLATION");
    const QString nullRead = QStringLiteral("Memory access violation \\(Attempted read at address "
                                            "0x0000000000000000\\)")
        + address;
    const QString nullWrite =
        QString(nullRead).replace(QLatin1String("read at"), QLatin1String("write at"));
    const QString terminate = QStringLiteral("std::terminate");
    const QString uncaught = QStringLiteral("Uncaught C\\+\\+ exception");

    const auto row = [](const char *kind, int status, const QString &type, const QString &message,
                        bool registers) {
        QTest::newRow(kind) << QString::fromLatin1(kind) << status << type << message << registers;
    };
    row("null-read", 128 + SIGSEGV, access, nullRead, true);
    row("null-write", 128 + SIGSEGV, access, nullWrite, true);
    row("divide", 128 + SIGFPE, QStringLiteral("0xc0000094"),
        QStringLiteral("Division by zero") + address, true);
    row("illegal", 128 + SIGILL, QStringLiteral("EXCEPTION_ILLEGAL_INSTRUCTION"),
        QStringLiteral("Illegal instruction") + address, true);
    row("stack-overflow", 128 + SIGSEGV, QStringLiteral("EXCEPTION_STACK_OVERFLOW"),
        QStringLiteral("Stack overflow") + address, false);
    row("throw", 1, terminate, uncaught, false);
    row("noexcept", 1, terminate, uncaught, false);
    row("pure", 1, terminate, uncaught, false);
    row("abort", 128 + SIGABRT, QStringLiteral("0xc0000409"),
        QStringLiteral("Unknown exception") + address, false);
    row("worker", 128 + SIGSEGV, access, nullRead, true);
    row("two", 128 + SIGSEGV, access, nullRead, true);
    row("early-null-read", 128 + SIGSEGV, access, nullRead, true);
}

void TestCrash::crash()
{
    QFETCH(QString, kind);
    QFETCH(int, status);
    QFETCH(QString, type);
    QFETCH(QString, message);
    QFETCH(bool, registers);
    for (int i = 0; i < m_runs; ++i) {
        const Run run = runProgram({kind});
        checkRun(kind, run, {status, type, message, registers});
        if (QTest::currentTestFailed()) {
            qWarning("run %d: status %d", i, run.status);
            return;
        }
        // A running application shows its reports itself; a crash leaves it no time to.
        QCOMPARE(run.files.size(), kind.startsWith(QLatin1String("early-")) ? 1 : 0);
    }
}

void TestCrash::withoutApplicationTheReportIsAFile()
{
    for (const QString &kind : {QStringLiteral("early-null-read"), QStringLiteral("early-throw")}) {
        const Run run = runProgram({kind});
        QVERIFY(!run.hung);
        QCOMPARE(run.files.size(), 1);
        const QRegularExpression name(QStringLiteral("^crash_report_[0-9]{8}_[0-9]{6}\\.txt$"));
        QVERIFY2(name.match(run.files.first()).hasMatch(), qPrintable(run.files.first()));
        // What is on standard error, to the last character.
        QCOMPARE(QStringLiteral("Program crash:\n") + run.fileText + QLatin1Char('\n'), run.report);
    }
}

void TestCrash::otherFaultsAreReported_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("registers");

    QTest::newRow("worker-stack-overflow")
        << 128 + SIGSEGV << QStringLiteral("EXCEPTION_STACK_OVERFLOW")
        << QStringLiteral("Stack overflow .*") << false;
    QTest::newRow("std-thread-stack-overflow")
        << 128 + SIGSEGV << QStringLiteral("EXCEPTION_STACK_OVERFLOW")
        << QStringLiteral("Stack overflow .*") << false;
    QTest::newRow("non-canonical")
        << 128 + SIGSEGV << QStringLiteral("EXCEPTION_ACCESS_VIOLATION")
        << QStringLiteral("Memory access violation \\(Attempted read at address "
                          "0xffffffffffffffff\\) .*")
        << true;
    QTest::newRow("bad-call") << 128 + SIGSEGV << QStringLiteral("EXCEPTION_ACCESS_VIOLATION")
                              << QStringLiteral(
                                     "Memory access violation \\(Attempted write at address "
                                     "0x0000000000000010\\) \\(Address: 0x0000000000000010\\)")
                              << false;
    QTest::newRow("breakpoint") << 128 + SIGTRAP << QStringLiteral("0x80000003")
                                << QStringLiteral("Unknown exception .*") << true;
}

void TestCrash::otherFaultsAreReported()
{
    QFETCH(int, status);
    QFETCH(QString, type);
    QFETCH(QString, message);
    QFETCH(bool, registers);
    const QString kind = QString::fromLatin1(QTest::currentDataTag());
    checkRun(kind, runProgram({kind}), {status, type, message, registers});
}

void TestCrash::filterThatFailsEndsTheProcess_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("filter");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("atLeast"); // ms
    QTest::addColumn<int>("atMost");

    QTest::newRow("hangs") << "null-read"
                           << "hanging" << 128 + SIGSEGV << 3900 << 10000;
    QTest::newRow("hangs, illegal") << "illegal"
                                    << "hanging" << 128 + SIGILL << 3900 << 10000;
    QTest::newRow("hangs, two threads") << "two"
                                        << "hanging" << 128 + SIGSEGV << 3900 << 10000;
    QTest::newRow("hangs, stack overflow") << "stack-overflow"
                                           << "hanging" << 128 + SIGSEGV << 3900 << 10000;
    QTest::newRow("faults again") << "null-read"
                                  << "faulting" << 128 + SIGSEGV << 0 << 3500;
    QTest::newRow("faults again, worker") << "worker"
                                          << "faulting" << 128 + SIGSEGV << 0 << 3500;
    QTest::newRow("aborts") << "illegal"
                            << "aborting" << 128 + SIGILL << 0 << 3500;
    QTest::newRow("throws") << "divide"
                            << "throwing" << 128 + SIGFPE << 0 << 3500;
}

void TestCrash::filterThatFailsEndsTheProcess()
{
    QFETCH(QString, kind);
    QFETCH(QString, filter);
    QFETCH(int, status);
    QFETCH(int, atLeast);
    QFETCH(int, atMost);
    const Run run = runProgram({kind, filter});
    QVERIFY(!run.hung);
    QCOMPARE(run.status, status);
    QVERIFY2(run.elapsed >= atLeast && run.elapsed < atMost,
             qPrintable(QString::number(run.elapsed)));
    QCOMPARE(run.report, QString());
}

void TestCrash::sentSignalIsNoFault()
{
    const Run run = runProgram({QStringLiteral("sent")});
    QVERIFY(!run.hung);
    QCOMPARE(run.status, 128 + SIGSEGV);
    QCOMPARE(run.report, QString());
}

void TestCrash::goldenReport_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("access-violation") << QStringLiteral("null-read");
    QTest::newRow("terminate") << QStringLiteral("throw");
}

void TestCrash::goldenReport()
{
    QFETCH(QString, kind);
    const Run run = runProgram({kind});
    QVERIFY(!run.hung);
    compareWithGolden(run.report, QString::fromLatin1(QTest::currentDataTag()));
}

void TestCrash::cleanupTestCase()
{
    qInfo("kind | exit status (128 + signal) | slowest report | fewest frames; %d runs\n  %s",
          m_total, qPrintable(QStringList(m_table.values()).join(QStringLiteral("\n  "))));
}

QTEST_GUILESS_MAIN(TestCrash)
#include "tst_crash.moc"
