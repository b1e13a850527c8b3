// One consumer's connection as a device, without a host.
#include "remote/consumer.h"
#include "remote/consumergate.h"
#include "tests/remote/frames.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QTest>

namespace {
constexpr int kPatienceMs = 30000;
}

class ConsumerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void whatIsLookedAtCanStillBeRead();
    void aLoneByteIsNotLeftBehind();
    void theLimitIsExact();
    void limitsAreThoseThatAreDocumented();

private:
    QLocalServer m_server;
    QLocalSocket m_client;
    Consumer *m_consumer = nullptr;
};

void ConsumerTest::init()
{
    QVERIFY(m_server.listen(
        QStringLiteral("tonewell-consumer-%1").arg(QCoreApplication::applicationPid())));
    m_client.connectToServer(m_server.serverName());
    QVERIFY(m_server.waitForNewConnection(kPatienceMs));
    m_consumer = new Consumer(m_server.nextPendingConnection(), frames::tonewell(), nullptr);
}

void ConsumerTest::cleanup()
{
    delete m_consumer;
    m_client.abort();
    m_server.close();
}

void ConsumerTest::whatIsLookedAtCanStillBeRead()
{
    const QByteArray session = frames::attach() + frames::ping();
    m_client.write(session);
    QTRY_COMPARE_WITH_TIMEOUT(m_consumer->bytesAvailable(), session.size(), kPatienceMs);
    QCOMPARE(m_consumer->peek(10), session.left(10));
    QCOMPARE(m_consumer->bytesAvailable(), session.size());
    QCOMPARE(m_consumer->read(10), session.left(10));
    QCOMPARE(m_consumer->readAll(), session.mid(10));
    QCOMPARE(m_consumer->bytesAvailable(), 0);
}

void ConsumerTest::aLoneByteIsNotLeftBehind()
{
    m_client.write(frames::ping().chopped(1));
    QVERIFY(m_client.waitForBytesWritten(kPatienceMs));
    QTest::qWait(2 * Consumer::kTurnMs);
    m_client.write(frames::ping().right(1));
    QTRY_COMPARE_WITH_TIMEOUT(m_consumer->bytesAvailable(), frames::ping().size(), kPatienceMs);
}

// Nothing goes out before the events are handled.
void ConsumerTest::theLimitIsExact()
{
    const auto *const socket = m_consumer->findChild<QLocalSocket *>();
    const QByteArray most(Consumer::kMostUnreadBytes, 'x');
    QCOMPARE(m_consumer->write(most), most.size());
    QCOMPARE(socket->state(), QLocalSocket::ConnectedState);
    QCOMPARE(m_consumer->write("x"), 1);
    QCOMPARE(socket->state(), QLocalSocket::UnconnectedState);
    QCOMPARE(m_consumer->write("lost"), 4);
}

// docs/security.md and docs/protocol.md name them.
void ConsumerTest::limitsAreThoseThatAreDocumented()
{
    QCOMPARE(ConsumerFrames::kLongestBytes, 1048576);
    QCOMPARE(Consumer::kMostUnreadBytes, Q_INT64_C(1048576));
    QCOMPARE(Consumer::kTurnBytes, 1024);
    QCOMPARE(Consumer::kTurnMs, 40);
    QCOMPARE(ConsumerGate::kMostConsumers, 128);
    QCOMPARE(ConsumerGate::kSpareDescriptors, 16);
    QCOMPARE(ConsumerGate::kListenAgainMs, 500);
    QCOMPARE(ConsumerGate::kMostAttempts, 30);
}

QTEST_GUILESS_MAIN(ConsumerTest)
#include "tst_consumer.moc"
