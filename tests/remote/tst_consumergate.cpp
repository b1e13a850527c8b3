// Consumers of all kinds at the gate of a host of this test.
#include "platform/descriptors.h"
#include "remote/commoninterface.h"
#include "remote/consumer.h"
#include "remote/consumergate.h"
#include "tests/remote/frames.h"

#include <memory>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QPointer>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <vector>

namespace {

constexpr int kPatienceMs = 30000;
constexpr int kReachableDescriptors = 100000;

/// A text that a message of this size carries, bytes on the wire.
QString textOf(int bytes)
{
    return QString(bytes / 2, QLatin1Char('x'));
}

} // namespace

class ConsumerGateTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void replicaReceivesAndSends();
    void replicaFindsTheHostAgain();
    void aCallReachesTheSourceOnceItIsWhole();
    void aCallArrivesThoughItsSenderLeaves();
    void aWrongFrameDropsItsConsumerAndNobodyElse();
    void whatComesWithAWrongFrameIsDroppedToo();
    void aDuplicatedAttachIsWrong();
    void whoLeavesLeavesNothingBehind();
    void heartbeatsAreAnswered();
    void aFloodIsTakenInTurns();
    void aLongCallArrivesInTurns();
    void whoDoesNotReadIsDroppedAtTheLimit();
    void consumersThatStopReadingAreDropped();
    void aConsumerThatReadsIsKept();
    void aConsumerThatSaysNothingIsKept();
    void newcomersAreDroppedWhenTheGateIsFull();
    void whenDescriptorsRunShortNewConsumersAreDropped();
    void whoIsAloneStaysThoughDescriptorsRunShort();
    void aListenerThatDescriptorsRanOutForIsOpenedAgain();
    void theSocketIsTheUsersAlone();
    void aNameThatIsTakenIsTriedAgain();

private:
    void openGate();
    QList<Consumer *> consumers() const { return m_gate->findChildren<Consumer *>(); }
    /// Files that leave so many descriptors free.
    static std::vector<std::unique_ptr<QFile>> takeDescriptors(int left);
    /// A client of the gate, admitted there.
    std::unique_ptr<QLocalSocket> connectClient();
    /// Sends the bytes and waits until they have been dealt with.
    static bool deliver(QLocalSocket *client, const QByteArray &bytes);
    static bool isDropped(QLocalSocket *client);

    QString m_name;
    std::unique_ptr<QRemoteObjectHost> m_host;
    ConsumerGate *m_gate = nullptr;
    std::unique_ptr<CommonInterface> m_source;
    QTimer m_timer;
    int m_sent = 0;
};

void ConsumerGateTest::init()
{
    static int s_number = 0;
    m_name = QStringLiteral("tonewell-gate-%1-%2")
                 .arg(QCoreApplication::applicationPid())
                 .arg(++s_number);
    openGate();
    m_sent = 0;
    connect(&m_timer, &QTimer::timeout, this,
            [this] { m_source->sendMessage(textOf(20000) + QString::number(m_sent++)); });
}

void ConsumerGateTest::openGate()
{
    m_source = std::make_unique<CommonInterface>();
    m_host = std::make_unique<QRemoteObjectHost>();
    m_gate =
        new ConsumerGate(m_host.get(), QUrl(QStringLiteral("local:") + m_name), frames::tonewell());
    QVERIFY(m_host->enableRemoting(m_source.get(), frames::tonewell()));
}

void ConsumerGateTest::cleanup()
{
    m_timer.stop();
    m_timer.disconnect();
    m_host.reset();
    m_source.reset();
}

std::vector<std::unique_ptr<QFile>> ConsumerGateTest::takeDescriptors(int left)
{
    std::vector<std::unique_ptr<QFile>> files;
    for (int free = freeDescriptors(); free > left; --free) {
        files.push_back(std::make_unique<QFile>(QCoreApplication::applicationFilePath()));
        files.back()->open(QIODevice::ReadOnly);
    }
    return files;
}

