// Runs crashprogram and checks how the process ends when more goes wrong than one fault: a report
// that fails or hangs, two threads that fail, nobody who reads; and what the system sees of the
// end.
#include "tests/report/crash/crashreport.h"
#include "tests/report/crash/linux/crashrun.h"

#include <cerrno>
#include <csignal>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QtTest>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString kNoReport = QStringLiteral("Program crash: the report could not be finished");

// What stands on standard error instead of a report that could not be finished: the signal, and the
// facts of it that the program has told, as patterns.
QRegularExpression lastLine(int status, const Run &run)
{
    const QString digits = QStringLiteral("[0-9a-f]{16}");
    const auto known = [&](const char *name) {
        const QByteArray fact = run.fact(name);
        return fact.isEmpty() ? digits : QString::fromLatin1(fact);
    };
    return QRegularExpression(
        QRegularExpression::escape(kNoReport)
        + QStringLiteral(" \\(signal %1, address 0x%2, instruction 0x%3\\)\n\\z")
              .arg(status - 128)
              .arg(known("data"), known("instruction")));
}

// A moment at which a tracer has the program, about to receive the signal.
struct Stop {
    int signal;
    int code;
    quintptr address; // what the signal says
    quintptr instruction;
};

struct Traced {
    bool permitted = true;
    QVector<Stop> stops; // for signals of faults
    int end = 0; // status as wait gives it
    QByteArray facts;
};

bool isOfFault(int signal)
{
    return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL
        || signal == SIGABRT;
}

[[noreturn]] void runTraced(const char *kind, int output, const char *folder)
{
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(77);
    dup2(output, STDOUT_FILENO);
    if (chdir(folder) == 0)
        execl(CRASH_PROGRAM, CRASH_PROGRAM, kind, nullptr);
    _exit(78);
}

Traced trace(const char *kind)
{
    const QTemporaryDir folder;
    QTemporaryFile output;
    Traced traced;
    if (!output.open())
        return traced;
    const QByteArray path = folder.path().toLocal8Bit();
    const pid_t child = fork();
    if (child == 0)
        runTraced(kind, output.handle(), path.constData());
    bool started = false;
    while (true) {
        if (waitpid(child, &traced.end, 0) != child || !WIFSTOPPED(traced.end))
            break;
        int signal = WSTOPSIG(traced.end);
        if (!started && signal == SIGTRAP) { // the new program
            started = true;
            ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL);
            signal = 0;
        } else if (isOfFault(signal)) {
            siginfo_t info {};
            user_regs_struct registers {};
            ptrace(PTRACE_GETSIGINFO, child, nullptr, &info);
            ptrace(PTRACE_GETREGS, child, nullptr, &registers);
            traced.stops.append({signal, info.si_code, reinterpret_cast<quintptr>(info.si_addr),
                                 static_cast<quintptr>(registers.rip)});
        }
        ptrace(PTRACE_CONT, child, nullptr, signal);
    }
    traced.permitted = !(WIFEXITED(traced.end) && WEXITSTATUS(traced.end) == 77);
    output.seek(0);
    traced.facts = output.readAll();
    return traced;
}

} // namespace

class TestCrashEnd : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void filterThatFailsEndsTheProcess_data();
    void filterThatFailsEndsTheProcess();
    void sentSignalIsNoFault();
    void onlyTheFirstFailureReports_data();
    void onlyTheFirstFailureReports();
    void faultAndThrowAtOnce();
    void corruptHeapEndsInTime();
    void damagedStackEndsInTime_data();
    void damagedStackEndsInTime();
    void nobodyReadsTheReport_data();
    void nobodyReadsTheReport();
    void readerOfTheReportHangs_data();
    void readerOfTheReportHangs();
    void systemSeesTheFaultItself_data();
    void systemSeesTheFaultItself();
};

