// Consumers that misbehave, against a host of this test.
#include "platform/descriptors.h"
#include "remote/commoninterface.h"
#include "remote/consumerguard.h"

#include <memory>
#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QTest>
#include <QTimer>
#include <vector>

namespace {
constexpr int kPatienceMs = 30000;
}

class ConsumerGuardTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void countsFreeDescriptors();
    void consumersThatStopReadingAreDropped();
    void aConsumerThatReadsIsKept();
    void aConsumerThatAnnouncesTooMuchIsDropped();
    void aConsumerThatSaysNothingIsKept();
    void whenDescriptorsRunShortNewConsumersAreDropped();

private:
    QList<QLocalSocket *> sockets() const { return m_host->findChildren<QLocalSocket *>(); }
    qint64 waiting() const;
    std::unique_ptr<QLocalSocket> connectSocket() const;
    static void end(QProcess *process);

    QString m_name;
    std::unique_ptr<QRemoteObjectHost> m_host;
    std::unique_ptr<CommonInterface> m_source;
    QTimer m_timer;
    int m_sent = 0;
};

void ConsumerGuardTest::init()
{
    static int s_number = 0;
    m_name = QStringLiteral("tonewell-guard-%1-%2")
                 .arg(QCoreApplication::applicationPid())
                 .arg(++s_number);
    m_host = std::make_unique<QRemoteObjectHost>();
    QVERIFY(m_host->setHostUrl(QUrl(QStringLiteral("local:") + m_name)));
    m_source = std::make_unique<CommonInterface>();
    QVERIFY(m_host->enableRemoting(m_source.get(), QStringLiteral("Tonewell")));
    new ConsumerGuard(m_host.get());
    m_sent = 0;
    connect(&m_timer, &QTimer::timeout, m_source.get(), [this] {
        m_source->sendMessage(QString(10000, QLatin1Char('x')) + QString::number(m_sent++));
    });
}

void ConsumerGuardTest::cleanup()
{
    m_timer.stop();
    m_timer.disconnect();
    m_host.reset();
    m_source.reset();
}

qint64 ConsumerGuardTest::waiting() const
{
    qint64 result = 0;
    for (const QLocalSocket *const socket : sockets())
        result += socket->bytesToWrite();
    return result;
}

std::unique_ptr<QLocalSocket> ConsumerGuardTest::connectSocket() const
{
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(m_name);
    return socket->waitForConnected(kPatienceMs) ? std::move(socket) : nullptr;
}

void ConsumerGuardTest::end(QProcess *process)
{
    process->kill();
    process->waitForFinished(kPatienceMs);
}

void ConsumerGuardTest::countsFreeDescriptors()
{
    const int before = freeDescriptors();
    QVERIFY(before > 0);
    QFile file(QCoreApplication::applicationFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    const int unlimited = std::numeric_limits<int>::max();
    QCOMPARE(freeDescriptors(), before == unlimited ? unlimited : before - 1);
}

void ConsumerGuardTest::consumersThatStopReadingAreDropped()
{
    constexpr int count = 64;
    QProcess stalling;
    stalling.start(QStringLiteral(STALLINGCONSUMERS),
                   {QStringLiteral("local:") + m_name, QString::number(count)});
    QTRY_VERIFY_WITH_TIMEOUT(stalling.canReadLine(), kPatienceMs);
    QCOMPARE(stalling.readLine(), QByteArray("stalled\n"));
    QCOMPARE(sockets().size(), count);

    // 20 kB every 20 ms: after a second, the limit; before, nobody is dropped.
    qint64 most = 0;
    int keptAtTheLimit = count;
    m_timer.start(20);
    const auto gone = [&] {
        most = qMax(most, waiting());
        if (most < count * ConsumerGuard::kLimitBytes / 2)
            keptAtTheLimit = sockets().size();
        return sockets().isEmpty();
    };
    QTRY_VERIFY_WITH_TIMEOUT(gone(), kPatienceMs);
    QCOMPARE(keptAtTheLimit, count);
    QVERIFY(most > count * ConsumerGuard::kLimitBytes / 2);
    // The messages that are sent until the next look come on top: two seconds on a slow machine.
    QVERIFY2(most < count * (ConsumerGuard::kLimitBytes + 2 * 50 * 21000),
             qPrintable(QString::number(most)));
    end(&stalling);
}

void ConsumerGuardTest::aConsumerThatReadsIsKept()
{
    QProcess probe;
    probe.start(QStringLiteral(REPLICAPROBE),
                {QStringLiteral("local:") + m_name, QStringLiteral("200")});
    m_timer.start(20); // 4 MB in four seconds
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(probe.exitCode(), 0);
}

void ConsumerGuardTest::aConsumerThatAnnouncesTooMuchIsDropped()
{
    const auto socket = connectSocket();
    QVERIFY(socket);
    QTRY_COMPARE_WITH_TIMEOUT(sockets().size(), 1, kPatienceMs);
    QByteArray bytes;
    QDataStream(&bytes, QIODevice::WriteOnly) << static_cast<quint32>(0x7FFFFFFF);
    socket->write(bytes + QByteArray(8 * ConsumerGuard::kLimitBytes, 'x'));
    qint64 most = 0;
    const auto gone = [&] {
        for (const QLocalSocket *const one : sockets())
            most = qMax(most, one->bytesAvailable());
        return sockets().isEmpty();
    };
    QTRY_VERIFY_WITH_TIMEOUT(gone(), kPatienceMs);
    // The socket reads in pieces of some kilobytes.
    QVERIFY2(most <= ConsumerGuard::kLimitBytes + 65536, qPrintable(QString::number(most)));
    QTRY_COMPARE_WITH_TIMEOUT(socket->state(), QLocalSocket::UnconnectedState, kPatienceMs);
}

void ConsumerGuardTest::aConsumerThatSaysNothingIsKept()
{
    const auto socket = connectSocket();
    QVERIFY(socket);
    QTest::qWait(2500);
    QCOMPARE(sockets().size(), 1);
    QCOMPARE(socket->state(), QLocalSocket::ConnectedState);
}

void ConsumerGuardTest::whenDescriptorsRunShortNewConsumersAreDropped()
{
    const int free = freeDescriptors();
    if (free > 100000)
        QSKIP("the host sets no limit to descriptors that a test could reach", "");
    // All but some are taken.
    std::vector<std::unique_ptr<QFile>> files;
    for (int left = free; left > ConsumerGuard::kReserve + 6; --left) {
        files.push_back(std::make_unique<QFile>(QCoreApplication::applicationFilePath()));
        QVERIFY(files.back()->open(QIODevice::ReadOnly));
    }
    // Two a connection here, since both ends are in this process.
    std::vector<std::unique_ptr<QLocalSocket>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(connectSocket());
        QVERIFY(clients.back());
        QTest::qWait(50);
    }
    const int kept = sockets().size();
    QVERIFY2(kept >= 1 && kept <= 4, qPrintable(QString::number(kept)));
    QVERIFY(freeDescriptors() >= ConsumerGuard::kReserve - 8);
    clients.clear();
    files.clear();
    QTRY_COMPARE_WITH_TIMEOUT(sockets().size(), 0, kPatienceMs);
    const auto socket = connectSocket();
    QVERIFY(socket);
    QTRY_COMPARE_WITH_TIMEOUT(sockets().size(), 1, kPatienceMs);
    QTest::qWait(200);
    QCOMPARE(socket->state(), QLocalSocket::ConnectedState);
}

QTEST_GUILESS_MAIN(ConsumerGuardTest)
#include "tst_consumerguard.moc"