std::unique_ptr<QLocalSocket> ConsumerGateTest::connectClient()
{
    const int before = consumers().size();
    auto client = std::make_unique<QLocalSocket>();
    client->connectToServer(m_name);
    const bool admitted = QTest::qWaitFor([&] { return consumers().size() > before; }, kPatienceMs);
    return admitted ? std::move(client) : nullptr;
}

bool ConsumerGateTest::deliver(QLocalSocket *client, const QByteArray &bytes)
{
    QByteArray received;
    client->write(bytes + frames::ping());
    const auto answered = [&] {
        received += client->readAll();
        return received.endsWith(frames::pong());
    };
    return QTest::qWaitFor(answered, kPatienceMs);
}

bool ConsumerGateTest::isDropped(QLocalSocket *client)
{
    return QTest::qWaitFor([&] { return client->state() == QLocalSocket::UnconnectedState; },
                           kPatienceMs);
}

void ConsumerGateTest::replicaReceivesAndSends()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    QProcess probe;
    probe.start(QStringLiteral(REPLICAPROBE),
                {QStringLiteral("local:") + m_name, QStringLiteral("3"), QStringLiteral("hello")});
    m_timer.start(20);
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(probe.exitCode(), 0);
    QCOMPARE(calls.size(), 1);
    QCOMPARE(calls[0][0].toString(), QStringLiteral("hello"));
}

void ConsumerGateTest::replicaFindsTheHostAgain()
{
    QProcess probe;
    QByteArray printed;
    connect(&probe, &QProcess::readyRead, this, [&] { printed += probe.readAll(); });
    probe.start(QStringLiteral(REPLICAPROBE),
                {QStringLiteral("local:") + m_name, QStringLiteral("2")});
    QTRY_COMPARE_WITH_TIMEOUT(printed, QByteArray("valid\n"), kPatienceMs);
    m_source->sendMessage(QStringLiteral("before"));
    QTRY_COMPARE_WITH_TIMEOUT(printed, QByteArray("valid\nbefore\n"), kPatienceMs);
    cleanup();
    openGate();
    QTRY_COMPARE_WITH_TIMEOUT(printed, QByteArray("valid\nbefore\nvalid\n"), kPatienceMs);
    m_source->sendMessage(QStringLiteral("after"));
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, kPatienceMs);
    QVERIFY(printed.endsWith("valid\nafter\n"));
}

void ConsumerGateTest::aCallReachesTheSourceOnceItIsWhole()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    const auto client = connectClient();
    QVERIFY(client);
    Consumer *const consumer = consumers().constFirst();
    QSignalSpy handedOn(consumer, &Consumer::readyRead);
    const QByteArray session = frames::attach() + frames::call(QStringLiteral("hello"));
    for (const char byte : session) {
        QCOMPARE(calls.size(), 0);
        client->write(&byte, 1);
        QVERIFY(client->waitForBytesWritten(kPatienceMs));
        QTest::qWait(1);
    }
    QTRY_COMPARE_WITH_TIMEOUT(calls.size(), 1, kPatienceMs);
    QCOMPARE(calls[0][0].toString(), QStringLiteral("hello"));
    QCOMPARE(handedOn.size(), 2);
    QCOMPARE(consumer->bytesAvailable(), 0);
}

void ConsumerGateTest::aCallArrivesThoughItsSenderLeaves()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    const auto client = connectClient();
    QVERIFY(client);
    QVERIFY(deliver(client.get(), frames::attach())); // which was its turn
    client->write(frames::call(QStringLiteral("hello")));
    QVERIFY(client->waitForBytesWritten(kPatienceMs));
    client->abort();
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 0, kPatienceMs);
    QCOMPARE(calls.size(), 1);
}

