// Why the service is not there: what is said of what is known, and what is found at the socket.
#include "tests/support/privatefolder.h"
#include "tools/monitor/serviceprobe.h"
#include "tools/monitor/servicewatch.h"
#include "tools/monitor/waitreason.h"

#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QSignalSpy>
#include <QTest>

namespace {

constexpr int kPatienceMs = 20000;

/// The first packet of a host: of Qt 5, or of Qt 6.
QByteArray handshake(const QString &protocol, bool six = false)
{
    QByteArray packet;
    QDataStream stream(&packet, QIODevice::WriteOnly);
    stream.setByteOrder(six ? QDataStream::LittleEndian : QDataStream::BigEndian);
    stream << quint32 {0} << quint16 {1} << protocol;
    return packet;
}

ServiceLookup installed()
{
    ServiceLookup lookup;
    lookup.socket = QDir::tempPath() + QStringLiteral("/tonewell");
    lookup.startCommand = QStringList {QStringLiteral("systemctl"), QStringLiteral("--user"),
                                       QStringLiteral("start"), QStringLiteral("it")};
    return lookup;
}

} // namespace

class WaitReasonTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void notInstalled();
    void notRunning();
    void anotherUserHoldsTheSocket();
    void anotherTemporaryFolder();
    void runsWithoutAnswer();
    void theOtherGeneration_data();
    void theOtherGeneration();
    void whatHasJustAnsweredMayPublishIt();
    void whatHoldsTheSocketSaysNothing();
    void theServiceIsFull();
    void protocolIsReadFromThePacket();
    void probeFindsNobody();
    void probeFindsAHost();
    void probeFindsAMute();
    void probeFindsOneThatHangsUp();
    void aReasonIsSaidWhenItLasts();
    void aReasonIsSaidAtOnceWhenAskedFor();
    void aReasonThatIsNoMoreIsTakenBack();

private:
    std::unique_ptr<PrivateFolder> m_folder;
};

void WaitReasonTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
    qputenv("TONEWELL_PROCESSES", QFile::encodeName(m_folder->path())); // without anybody's copies
}

void WaitReasonTest::cleanup()
{
    m_folder.reset();
}

void WaitReasonTest::notInstalled()
{
    ServiceLookup lookup = installed();
    lookup.startCommand.clear();
    const WaitReason reason = WaitReason::explain(lookup, {});
    QCOMPARE(reason.text(), QStringLiteral("it is not installed"));
    QVERIFY(reason.startCommand().isEmpty());
}

void WaitReasonTest::notRunning()
{
    const WaitReason reason = WaitReason::explain(installed(), {});
    QCOMPARE(reason.text(),
             QStringLiteral("it is not running; this starts it: systemctl --user start it"));
    QCOMPARE(reason.startCommand(), installed().startCommand);
}

void WaitReasonTest::anotherUserHoldsTheSocket()
{
    ServiceLookup lookup = installed();
    lookup.foreignOwner = QStringLiteral("eve");
    QCOMPARE(WaitReason::explain(lookup, {}).text(),
             QStringLiteral("user eve holds its socket ") + lookup.socket);
    lookup.runningIn.append(QDir::tempPath());
    const WaitReason reason = WaitReason::explain(lookup, {});
    QCOMPARE(reason.text(),
             QStringLiteral("it runs, but user eve holds its socket ") + lookup.socket);
    QVERIFY(reason.startCommand().isEmpty()); // to start it once more would change nothing
}

void WaitReasonTest::anotherTemporaryFolder()
{
    ServiceLookup lookup = installed();
    lookup.runningIn.append(QStringLiteral("/elsewhere"));
    const WaitReason reason = WaitReason::explain(lookup, {});
    QCOMPARE(reason.text(),
             QStringLiteral("it runs with another TMPDIR: /elsewhere there, %1 here")
                 .arg(QDir::tempPath()));
    QVERIFY(reason.startCommand().isEmpty());
    // Of two, which is meant is not known.
    lookup.runningIn.append(QStringLiteral("/at/another"));
    QCOMPARE(WaitReason::explain(lookup, {}).text(),
             QStringLiteral("it runs with another TMPDIR: /elsewhere, /at/another there, %1 here")
                 .arg(QDir::tempPath()));
}

void WaitReasonTest::runsWithoutAnswer()
{
    ServiceLookup lookup = installed();
    lookup.runningIn = QStringList {QStringLiteral("/elsewhere"), QDir::tempPath()};
    QCOMPARE(WaitReason::explain(lookup, {}).text(),
             QStringLiteral("it runs, but its socket %1 does not answer").arg(lookup.socket));
}

