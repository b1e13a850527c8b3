// The program itself, made to fail by a library that is loaded into it.
#include "tests/app/linux/programworld.h"

#include <csignal>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

namespace {

constexpr int kPatienceMs = 20000;

struct InjectedWorld : ProgramWorld {
    explicit InjectedWorld(const char *place)
    {
        environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(FAULT_INJECTOR));
        environment.insert(QStringLiteral("TONEWELL_INJECT"), QLatin1String(place));
    }
};

} // namespace

class ProgramCrashTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void whileItRuns_data();
    void whileItRuns();
    void beforeTheApplicationObject_data();
    void beforeTheApplicationObject();
    void onTheThreadOfTheSoundServersLibrary_data();
    void onTheThreadOfTheSoundServersLibrary();
    void isNamed();

private:
    static void checkEnd(QProcess *copy, int signal, const QString &type, QString *report);
};

/// Checks the end of the process, by the signal or with exit code 1, and its one report.
void ProgramCrashTest::checkEnd(QProcess *copy, int signal, const QString &type, QString *report)
{
    QVERIFY(copy->waitForFinished(kPatienceMs));
    const QString errors = QString::fromUtf8(copy->readAllStandardError());
    QCOMPARE(copy->exitStatus(), signal ? QProcess::CrashExit : QProcess::NormalExit);
    QCOMPARE(copy->exitCode(), signal ? signal : 1);
    const QString start = QStringLiteral("Program crash:\n");
    QVERIFY2(errors.count(start) == 1, qPrintable(errors));
    *report = errors.section(start, 1);
    QVERIFY(report->startsWith(QStringLiteral("===========================================\n"
                                              "     TonewellDetection Error Report\n")));
    QVERIFY2(report->contains(QStringLiteral("\n  Exception Type: %1\n").arg(type)),
             qPrintable(*report));
    QVERIFY(report->contains(QStringLiteral("\n            End of Report\n")));
    QCOMPARE(report->contains(QStringLiteral("\n[Stack Trace]\n  # 0 0x")), signal != 0);
}

void ProgramCrashTest::whileItRuns_data()
{
    QTest::addColumn<int>("cause");
    QTest::addColumn<int>("end");
    QTest::addColumn<QString>("type");
    QTest::newRow("fault") << SIGUSR1 << SIGSEGV << "EXCEPTION_ACCESS_VIOLATION";
    QTest::newRow("terminate") << SIGUSR2 << 0 << "std::terminate";
}

void ProgramCrashTest::whileItRuns()
{
    QFETCH(int, cause);
    QFETCH(int, end);
    QFETCH(QString, type);
    const InjectedWorld world("");
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(1).isEmpty());
    QCOMPARE(::kill(static_cast<pid_t>(copy->processId()), cause), 0);
    QString report;
    checkEnd(copy.get(), end, type, &report);
    if (QTest::currentTestFailed())
        return;
    QVERIFY(report.contains(QStringLiteral("\n  App Name: TonewellDetection\n"
                                           "  App Version: " TONEWELL_VERSION "\n")));
    // It has an application object, so nothing is written to a file.
    const QDir folder = QFileInfo(world.socket()).dir();
    QCOMPARE(folder.entryList({QStringLiteral("crash_report_*")}), QStringList());
}

void ProgramCrashTest::beforeTheApplicationObject_data()
{
    QTest::addColumn<int>("end");
    QTest::addColumn<QString>("type");
    QTest::newRow("early-fault") << SIGSEGV << "EXCEPTION_ACCESS_VIOLATION";
    QTest::newRow("early-terminate") << 0 << "std::terminate";
}

void ProgramCrashTest::beforeTheApplicationObject()
{
    QFETCH(int, end);
    QFETCH(QString, type);
    const InjectedWorld world(QTest::currentDataTag());
    const auto copy = world.start();
    QVERIFY(copy);
    QString report;
    checkEnd(copy.get(), end, type, &report);
    if (QTest::currentTestFailed())
        return;
    const QDir folder = QFileInfo(world.socket()).dir();
    const QStringList files = folder.entryList({QStringLiteral("crash_report_*")});
    QCOMPARE(files.size(), 1);
    const QRegularExpression name(QStringLiteral("^crash_report_[0-9]{8}_[0-9]{6}\\.txt$"));
    QVERIFY2(name.match(files.first()).hasMatch(), qPrintable(files.first()));
    QFile file(folder.filePath(files.first()));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(file.readAll()) + QLatin1Char('\n'), report);
}

void ProgramCrashTest::onTheThreadOfTheSoundServersLibrary_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("loop-fault") << "EXCEPTION_ACCESS_VIOLATION";
    QTest::newRow("loop-overflow") << "EXCEPTION_STACK_OVERFLOW";
}

void ProgramCrashTest::onTheThreadOfTheSoundServersLibrary()
{
    QFETCH(QString, type);
    const InjectedWorld world(QTest::currentDataTag());
    const auto copy = world.start();
    QVERIFY(copy);
    QString report;
    checkEnd(copy.get(), SIGSEGV, type, &report);
}

void ProgramCrashTest::isNamed()
{
    const InjectedWorld world("names");
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(1).isEmpty());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(copy->readAllStandardOutput(),
             QByteArray("TonewellDetection|" TONEWELL_VERSION "|TonewellDetection\n"));
}

QTEST_GUILESS_MAIN(ProgramCrashTest)
#include "tst_programcrash.moc"