void ConsumerGateTest::aWrongFrameDropsItsConsumerAndNobodyElse()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    const auto other = connectClient();
    const auto client = connectClient();
    QVERIFY(other && client);
    QVERIFY(deliver(other.get(), frames::attach()));
    client->write(frames::attach() + frames::callWith(QVariantList {7}));
    QVERIFY(isDropped(client.get()));
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 1, kPatienceMs);
    QCOMPARE(calls.size(), 0);

    m_source->sendMessage(QStringLiteral("message"));
    QByteArray received;
    const auto arrived = [&] {
        received += other->readAll();
        return received.contains(frames::bytes(QStringLiteral("message")));
    };
    QTRY_VERIFY_WITH_TIMEOUT(arrived(), kPatienceMs);
    QVERIFY(deliver(other.get(), frames::call(QStringLiteral("hello"))));
    QCOMPARE(calls.size(), 1);
}

void ConsumerGateTest::whatComesWithAWrongFrameIsDroppedToo()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    const auto client = connectClient();
    QVERIFY(client);
    const QByteArray right = frames::call(QStringLiteral("hello"));
    client->write(right + frames::frame("wrong") + right);
    QVERIFY(isDropped(client.get()));
    QCOMPARE(calls.size(), 0);
}

void ConsumerGateTest::aDuplicatedAttachIsWrong()
{
    const auto client = connectClient();
    QVERIFY(client);
    QVERIFY(deliver(client.get(), frames::attach()));
    client->write(frames::attach(true));
    QVERIFY(isDropped(client.get()));
}

void ConsumerGateTest::whoLeavesLeavesNothingBehind()
{
    const int before = m_host->findChildren<QObject *>().size();
    for (int i = 0; i < 20; ++i) {
        const auto client = connectClient();
        QVERIFY(client);
        QVERIFY(deliver(client.get(), frames::attach()));
        const QPointer<QLocalSocket> socket = consumers().constFirst()->findChild<QLocalSocket *>();
        QVERIFY(socket);
        if (i % 2)
            client->abort();
        else
            client->write(frames::frame("wrong"));
        QTRY_COMPARE_WITH_TIMEOUT(m_host->findChildren<QObject *>().size(), before, kPatienceMs);
        QVERIFY(!socket);
        m_source->sendMessage(QStringLiteral("to nobody"));
    }
}

void ConsumerGateTest::heartbeatsAreAnswered()
{
    const auto client = connectClient();
    QVERIFY(client);
    QVERIFY(deliver(client.get(), frames::attach() + frames::detach()));
    QVERIFY(deliver(client.get(), QByteArray()));
}

void ConsumerGateTest::aFloodIsTakenInTurns()
{
    const auto client = connectClient();
    QVERIFY(client);
    constexpr int kTurns = 10;
    const int count = kTurns * Consumer::kTurnBytes / frames::ping().size();
    const Consumer *const consumer = consumers().constFirst();
    const auto *const socket = consumer->findChild<QLocalSocket *>();
    QSignalSpy turns(consumer, &Consumer::readyRead);
    QByteArray flood;
    for (int i = 0; i < count; ++i)
        flood += frames::ping();
    QElapsedTimer clock;
    clock.start();
    client->write(flood);
    QByteArray received;
    qint64 most = 0;
    const auto answered = [&] {
        most = qMax(most, socket->bytesAvailable());
        received += client->readAll();
        return received.count(frames::pong());
    };
    QTRY_COMPARE_WITH_TIMEOUT(answered(), count, kPatienceMs);
    QVERIFY2(turns.size() >= kTurns, qPrintable(QString::number(turns.size())));
    // A timer of this kind may be 5 % early.
    QVERIFY2(clock.elapsed() >= (kTurns - 1) * Consumer::kTurnMs * 9 / 10,
             qPrintable(QString::number(clock.elapsed())));
    QVERIFY2(most <= Consumer::kTurnBytes, qPrintable(QString::number(most)));
}