void WaitReasonTest::theOtherGeneration_data()
{
    QTest::addColumn<QString>("protocol");
    QTest::addColumn<int>("generation");
    QTest::addColumn<QString>("text");
    const QString other = QStringLiteral("it speaks %1, which programs of Qt %2 do not understand");
    const QString nothing =
        QStringLiteral("what answers at its socket publishes nothing named Tonewell");
    const QString five = QStringLiteral("QtRO 1.3");
    const QString six = QStringLiteral("QtRO 2.0");
    QTest::newRow("6 waits for 5") << five << 6 << other.arg(five).arg(6);
    QTest::newRow("5 waits for 6") << six << 5 << other.arg(six).arg(5);
    QTest::newRow("5 finds 5") << five << 5 << nothing;
    QTest::newRow("6 finds 6") << six << 6 << nothing;
}

void WaitReasonTest::whatHasJustAnsweredMayPublishIt()
{
    const ProbeResult probe {true, QStringLiteral("QtRO %1.0").arg(QT_VERSION_MAJOR - 4), false};
    QCOMPARE(WaitReason::explain(installed(), probe, false).text(),
             QStringLiteral("it answers, but has sent nothing yet"));
}

void WaitReasonTest::theOtherGeneration()
{
    QFETCH(QString, protocol);
    QFETCH(int, generation);
    QFETCH(QString, text);
    QCOMPARE(WaitReason::explain(installed(), {true, protocol, false}, true, generation).text(),
             text);
}

void WaitReasonTest::whatHoldsTheSocketSaysNothing()
{
    const QString text =
        QStringLiteral("what holds its socket says nothing: another program, or it hangs");
    QCOMPARE(WaitReason::explain(installed(), {true, {}, false}).text(), text);
    QCOMPARE(WaitReason::explain(installed(), {true, {}, true}).text(), text);
    ServiceLookup lookup = installed();
    lookup.runningIn = QStringList {QDir::tempPath()};
    QCOMPARE(WaitReason::explain(lookup, {true, {}, false}).text(), text);
    lookup.runningIn = QStringList {QStringLiteral("/elsewhere")};
    QCOMPARE(WaitReason::explain(lookup, {true, {}, true}).text(), text);
}

void WaitReasonTest::theServiceIsFull()
{
    ServiceLookup lookup = installed();
    lookup.runningIn = QStringList {QStringLiteral("/elsewhere"), QDir::tempPath()};
    const WaitReason reason = WaitReason::explain(lookup, {true, {}, true});
    QCOMPARE(
        reason.text(),
        QStringLiteral("it takes no more consumers; as soon as one of them ends, there is room"));
    QVERIFY(reason.startCommand().isEmpty()); // it runs
}

void WaitReasonTest::protocolIsReadFromThePacket()
{
    for (const bool six : {false, true}) {
        const QString protocol = six ? QStringLiteral("QtRO 2.0") : QStringLiteral("QtRO 1.3");
        const QByteArray packet = handshake(protocol, six);
        QCOMPARE(ServiceProbe::protocolOf(packet), protocol);
        QCOMPARE(ServiceProbe::protocolOf(packet + "more"), protocol);
        for (int size = 0; size < packet.size(); ++size)
            QCOMPARE(ServiceProbe::protocolOf(packet.left(size)), QString());
    }
    // As a host of Qt 6.8.2 sent it.
    QCOMPARE(ServiceProbe::protocolOf(QByteArray::fromHex("16000000010010000000510074005200"
                                                          "4f00200032002e003000"
                                                          "6800000009000100")),
             QStringLiteral("QtRO 2.0"));
    QCOMPARE(ServiceProbe::protocolOf(handshake(QStringLiteral("HTTP/1.1"))), QString());
    QCOMPARE(ServiceProbe::protocolOf(QByteArray(64, '\xff')), QString());
}

void WaitReasonTest::probeFindsNobody()
{
    ServiceProbe probe;
    QSignalSpy spy(&probe, &ServiceProbe::finished);
    ProbeResult result {true, QStringLiteral("x"), true};
    connect(&probe, &ServiceProbe::finished, this, [&](const ProbeResult &r) { result = r; });
    probe.start();
    QTRY_COMPARE_WITH_TIMEOUT(spy.size(), 1, kPatienceMs);
    QVERIFY(!result.accepted);
    QVERIFY(!result.hungUp);
    QVERIFY(result.protocol.isEmpty());
}

