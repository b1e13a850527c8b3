// Runs crashprogram in all the ways that a program can fail, and checks what each leaves behind:
// the report on standard error, its registers and stack, and the exit code of the fault itself.
#include "tests/report/crash/crashkinds.h"
#include "tests/report/crash/crashreport.h"
#include "tests/report/masked.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct Run {
    QString facts;
    QString report; // standard error
    uint code = 0; // of the process's end
    QString trouble; // why it did not end by itself; empty when it did
    QStringList files; // what is in its current directory
    QString fileText; // content of the first of them
};

QString plain(const QByteArray &output)
{
    return QString::fromLocal8Bit(output).remove(QLatin1Char('\r'));
}

Run runProgram(const QString &kind)
{
    const QTemporaryDir folder;
    QProcess process;
    process.setWorkingDirectory(folder.path());
    process.start(QStringLiteral(CRASH_PROGRAM), {kind});
    Run run;
    run.trouble = waitForEnd(&process);
    run.facts = plain(process.readAllStandardOutput());
    run.report = plain(process.readAllStandardError());
    run.code = static_cast<uint>(process.exitCode());
    run.files = QDir(folder.path()).entryList(QDir::Files);
    if (!run.files.isEmpty()) {
        QFile file(folder.filePath(run.files.first()));
        if (file.open(QIODevice::ReadOnly | QIODevice::Text))
            run.fileText = QString::fromUtf8(file.readAll());
    }
    return run;
}

// File name of the module that lies at the address, without its suffix.
QString moduleAt(const QString &facts, qulonglong address)
{
    const QRegularExpression line(QStringLiteral("^module=([0-9a-f]+) ([0-9a-f]+) (.*)$"),
                                  QRegularExpression::MultilineOption);
    for (auto match = line.globalMatch(facts); match.hasNext();) {
        const auto module = match.next();
        if (module.captured(1).toULongLong(nullptr, 16) <= address
            && address < module.captured(2).toULongLong(nullptr, 16))
            return module.captured(3).section(QLatin1Char('.'), 0, -2);
    }
    return QStringLiteral("[unknown]");
}

// Every frame is in the module that the report names, and there are at least `least` of them.
void checkFrames(const Run &run, int least)
{
    const QString trace = run.report.section(QStringLiteral("\n[Stack Trace]\n"), 1);
    const QRegularExpression line(QStringLiteral("^  #([ 0-9][0-9]) 0x([0-9a-f]{16}) \\((.*)\\)$"));
    int frames = 0;
    for (const QString &text : trace.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const auto match = line.match(text);
        QVERIFY2(match.hasMatch(), qPrintable(text));
        QCOMPARE(match.captured(1), QString::number(frames).rightJustified(2));
        const QString module = moduleAt(run.facts, match.captured(2).toULongLong(nullptr, 16));
        QVERIFY2(match.captured(3).compare(module, Qt::CaseInsensitive) == 0,
                 qPrintable(text + QStringLiteral(" lies in ") + module));
        ++frames;
    }
    QVERIFY2(frames >= least && frames <= 32, qPrintable(trace));
}

} // namespace

class TestCrash : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void crash_data();
    void crash();
    void withoutApplicationTheReportIsAFile();
    void goldenReport_data();
    void goldenReport();
    void programThatCannotBeStarted();
};