void ConsumerGateTest::aLongCallArrivesInTurns()
{
    QSignalSpy calls(m_source.get(), &CommonInterface::sigReceiveMsg);
    const auto client = connectClient();
    QVERIFY(client);
    const QString text = textOf(10 * Consumer::kTurnBytes);
    client->write(frames::call(text));
    QTRY_COMPARE_WITH_TIMEOUT(calls.size(), 1, kPatienceMs);
    QCOMPARE(calls[0][0].toString(), text);
}

void ConsumerGateTest::whoDoesNotReadIsDroppedAtTheLimit()
{
    const auto client = connectClient();
    QVERIFY(client);
    QVERIFY(deliver(client.get(), frames::attach()));
    QSignalSpy gone(consumers().constFirst(), &Consumer::disconnected);

    // Nobody gets to read meanwhile. Each message is a little longer than its text.
    constexpr int kText = 10000;
    constexpr int kFit = Consumer::kMostUnreadBytes / (kText + 100);
    for (int i = 0; i < kFit; ++i)
        m_source->sendMessage(textOf(kText));
    QByteArray received;
    const auto arrived = [&] { return (received += client->readAll()).size() >= kFit * kText; };
    QTRY_VERIFY_WITH_TIMEOUT(arrived(), kPatienceMs);
    QCOMPARE(client->state(), QLocalSocket::ConnectedState);

    for (int i = 0; i < 2 * kFit; ++i)
        m_source->sendMessage(textOf(kText));
    QCOMPARE(gone.size(), 0); // which the host could not stand
    QVERIFY(isDropped(client.get()));
    QTRY_COMPARE_WITH_TIMEOUT(gone.size(), 1, kPatienceMs);
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 0, kPatienceMs);
}

void ConsumerGateTest::consumersThatStopReadingAreDropped()
{
    constexpr int kCount = 64;
    QProcess stalling;
    stalling.start(QStringLiteral(STALLINGCONSUMERS),
                   {QStringLiteral("local:") + m_name, QString::number(kCount)});
    QTRY_VERIFY_WITH_TIMEOUT(stalling.canReadLine(), kPatienceMs);
    QCOMPARE(stalling.readLine(), QByteArray("stalled\n"));
    QCOMPARE(consumers().size(), kCount);
    m_timer.start(20); // 20 kB each time
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 0, kPatienceMs);
    QVERIFY2(m_sent >= Consumer::kMostUnreadBytes / 20100, qPrintable(QString::number(m_sent)));
    stalling.kill();
    QVERIFY(stalling.waitForFinished(kPatienceMs));
}

void ConsumerGateTest::aConsumerThatReadsIsKept()
{
    QProcess probe;
    probe.start(QStringLiteral(REPLICAPROBE),
                {QStringLiteral("local:") + m_name, QStringLiteral("200")});
    m_timer.start(20); // 4 MB in four seconds
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, kPatienceMs);
    QCOMPARE(probe.exitCode(), 0);
}

void ConsumerGateTest::aConsumerThatSaysNothingIsKept()
{
    const auto client = connectClient();
    QVERIFY(client);
    QTest::qWait(1500);
    QCOMPARE(consumers().size(), 1);
    QCOMPARE(client->state(), QLocalSocket::ConnectedState);
}

void ConsumerGateTest::newcomersAreDroppedWhenTheGateIsFull()
{
    if (freeDescriptors() < 3 * ConsumerGate::kMostConsumers)
        QSKIP("the host sets a limit to descriptors that is too low for this", "");
    std::vector<std::unique_ptr<QLocalSocket>> clients;
    for (int i = 0; i < ConsumerGate::kMostConsumers; ++i) {
        clients.push_back(connectClient());
        QVERIFY(clients.back());
    }
    QLocalSocket newcomer;
    newcomer.connectToServer(m_name);
    QVERIFY(newcomer.waitForConnected(kPatienceMs));
    QVERIFY(isDropped(&newcomer));
    QCOMPARE(consumers().size(), ConsumerGate::kMostConsumers);
    clients.pop_back();
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), ConsumerGate::kMostConsumers - 1, kPatienceMs);
    QVERIFY(connectClient());
}

