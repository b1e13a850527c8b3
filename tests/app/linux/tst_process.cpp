// The program as processes: its single instance, its end, its silence.
#include "tests/app/linux/programworld.h"

#include <csignal>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSharedMemory>
#include <QTest>

namespace {
constexpr int kPatienceMs = 20000;
}

class ProcessTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void secondCopyExitsAtOnceWithZeroAndTheFirstGoesOn();
    void afterANormalEndANewStartRuns();
    void afterACrashANewStartRuns();
    void debugOutputNeverReachesTheConsole();
    void notEvenThatOfTheApplicationObjectDoes();
    void asksToEnd_data();
    void asksToEnd();
    void onlyTheUserMayConnect();
    void runsWithoutADisplay_data();
    void runsWithoutADisplay();
    void aHeldSegmentKeepsTheProgramFromRunning();
    void runsOnWhenTheSegmentCannotBeMade();
    void reportNamesTheProgram();
    void noThreadBlocksTheSignalsOfFaults();
};

void ProcessTest::secondCopyExitsAtOnceWithZeroAndTheFirstGoesOn()
{
    const ProgramWorld world;
    const auto first = world.startAndWait();
    QVERIFY(first);

    QElapsedTimer clock;
    clock.start();
    const auto second = world.start();
    QVERIFY(second);
    QVERIFY(second->waitForFinished(kPatienceMs));
    qInfo("the second copy ended after %lld ms", clock.elapsed());
    QCOMPARE(second->exitStatus(), QProcess::NormalExit);
    QCOMPARE(second->exitCode(), 0);
    QCOMPARE(second->readAllStandardOutput(), QByteArray());
    QCOMPARE(second->readAllStandardError(), QByteArray());

    QCOMPARE(first->state(), QProcess::Running);
    const QStringList lines = world.receive(3).split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines.first(), QStringLiteral("valid"));
    QCOMPARE(lines.at(3).split(QStringLiteral("/&+&/")).size(), 104);
    first->terminate();
    QVERIFY(first->waitForFinished(kPatienceMs));
}

void ProcessTest::afterANormalEndANewStartRuns()
{
    const ProgramWorld world;
    for (int i = 0; i < 2; ++i) {
        const auto copy = world.startAndWait();
        QVERIFY(copy);
        QVERIFY(!world.receive(1).isEmpty());
        copy->terminate();
        QVERIFY(copy->waitForFinished(kPatienceMs));
        QCOMPARE(copy->exitStatus(), QProcess::NormalExit);
    }
}

void ProcessTest::afterACrashANewStartRuns()
{
    const ProgramWorld world;
    const auto first = world.startAndWait();
    QVERIFY(first);
    first->kill();
    QVERIFY(first->waitForFinished(kPatienceMs));
    QVERIFY2(QFile::exists(world.socket()), "a killed copy leaves its socket's file");

    const auto second = world.startAndWait();
    QVERIFY(second);
    QVERIFY(!world.receive(1).isEmpty());
    const auto third = world.start();
    QVERIFY(third);
    QVERIFY(third->waitForFinished(kPatienceMs));
    QCOMPARE(third->exitCode(), 0);
    QCOMPARE(second->state(), QProcess::Running);
    second->terminate();
    QVERIFY(second->waitForFinished(kPatienceMs));
}

void ProcessTest::debugOutputNeverReachesTheConsole()
{
    ProgramWorld world;
    world.environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("*=true"));
    world.environment.insert(QStringLiteral("QT_LOGGING_TO_CONSOLE"), QStringLiteral("1"));
    world.environment.insert(QStringLiteral("QT_FORCE_STDERR_LOGGING"), QStringLiteral("1"));
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(5).isEmpty());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(QString::fromUtf8(copy->readAllStandardOutput()), QString());
    // Standard error holds the error report of the failed start, but no line of the log.
    const QString errors = QString::fromUtf8(copy->readAllStandardError());
    QVERIFY2(errors.contains(QStringLiteral("Error Report")), qPrintable(errors));
    for (const char *line : {"注册windows通知事件", "获取设备列表", "设备:", "[startCapture]",
                             "[Step", "引擎启动失败", "qt."})
        QVERIFY2(!errors.contains(QString::fromUtf8(line)), line);
}

// Qt names its plugins while the application object is made.
void ProcessTest::notEvenThatOfTheApplicationObjectDoes()
{
    ProgramWorld world;
    world.environment.insert(QStringLiteral("QT_DEBUG_PLUGINS"), QStringLiteral("1"));
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    const QByteArray errors = copy->readAllStandardError();
    QVERIFY2(!errors.contains("QFactoryLoader"), errors.constData());
}

void ProcessTest::asksToEnd_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGHUP") << SIGHUP;
}

// The report's dialog is open meanwhile: its nested loop has to end too.
void ProcessTest::asksToEnd()
{
    QFETCH(int, signal);
    const ProgramWorld world;
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(5).isEmpty());
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(::kill(static_cast<pid_t>(copy->processId()), signal), 0);
    QVERIFY(copy->waitForFinished(kPatienceMs));
    qInfo("the program ended after %lld ms", clock.elapsed());
    QCOMPARE(copy->exitStatus(), QProcess::NormalExit);
    QCOMPARE(copy->exitCode(), 0);
    QVERIFY(!QFile::exists(world.socket()));
}