void TestCrash::crash_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("message"); // a pattern, without the address of the instruction
    QTest::addColumn<bool>("registers"); // have known values
    QTest::addColumn<int>("frames"); // at least; 0 where the host need not find any

    const auto row = [](const char *kind, uint code, const char *type, const char *message,
                        bool registers, int frames) {
        QTest::newRow(kind) << code << QString::fromLatin1(type) << QString::fromLatin1(message)
                            << registers << frames;
    };
    const char *const access = "EXCEPTION_ACCESS_VIOLATION";
    const char *const nullRead =
        "Memory access violation \\(Attempted read at address 0x0000000000000000\\)";
    const char *const uncaught = "Uncaught C\\+\\+ exception";
    row("null-read", 0xC0000005, access, nullRead, true, 3);
    row("null-write", 0xC0000005, access,
        "Memory access violation \\(Attempted write at address 0x0000000000000000\\)", true, 3);
    row("divide", 0xC0000094, "0xc0000094", "Division by zero", true, 3);
    row("illegal", 0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION", "Illegal instruction", true, 3);
    row("non-canonical", 0xC0000005, access,
        "Memory access violation \\(Attempted read at address 0xffffffffffffffff\\)", true, 3);
    row("breakpoint", 0x80000003, "0x80000003", "Unknown exception", true, 3);
    row("privileged", 0xC0000096, "EXCEPTION_PRIV_INSTRUCTION", "Privileged instruction", true, 3);
    row("bad-call", 0xC0000005, access,
        "Memory access violation \\(Attempted write at address 0x0000000000000010\\)", false, 0);
    row("raised", 0xC000008E, "0xc000008e", "Division by zero", false, 3);
    row("worker", 0xC0000005, access, nullRead, true, 3);
    row("early-null-read", 0xC0000005, access, nullRead, true, 3);
#ifdef _MSC_VER // whose exceptions are the system's, so that the filter of those gets them
    row("throw", 0xE06D7363, "0xe06d7363", "Unknown exception", false, 3);
#else
    row("throw", 1, "std::terminate", uncaught, false, 0);
#endif
    row("noexcept", 1, "std::terminate", uncaught, false, 0);
}

void TestCrash::crash()
{
    QFETCH(uint, code);
    QFETCH(QString, type);
    QFETCH(QString, message);
    QFETCH(bool, registers);
    QFETCH(int, frames);
    const QString kind = QString::fromLatin1(QTest::currentDataTag());
    const Run run = runProgram(kind);
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QVERIFY2(run.report.startsWith(QLatin1String("Program crash:\n=====")), qPrintable(run.report));
    QVERIFY(!run.facts.contains(QLatin1String(kExitHandlersRan)));
    QCOMPARE(run.report.count(QLatin1String("            End of Report\n")), 1);
    QCOMPARE(field(run.report, QStringLiteral("Exception Type")), type);
    const bool fault = type != QLatin1String("std::terminate");
    if (fault)
        message += QStringLiteral(" \\(Address: 0x[0-9a-f]{16}\\)");
    const QString found = field(run.report, QStringLiteral("Exception Message"));
    QVERIFY2(
        QRegularExpression(QRegularExpression::anchoredPattern(message)).match(found).hasMatch(),
        qPrintable(found));
    QCOMPARE(run.code, code);
    // A running application shows its reports itself; a crash leaves it no time to.
    QCOMPARE(run.files.size(), kind.startsWith(QLatin1String("early-")) ? 1 : 0);
    if (registers)
        checkRegisters(run.report, run.facts.section(QStringLiteral("instruction="), 1).left(16));
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(run.report.contains(QLatin1String("\n[Stack Trace]\n")), fault);
    if (frames)
        checkFrames(run, frames);
}

void TestCrash::withoutApplicationTheReportIsAFile()
{
    for (const QString &kind : {QStringLiteral("early-null-read"), QStringLiteral("early-throw")}) {
        const Run run = runProgram(kind);
        QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
        QCOMPARE(run.files.size(), 1);
        const QRegularExpression name(QStringLiteral("^crash_report_[0-9]{8}_[0-9]{6}\\.txt$"));
        QVERIFY2(name.match(run.files.first()).hasMatch(), qPrintable(run.files.first()));
        // What is on standard error, to the last character.
        const QStringList lines = run.report.split(QLatin1Char('\n'));
        const QStringList expected =
            (QStringLiteral("Program crash:\n") + run.fileText + QLatin1Char('\n'))
                .split(QLatin1Char('\n'));
        for (int i = 0; i < qMin(lines.size(), expected.size()); ++i)
            QCOMPARE(lines.at(i), expected.at(i));
        QCOMPARE(lines.size(), expected.size());
    }
}

void TestCrash::goldenReport_data()
{
    addGoldenRows();
}

void TestCrash::goldenReport()
{
    QFETCH(QString, kind);
    const Run run = runProgram(kind);
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    compareWithGolden(run.report, QString::fromLatin1(QTest::currentDataTag()));
}

void TestCrash::programThatCannotBeStarted()
{
    verifyThatNoProgramIsNoHang();
}

QTEST_GUILESS_MAIN(TestCrash)
#include "tst_structuredexceptions.moc"