void ConsumerGateTest::whenDescriptorsRunShortNewConsumersAreDropped()
{
    if (freeDescriptors() > kReachableDescriptors)
        QSKIP("the host sets no limit to descriptors that a test could reach", "");
    auto files = takeDescriptors(ConsumerGate::kSpareDescriptors + 6);
    // Two a connection here, since both ends are in this process: three pairs fit.
    std::vector<std::unique_ptr<QLocalSocket>> clients;
    for (int i = 0; i < 8; ++i) {
        clients.push_back(std::make_unique<QLocalSocket>());
        QLocalSocket *const client = clients.back().get();
        client->connectToServer(m_name);
        QVERIFY(client->waitForConnected(kPatienceMs));
        QTRY_VERIFY_WITH_TIMEOUT(consumers().size() == i + 1
                                     || client->state() == QLocalSocket::UnconnectedState,
                                 kPatienceMs);
    }
    QCOMPARE(consumers().size(), 3);
    clients.clear();
    files.clear();
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 0, kPatienceMs);
    const auto client = connectClient();
    QVERIFY(client);
    QTest::qWait(200);
    QCOMPARE(client->state(), QLocalSocket::ConnectedState);
}

void ConsumerGateTest::whoIsAloneStaysThoughDescriptorsRunShort()
{
    if (freeDescriptors() > kReachableDescriptors)
        QSKIP("the host sets no limit to descriptors that a test could reach", "");
    const auto files = takeDescriptors(ConsumerGate::kSpareDescriptors / 2);
    const auto first = connectClient();
    QVERIFY(first);
    QLocalSocket second;
    second.connectToServer(m_name);
    QVERIFY(isDropped(&second));
    QCOMPARE(first->state(), QLocalSocket::ConnectedState);
}

void ConsumerGateTest::aListenerThatDescriptorsRanOutForIsOpenedAgain()
{
    if (freeDescriptors() > kReachableDescriptors)
        QSKIP("the host sets no limit to descriptors that a test could reach", "");
    auto files = takeDescriptors(1);
    QLocalSocket last;
    last.connectToServer(m_name); // with the one that was left: none is there to accept it with
    QVERIFY(isDropped(&last));
    files.clear();
    const auto served = [this] {
        QLocalSocket client;
        client.connectToServer(m_name);
        return client.waitForConnected(100);
    };
    QVERIFY(QTest::qWaitFor(served, kPatienceMs));
}

void ConsumerGateTest::theSocketIsTheUsersAlone()
{
    const QString path = QDir::temp().filePath(m_name);
    if (!QFile::exists(path))
        QSKIP("local sockets of this host are no files", "");
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup
        | QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
    QCOMPARE(QFile::permissions(path) & others, QFile::Permissions());
}

void ConsumerGateTest::aNameThatIsTakenIsTriedAgain()
{
    m_host.reset();
    const QString path = QDir::temp().filePath(m_name);
    QVERIFY(QDir().mkdir(path));
    openGate();
    QSignalSpy told(m_gate, &ConsumerGate::listeningFails);
    QLocalSocket client;
    client.connectToServer(m_name);
    if (client.waitForConnected(1000))
        QSKIP("local sockets of this host are no files", "");
    QTRY_COMPARE_WITH_TIMEOUT(told.size(), 1, kPatienceMs);
    QCOMPARE(told.first().first().toString(), path + QStringLiteral(" is a folder"));
    QVERIFY(QDir().rmdir(path));
    const auto served = [&] {
        client.connectToServer(m_name);
        return client.waitForConnected(100);
    };
    QVERIFY(QTest::qWaitFor(served, kPatienceMs));
    QTRY_COMPARE_WITH_TIMEOUT(consumers().size(), 1, kPatienceMs);
}

QTEST_GUILESS_MAIN(ConsumerGateTest)
#include "tst_consumergate.moc"
