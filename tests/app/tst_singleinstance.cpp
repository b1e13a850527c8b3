// A running copy against the leftover of a dead one. Run as "tst_singleinstance --hold KEY" this
// program is such a copy: it makes the segment, says so, and waits. Run with "--start KEY TIME" it
// starts as a copy does, at that time of the steady clock in ns, and says whether it runs or
// leaves.
#include "app/singleinstance.h"

#include <chrono>
#include <cstdio>
#include <QCoreApplication>
#include <QProcess>
#include <QSharedMemory>
#include <QTest>
#include <thread>

class SingleInstanceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nobodyThere();
    void aRunningCopyIsFoundAgainAndAgain();
    void theLeftoverOfAKilledCopyIsRemoved();
    void anotherStartIsNoRunningCopy();
    void oneOfTwoStartsAtOnceRuns();

private:
    static QString key(const char *name)
    {
        return QStringLiteral("tst_singleinstance_%1_%2")
            .arg(QLatin1String(name))
            .arg(QCoreApplication::applicationPid());
    }
    static bool startHolder(QProcess *holder, const QString &segmentKey)
    {
        holder->start(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("--hold"), segmentKey});
        return holder->waitForReadyRead(20000) && holder->readLine().trimmed() == "held";
    }
};

void SingleInstanceTest::nobodyThere()
{
    QSharedMemory memory(key("nobody"));
    QVERIFY(!attachToRunningCopy(&memory));
    QVERIFY(!memory.isAttached());
    QVERIFY(memory.create(1, QSharedMemory::ReadWrite));
}

void SingleInstanceTest::aRunningCopyIsFoundAgainAndAgain()
{
    const QString segmentKey = key("running");
    QProcess holder;
    QVERIFY(startHolder(&holder, segmentKey));
    for (int i = 0; i < 3; ++i) {
        QSharedMemory memory(segmentKey);
        QVERIFY(attachToRunningCopy(&memory));
        QVERIFY(memory.isAttached());
    }
    holder.write("end\n");
    QVERIFY(holder.waitForFinished(20000));
    QSharedMemory memory(segmentKey);
    QVERIFY(!attachToRunningCopy(&memory));
}

void SingleInstanceTest::theLeftoverOfAKilledCopyIsRemoved()
{
    const QString segmentKey = key("killed");
    QProcess holder;
    QVERIFY(startHolder(&holder, segmentKey));
    holder.kill();
    QVERIFY(holder.waitForFinished(20000));
    QSharedMemory memory(segmentKey);
    QVERIFY(!attachToRunningCopy(&memory));
    QVERIFY(!memory.isAttached());
    QVERIFY(memory.create(1, QSharedMemory::ReadWrite));
    QSharedMemory second(segmentKey);
    QVERIFY(attachToRunningCopy(&second));
}

void SingleInstanceTest::anotherStartIsNoRunningCopy()
{
    const QString segmentKey = key("another");
    QProcess holder;
    QVERIFY(startHolder(&holder, segmentKey));
    holder.kill();
    QVERIFY(holder.waitForFinished(20000));
    QSharedMemory other(segmentKey);
    QVERIFY(other.attach() || other.create(1)); // there is no leftover on Windows
    std::thread leaves([&other] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        other.detach();
    });
    QSharedMemory memory(segmentKey);
    const bool found = attachToRunningCopy(&memory);
    leaves.join();
    QVERIFY(!found);
    QVERIFY(!memory.isAttached());
    QVERIFY(memory.create(1, QSharedMemory::ReadWrite));
}

void SingleInstanceTest::oneOfTwoStartsAtOnceRuns()
{
    for (int round = 0; round < 10; ++round) {
        const QString segmentKey = key("starts") + QString::number(round);
        QProcess holder;
        QVERIFY(startHolder(&holder, segmentKey));
        holder.kill();
        QVERIFY(holder.waitForFinished(20000));
        const auto when = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
        const QStringList arguments {
            QStringLiteral("--start"), segmentKey,
            QString::number(std::chrono::nanoseconds {when.time_since_epoch()}.count())};
        QProcess starts[2];
        int running = 0;
        for (QProcess &start : starts)
            start.start(QCoreApplication::applicationFilePath(), arguments);
        for (QProcess &start : starts) {
            QVERIFY(start.waitForReadyRead(20000));
            const QByteArray line = start.readLine().trimmed();
            QVERIFY2(line == "runs" || line == "leaves", line.constData());
            running += line == "runs" ? 1 : 0;
        }
        for (QProcess &start : starts) {
            start.closeWriteChannel();
            if (start.state() != QProcess::NotRunning)
                QVERIFY(start.waitForFinished(20000));
        }
        QVERIFY2(running >= 1, qPrintable(QStringLiteral("round %1").arg(round)));
    }
}

namespace {

int startAt(const QString &segmentKey, const char *nanoseconds)
{
    QSharedMemory memory(segmentKey);
    const std::chrono::nanoseconds when(QByteArray(nanoseconds).toLongLong());
    while (std::chrono::steady_clock::now().time_since_epoch() < when) { }
    const bool leaves = attachToRunningCopy(&memory);
    if (!leaves)
        memory.create(1, QSharedMemory::ReadWrite);
    std::puts(leaves ? "leaves" : "runs");
    std::fflush(stdout);
    return leaves || std::getchar() == EOF ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 4 && qstrcmp(argv[1], "--start") == 0)
        return startAt(QString::fromLocal8Bit(argv[2]), argv[3]);
    if (argc == 3 && qstrcmp(argv[1], "--hold") == 0) {
        QSharedMemory memory(QString::fromLocal8Bit(argv[2]));
        if (!memory.create(1, QSharedMemory::ReadWrite)) {
            // Linux makes the number of a key from the number of a file, which another key's file
            // may have had before. What that key has left behind is removed first.
            if (memory.attach())
                memory.detach();
            if (!memory.create(1, QSharedMemory::ReadWrite))
                return 1;
        }
        std::puts("held");
        std::fflush(stdout);
        return std::getchar() == EOF ? 1 : 0;
    }
    SingleInstanceTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_singleinstance.moc"