void ProcessTest::onlyTheUserMayConnect()
{
    const ProgramWorld world;
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup
        | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(static_cast<int>(QFile::permissions(world.socket()) & others), 0);
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
}

void ProcessTest::runsWithoutADisplay_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::newRow("none named") << QString() << QString();
    QTest::newRow("X11, not there") << QStringLiteral("DISPLAY") << QStringLiteral(":4711");
    QTest::newRow("Wayland, not there")
        << QStringLiteral("WAYLAND_DISPLAY") << QStringLiteral("wayland-4711");
    QTest::newRow("empty") << QStringLiteral("DISPLAY") << QString();
}

void ProcessTest::runsWithoutADisplay()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    ProgramWorld world;
    if (!variable.isEmpty())
        world.environment.insert(variable, value);
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(1).isEmpty());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(copy->exitStatus(), QProcess::NormalExit);
}

// The program takes any holder of its key's segment for a running copy.
void ProcessTest::aHeldSegmentKeepsTheProgramFromRunning()
{
    const ProgramWorld world;
    QProcess holder;
    holder.setProcessEnvironment(world.environment);
    holder.start(QStringLiteral(SEGMENT_HOLDER),
                 {QStringLiteral("--hold"), QStringLiteral("TonewellDetection")});
    QVERIFY(holder.waitForReadyRead(kPatienceMs));
    QCOMPARE(holder.readLine(), QByteArray("held\n"));

    const auto copy = world.start();
    QVERIFY(copy);
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(copy->exitStatus(), QProcess::NormalExit);
    QCOMPARE(copy->exitCode(), 0);
    QVERIFY(!QFile::exists(world.socket()));
    QCOMPARE(copy->readAllStandardError(), QByteArray());

    holder.write("end\n");
    QVERIFY(holder.waitForFinished(kPatienceMs));
    const auto next = world.startAndWait();
    QVERIFY(next);
    next->terminate();
    QVERIFY(next->waitForFinished(kPatienceMs));
}

// A link to nowhere takes the place of the key's file: the key then names no segment.
void ProcessTest::runsOnWhenTheSegmentCannotBeMade()
{
    const ProgramWorld world;
    const QString name =
        QFileInfo(QSharedMemory(QStringLiteral("TonewellDetection")).nativeKey()).fileName();
    const QString file = QFileInfo(world.socket()).dir().filePath(name);
    QVERIFY(QFile::link(file + QStringLiteral(".nowhere"), file));
    QSharedMemory segment;
    segment.setNativeKey(file);
    QVERIFY(!segment.create(1));

    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(3).isEmpty());
    QCOMPARE(copy->state(), QProcess::Running);
    QVERIFY(!segment.attach());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(copy->exitStatus(), QProcess::NormalExit);
}

void ProcessTest::reportNamesTheProgram()
{
    const ProgramWorld world;
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(5).isEmpty());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    const QString errors = QString::fromUtf8(copy->readAllStandardError());
    QVERIFY2(errors.contains(QStringLiteral("\n[Application Info]\n"
                                            "  App Name: TonewellDetection\n"
                                            "  App Version: " TONEWELL_VERSION "\n"
                                            "  Executable: " TONEWELL_PROGRAM "\n")),
             qPrintable(errors));
}

// Where such a signal is blocked, the kernel ends the process at a fault without a report.
void ProcessTest::noThreadBlocksTheSignalsOfFaults()
{
    const ProgramWorld world;
    const auto copy = world.startAndWait();
    QVERIFY(copy);
    QVERIFY(!world.receive(5).isEmpty());
    qulonglong faults = 0;
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        faults |= 1ULL << (signal - 1);
    const QString tasks = QStringLiteral("/proc/%1/task").arg(copy->processId());
    QStringList names;
    for (const QString &task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile file(tasks + QLatin1Char('/') + task + QStringLiteral("/status"));
        if (!file.open(QIODevice::ReadOnly))
            continue; // it has ended meanwhile
        QString name;
        for (const QByteArray &line : file.readAll().split('\n')) {
            if (line.startsWith("Name:"))
                name = QString::fromUtf8(line.mid(5).trimmed());
            if (line.startsWith("SigBlk:")) {
#ifdef __SANITIZE_THREAD__
                // The sanitizer's own thread has the program's name and blocks everything.
                if (task.toLongLong() != copy->processId()
                    && name == QLatin1String("TonewellDetecti"))
                    continue;
#endif
                names.append(name);
                QVERIFY2((line.mid(7).trimmed().toULongLong(nullptr, 16) & faults) == 0,
                         qPrintable(name + QString::fromUtf8(line)));
            }
        }
    }
    QVERIFY2(names.contains(QStringLiteral("sound-server")), qPrintable(names.join(u' ')));
    QVERIFY(names.size() >= 5);
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
}

QTEST_GUILESS_MAIN(ProcessTest)
#include "tst_process.moc"