void TestCrashEnd::filterThatFailsEndsTheProcess_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("filter");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("atLeast"); // ms
    QTest::addColumn<int>("atMost");
    QTest::addColumn<bool>("lastLine");

    QTest::newRow("hangs") << "null-read"
                           << "hanging" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("hangs, illegal") << "illegal"
                                    << "hanging" << 128 + SIGILL << 3900 << 10000 << true;
    QTest::newRow("hangs, two threads") << "two"
                                        << "hanging" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("hangs, stack overflow") << "stack-overflow"
                                           << "hanging" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("hangs, data at a known address")
        << "bus"
        << "hanging" << 128 + SIGBUS << 3900 << 10000 << true;
    QTest::newRow("hangs, every signal blocked")
        << "blocked-null-read"
        << "hanging" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("faults again in the same way")
        << "divide"
        << "faulting" << 128 + SIGFPE << 0 << 3500 << true;
    QTest::newRow("faults again") << "null-read"
                                  << "faulting" << 128 + SIGSEGV << 0 << 3500 << true;
    QTest::newRow("faults again, worker") << "worker"
                                          << "faulting" << 128 + SIGSEGV << 0 << 3500 << true;
    QTest::newRow("aborts") << "illegal"
                            << "aborting" << 128 + SIGILL << 0 << 3500 << true;
    QTest::newRow("loader locked") << "loader-locked"
                                   << "" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("standard error locked") << "errors-locked"
                                           << "" << 128 + SIGSEGV << 3900 << 10000 << true;
    QTest::newRow("misaligned, faults again") << "alignment"
                                              << "misaligned" << 128 + SIGBUS << 0 << 3500 << true;
    QTest::newRow("faults again, and in the end")
        << "illegal"
        << "end-faulting" << 128 + SIGFPE << 0 << 3500 << false;
    QTest::newRow("throws") << "divide"
                            << "throwing" << 128 + SIGFPE << 0 << 3500 << false;
}

void TestCrashEnd::filterThatFailsEndsTheProcess()
{
    QFETCH(QString, kind);
    QFETCH(QString, filter);
    QFETCH(int, status);
    QFETCH(int, atLeast);
    QFETCH(int, atMost);
    QFETCH(bool, lastLine);
    const Run run = runProgram({kind, filter});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, status);
    QVERIFY2(run.elapsed >= atLeast && run.elapsed < atMost,
             qPrintable(QString::number(run.elapsed)));
    if (lastLine)
        QVERIFY2(::lastLine(status, run).match(run.report).capturedStart() == 0,
                 qPrintable(run.report));
    else
        QCOMPARE(run.report, QString());
}

void TestCrashEnd::sentSignalIsNoFault()
{
    const Run run = runProgram({QStringLiteral("sent")});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, 128 + SIGSEGV);
    QCOMPARE(run.report, QString());
}

// Whatever else fails while the report is on its way, there is one report and one end.
void TestCrashEnd::onlyTheFirstFailureReports_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("other"); // filter or sink
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("type");
    QTest::addColumn<int>("atLeast"); // ms

    const QString terminate = QStringLiteral("std::terminate");
    QTest::newRow("throw during a fault")
        << "null-read"
        << "outpaced" << 128 + SIGSEGV << QStringLiteral("EXCEPTION_ACCESS_VIOLATION") << 0;
    QTest::newRow("fault during a throw") << "throw"
                                          << "fault-elsewhere-sink" << 1 << terminate << 0;
    QTest::newRow("throw during a throw") << "throw"
                                          << "throw-elsewhere-sink" << 1 << terminate << 0;
    QTest::newRow("fault in the throw's report") << "throw"
                                                 << "faulting-sink" << 1 << terminate << 0;
    QTest::newRow("throw's report hangs") << "throw"
                                          << "hanging-sink" << 1 << terminate << 3900;
}

void TestCrashEnd::onlyTheFirstFailureReports()
{
    QFETCH(QString, kind);
    QFETCH(QString, other);
    QFETCH(int, status);
    QFETCH(QString, type);
    QFETCH(int, atLeast);
    const Run run = runProgram({kind, other});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, status);
    QVERIFY2(run.report.count(QLatin1String("Program crash:")) == 1, qPrintable(run.report));
    QCOMPARE(field(run.report, QStringLiteral("Exception Type")), type);
    QVERIFY2(run.elapsed >= atLeast && run.elapsed < 10000,
             qPrintable(QString::number(run.elapsed)));
}

// Which of the two comes first is left to the moment.
void TestCrashEnd::faultAndThrowAtOnce()
{
    for (int i = 0; i < 10; ++i) {
        const Run run = runProgram({QStringLiteral("fault-and-throw")});
        QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
        QVERIFY2(run.report.count(QLatin1String("Program crash:")) == 1, qPrintable(run.report));
        const bool faulted = field(run.report, QStringLiteral("Exception Type"))
            == QLatin1String("EXCEPTION_ACCESS_VIOLATION");
        QCOMPARE(run.status, faulted ? 128 + SIGSEGV : 1);
    }
}

// The report needs the allocator, which may be locked by the very thread that reports.
void TestCrashEnd::corruptHeapEndsInTime()
{
    const Run run = runProgram({QStringLiteral("heap-corruption")});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, 128 + SIGABRT);
    QVERIFY2(run.elapsed < 10000, qPrintable(QString::number(run.elapsed)));
    const bool reported = run.report.contains(QLatin1String("            End of Report\n"));
    QVERIFY2(lastLine(run.status, run).match(run.report).hasMatch() != reported,
             qPrintable(run.report));
    qInfo("reported: %d, %lld ms", reported, run.elapsed);
}

