// A running copy against the leftover of a dead one. Run as "tst_singleinstance --hold KEY" this
// program is such a copy: it makes the segment, says so, and waits.
#include "app/singleinstance.h"

#include <QCoreApplication>
#include <QProcess>
#include <QSharedMemory>
#include <QTest>

#include <cstdio>

class SingleInstanceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nobodyThere();
    void aRunningCopyIsFoundAgainAndAgain();
    void theLeftoverOfAKilledCopyIsRemoved();

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
        return holder->waitForReadyRead(20000) && holder->readLine() == "held\n";
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

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--hold") == 0) {
        QSharedMemory memory(QString::fromLocal8Bit(argv[2]));
        if (!memory.create(1, QSharedMemory::ReadWrite))
            return 1;
        std::puts("held");
        std::fflush(stdout);
        return std::getchar() == EOF ? 1 : 0;
    }
    SingleInstanceTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_singleinstance.moc"