void WaitReasonTest::probeFindsAHost()
{
    QLocalServer server;
    QVERIFY(server.listen(QStringLiteral("tonewell")));
    connect(&server, &QLocalServer::newConnection, this,
            [&] { server.nextPendingConnection()->write(handshake(QStringLiteral("QtRO 7.5"))); });
    ServiceProbe probe;
    ProbeResult result;
    connect(&probe, &ServiceProbe::finished, this, [&](const ProbeResult &r) { result = r; });
    for (int i = 0; i < 2; ++i) { // as often as wanted
        result = {};
        probe.start();
        QTRY_VERIFY_WITH_TIMEOUT(result.accepted, kPatienceMs);
        QCOMPARE(result.protocol, QStringLiteral("QtRO 7.5"));
        QVERIFY(!result.hungUp);
    }
}

void WaitReasonTest::probeFindsAMute()
{
    QLocalServer server;
    QVERIFY(server.listen(QStringLiteral("tonewell")));
    ServiceProbe probe;
    int results = 0;
    ProbeResult result;
    connect(&probe, &ServiceProbe::finished, this, [&](const ProbeResult &r) {
        result = r;
        ++results;
    });
    probe.start();
    QTRY_COMPARE_WITH_TIMEOUT(results, 1, kPatienceMs);
    QVERIFY(result.accepted);
    QVERIFY(!result.hungUp);
    QVERIFY(result.protocol.isEmpty());
}

void WaitReasonTest::probeFindsOneThatHangsUp()
{
    QLocalServer server;
    QVERIFY(server.listen(QStringLiteral("tonewell")));
    connect(&server, &QLocalServer::newConnection, this,
            [&] { server.nextPendingConnection()->abort(); });
    ServiceProbe probe;
    int results = 0;
    ProbeResult result;
    connect(&probe, &ServiceProbe::finished, this, [&](const ProbeResult &r) {
        result = r;
        ++results;
    });
    probe.start();
    QTRY_COMPARE_WITH_TIMEOUT(results, 1, kPatienceMs);
    QVERIFY(result.accepted);
    QVERIFY(result.hungUp);
    QVERIFY(result.protocol.isEmpty());
}

void WaitReasonTest::aReasonIsSaidWhenItLasts()
{
    // It is waited for already when something takes the name: what is found there must last as long
    // as if that had been the begin.
    ServiceWatch watch;
    QElapsedTimer sinceChange;
    qint64 said = -1;
    connect(&watch, &ServiceWatch::explained, this, [&](const WaitReason &reason) {
        if (reason.text().contains(QStringLiteral("says nothing")) && said < 0)
            said = sinceChange.elapsed();
    });
    watch.setWaiting(true);
    QTest::qWait(ServiceWatch::kPatienceMs - 500);
    QLocalServer mute;
    sinceChange.start();
    QVERIFY(mute.listen(QStringLiteral("tonewell")));
    QTRY_VERIFY_WITH_TIMEOUT(said >= 0, kPatienceMs);
    QVERIFY2(said >= ServiceWatch::kPatienceMs, qPrintable(QString::number(said)));
}

void WaitReasonTest::aReasonIsSaidAtOnceWhenAskedFor()
{
    ServiceWatch watch;
    QSignalSpy spy(&watch, &ServiceWatch::explained);
    QString reason;
    connect(&watch, &ServiceWatch::explained, this,
            [&](const WaitReason &said) { reason = said.text(); });
    watch.lookAtOnce(); // nobody waits
    watch.setWaiting(true);
    QVERIFY(spy.isEmpty());
    watch.lookAtOnce();
    QTRY_VERIFY_WITH_TIMEOUT(!spy.isEmpty(), kPatienceMs);
    QVERIFY2(reason.startsWith(QStringLiteral("it is not ")), qPrintable(reason));
}

void WaitReasonTest::aReasonThatIsNoMoreIsTakenBack()
{
    ServiceWatch watch;
    QStringList said;
    connect(&watch, &ServiceWatch::explained, this,
            [&](const WaitReason &reason) { said.append(reason.text()); });
    watch.setWaiting(true);
    QTRY_COMPARE_WITH_TIMEOUT(said.size(), 1, kPatienceMs);
    QLocalServer mute;
    QVERIFY(mute.listen(QStringLiteral("tonewell")));
    QTRY_COMPARE_WITH_TIMEOUT(said.size(), 3, kPatienceMs);
    QVERIFY2(said.at(0).startsWith(QStringLiteral("it is not ")), qPrintable(said.at(0)));
    QCOMPARE(said.at(1), QString());
    QVERIFY2(said.at(2).contains(QStringLiteral("says nothing")), qPrintable(said.at(2)));
}

QTEST_GUILESS_MAIN(WaitReasonTest)
#include "tst_waitreason.moc"