// There may be nothing to walk, and no argument that can still be read.
void TestCrashEnd::damagedStackEndsInTime_data()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("overwritten") << "overwritten-stack";
    QTest::newRow("pointer lost") << "lost-stack";
}

void TestCrashEnd::damagedStackEndsInTime()
{
    QFETCH(QString, kind);
    const Run run = runProgram({kind});
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, 128 + SIGSEGV);
    QVERIFY2(run.elapsed < 10000, qPrintable(QString::number(run.elapsed)));
    const bool reported = run.report.contains(QLatin1String("            End of Report\n"));
    if (reported)
        QCOMPARE(field(run.report, QStringLiteral("RIP")),
                 QStringLiteral("0x") + QString::fromLatin1(run.fact("instruction")));
    QVERIFY2(lastLine(run.status, run).match(run.report).hasMatch() != reported,
             qPrintable(run.report));
    qInfo("reported: %d, %lld ms", reported, run.elapsed);
}

void TestCrashEnd::nobodyReadsTheReport_data()
{
    QTest::addColumn<QString>("filter");
    QTest::addColumn<int>("status");
    QTest::newRow("throw") << "" << 1;
    QTest::newRow("null-read") << "" << 128 + SIGSEGV;
    QTest::newRow("early-throw") << "" << 1;
    QTest::newRow("early-null-read") << "" << 128 + SIGSEGV;
    QTest::newRow("illegal") << "faulting" << 128 + SIGILL; // nor the last line
    QTest::newRow("deliver") << "" << 7; // what the program ends with in order
}

void TestCrashEnd::nobodyReadsTheReport()
{
    QFETCH(QString, filter);
    QFETCH(int, status);
    const QString kind = QLatin1String(QTest::currentDataTag());
    const Run run = runProgram({kind, filter}, Errors::Closed);
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, status);
    if (kind.startsWith(QLatin1String("early-"))) { // after the attempt to print
        QCOMPARE(run.files.size(), 1);
        QVERIFY(run.fileText.contains(QLatin1String("            End of Report\n")));
    }
}

void TestCrashEnd::readerOfTheReportHangs_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("throw") << 1;
    QTest::newRow("null-read") << 128 + SIGSEGV;
}

void TestCrashEnd::readerOfTheReportHangs()
{
    QFETCH(int, status);
    const Run run = runProgram({QLatin1String(QTest::currentDataTag())}, Errors::Stuck);
    QVERIFY2(run.trouble.isEmpty(), qPrintable(run.trouble));
    QCOMPARE(run.status, status);
    QVERIFY2(run.elapsed >= 3900 && run.elapsed < 10000, qPrintable(QString::number(run.elapsed)));
}

void TestCrashEnd::systemSeesTheFaultItself_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("null-read") << SIGSEGV;
    QTest::newRow("null-write") << SIGSEGV;
    QTest::newRow("divide") << SIGFPE;
    QTest::newRow("float-division") << SIGFPE;
    QTest::newRow("illegal") << SIGILL;
    QTest::newRow("bus") << SIGBUS;
    QTest::newRow("stack-overflow") << SIGSEGV;
    QTest::newRow("abort") << SIGABRT;
}

// A core dump shows what a tracer is shown at the second stop, after the report: the signal of the
// kernel at the instruction, not one that the handler has sent from somewhere else.
void TestCrashEnd::systemSeesTheFaultItself()
{
    QFETCH(int, signal);
    const Traced traced = trace(QTest::currentDataTag());
    if (!traced.permitted)
        QSKIP("processes must not be traced here", "");
    QCOMPARE(traced.stops.size(), 2);
    const Stop &fault = traced.stops.at(0);
    const Stop &end = traced.stops.at(1);
    QCOMPARE(fault.signal, signal);
    QCOMPARE(end.signal, signal);
    QCOMPARE(end.code, fault.code);
    if (signal != SIGABRT) // which the program sends to itself
        QVERIFY(end.code > 0);
    QCOMPARE(end.address, fault.address);
    QCOMPARE(end.instruction, fault.instruction);
    Run run;
    run.facts = traced.facts;
    const QByteArray instruction = run.fact("instruction");
    if (!instruction.isEmpty())
        QCOMPARE(end.instruction, static_cast<quintptr>(instruction.toULongLong(nullptr, 16)));
    QVERIFY(WIFSIGNALED(traced.end));
    QCOMPARE(WTERMSIG(traced.end), signal);
}

QTEST_GUILESS_MAIN(TestCrashEnd)
#include "tst_crashend.moc"
