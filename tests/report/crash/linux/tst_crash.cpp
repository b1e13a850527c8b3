// Runs crashprogram in all the ways that a program can fail, and checks what each leaves behind:
// the report on standard error, its registers and stack, and the exit status of the fault itself.
//
// Every kind runs TONEWELL_CRASH_RUNS times, three unless set. The table at the end says what was
// seen.
#include "tests/report/crash/crashkinds.h"
#include "tests/report/crash/crashreport.h"
#include "tests/report/crash/linux/crashrun.h"
#include "tests/report/masked.h"

#include <csignal>
#include <QRegularExpression>
#include <QtTest>

namespace {

constexpr int kTimeLimitMs = 5000; // from the fault to the end of the report

struct Expected {
    int status;
    QString type;
    QString message; // pattern of the message without the address suffix
    bool registers; // set to known values
};

const QString kDigits16 = QStringLiteral("[0-9a-f]{16}");

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
    void goldenReport_data();
    void goldenReport();
    void programThatCannotBeStarted();
    void cleanupTestCase();

private:
    void checkReport(const Run &run, const Expected &expected);
    void checkAddress(const Run &run);
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
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.report.count(QLatin1String("Program crash:\n")), 1);
    QVERIFY(!run.facts.contains(kExitHandlersRan));
    // The C++ run time may have a line of its own to say before.
    const QString before = run.report.section(QLatin1String("Program crash:\n====="), 0, 0);
    QVERIFY(before.isEmpty() || before == QLatin1String("pure virtual method called\n"));
    QCOMPARE(run.report.count(QLatin1String("            End of Report\n")), 1);
    QCOMPARE(field(run.report, QStringLiteral("Exception Type")), expected.type);
    const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected.message));
    const QString message = field(run.report, QStringLiteral("Exception Message"));
    QVERIFY2(pattern.match(message).hasMatch(), qPrintable(message));
}

// Three places name the instruction, and they name the same one.
void TestCrash::checkAddress(const Run &run)
{
    const QString address = field(run.report, QStringLiteral("RIP"));
    QCOMPARE(address.size(), 18);
    const QString message = field(run.report, QStringLiteral("Exception Message"));
    QVERIFY2(message.endsWith(QStringLiteral("(Address: %1)").arg(address)), qPrintable(message));
    QVERIFY2(run.report.contains(QStringLiteral("\n[Stack Trace]\n  # 0 %1 (").arg(address)),
             qPrintable(run.report));
    const QByteArray data = run.fact("data");
    if (!data.isEmpty())
        QVERIFY2(message.contains(QStringLiteral(" at address 0x%1)").arg(QLatin1String(data))),
                 qPrintable(message));
    if (field(run.report, QStringLiteral("Exception Type"))
        == QLatin1String("EXCEPTION_STACK_OVERFLOW")) {
        QCOMPARE(mappedFile(run.facts, address.mid(2).toULongLong(nullptr, 16)),
                 QStringLiteral("crashprogram"));
    }
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
    QVERIFY2(run.elapsed < kTimeLimitMs, qPrintable(QString::number(run.elapsed)));
    QCOMPARE(run.status, expected.status);
    if (expected.registers) {
        checkRegisters(run.report, QString::fromLatin1(run.fact("instruction")));
        if (QTest::currentTestFailed())
            return;
    }
    int frames = 0;
    if (expected.type == QLatin1String("std::terminate")) {
        QVERIFY(
            run.report.endsWith(QLatin1String("===========================================\n\n")));
    } else {
        checkAddress(run);
        if (QTest::currentTestFailed())
            return;
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
                        .arg(static_cast<double>(m_slowest) / 1000.0, 0, 'f', 3)
                        .arg(m_fewest);
}

void TestCrash::crash_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("registers");

    const QString address = QStringLiteral(" \\(Address: 0x%1\\)").arg(kDigits16);
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
        QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
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
    QTest::newRow("worker-blocked")
        << 128 + SIGSEGV << QStringLiteral("EXCEPTION_ACCESS_VIOLATION")
        << QStringLiteral("Memory access violation \\(Attempted read at address "
                          "0x0000000000000000\\) .*")
        << true;
    QTest::newRow("bus") << 128 + SIGBUS << QStringLiteral("EXCEPTION_ACCESS_VIOLATION")
                         << QStringLiteral(
                                "Memory access violation \\(Attempted read at address .*")
                         << false;
    QTest::newRow("float-division") << 128 + SIGFPE << QStringLiteral("0xc000008e")
                                    << QStringLiteral("Division by zero .*") << true;
    QTest::newRow("privileged") << 128 + SIGSEGV << QStringLiteral("EXCEPTION_PRIV_INSTRUCTION")
                                << QStringLiteral("Privileged instruction .*") << true;
    QTest::newRow("alignment") << 128 + SIGBUS << QStringLiteral("EXCEPTION_DATATYPE_MISALIGNMENT")
                               << QStringLiteral("Data type misalignment .*") << true;
    QTest::newRow("quotient") << 128 + SIGFPE << QStringLiteral("0xc0000095")
                              << QStringLiteral("Unknown exception .*") << false;
    const QString access = QStringLiteral("EXCEPTION_ACCESS_VIOLATION");
    const QString nullRead = QStringLiteral("Memory access violation \\(Attempted read at address "
                                            "0x0000000000000000\\) .*");
    QTest::newRow("blocked-null-read") << 128 + SIGSEGV << access << nullRead << true;
    QTest::newRow("no-handler-stack") << 128 + SIGSEGV << access << nullRead << true;
    QTest::newRow("two-throw") << 1 << QStringLiteral("std::terminate")
                               << QStringLiteral("Uncaught C\\+\\+ exception") << false;
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

void TestCrash::goldenReport_data()
{
    addGoldenRows();
}

void TestCrash::goldenReport()
{
    QFETCH(QString, kind);
    const Run run = runProgram({kind});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    compareWithGolden(run.report, QString::fromLatin1(QTest::currentDataTag()));
}

void TestCrash::programThatCannotBeStarted()
{
    verifyThatNoProgramIsNoHang();
}

void TestCrash::cleanupTestCase()
{
    qInfo("kind | exit status (128 + signal) | slowest report | fewest frames; %d runs\n  %s",
          m_total, qPrintable(QStringList(m_table.values()).join(QStringLiteral("\n  "))));
}

QTEST_GUILESS_MAIN(TestCrash)
#include "tst_crash.moc"
