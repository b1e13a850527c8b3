// What is announced for which change of the endpoints, and in which order.

#include "platform/linux/audio/endpointannouncer.h"

#include <QtTest>

namespace {

using Clock = EndpointAnnouncer::Clock;
using namespace std::chrono_literals;

// A server whose state the test sets, and the announcements so far as lines.
class World {
public:
    World() { m_now.serial = 1; }

    void connect()
    {
        ++m_now.connection;
        m_now.connected = true;
        change();
    }

    void disconnect()
    {
        m_now.connected = false;
        m_now.present.clear();
        m_now.defaultId = {};
        change();
    }

    void add(const wchar_t *id, EDataFlow flow = eRender, DWORD state = DEVICE_STATE_ACTIVE)
    {
        SoundEndpoint endpoint;
        endpoint.flow = flow;
        endpoint.index = ++m_index;
        endpoint.id = id;
        endpoint.name = id;
        endpoint.state = state;
        m_now.present.push_back(endpoint);
        change();
    }

    SoundEndpoint &at(const wchar_t *id)
    {
        for (SoundEndpoint &endpoint : m_now.present) {
            if (endpoint.id == id)
                return endpoint;
        }
        qFatal("no such endpoint");
    }

    void remove(const wchar_t *id)
    {
        m_now.present.erase(m_now.present.begin() + (&at(id) - m_now.present.data()));
        change();
    }

    void setDefault(const wchar_t *id, EDataFlow flow = eRender)
    {
        m_now.defaultId[flow] = id;
        change();
    }

    void change() { ++m_now.serial; }

    void pass(std::chrono::milliseconds time) { m_time += time; }

    /// What is announced now, until there is nothing more.
    QStringList lines()
    {
        QStringList result;
        while (const auto announcement = m_announcer.next(m_now, m_time)) {
            const QString id = QString::fromStdWString(announcement->id);
            switch (announcement->kind) {
            case EndpointAnnouncement::Added:
                result << QStringLiteral("added ") + id;
                break;
            case EndpointAnnouncement::Removed:
                result << QStringLiteral("removed ") + id;
                break;
            case EndpointAnnouncement::StateChanged:
                result << QStringLiteral("state %1 %2").arg(id).arg(announcement->state);
                break;
            case EndpointAnnouncement::DefaultChanged:
                result << QStringLiteral("default %1 %2").arg(announcement->flow).arg(id);
                break;
            case EndpointAnnouncement::NameChanged:
                result << QStringLiteral("name ") + id;
                break;
            }
            if (result.size() > 50)
                return {QStringLiteral("no end")};
        }
        return result;
    }

    bool holding() const { return m_announcer.holding(); }
    Clock::duration untilDeadline() const { return m_announcer.deadline() - m_time; }
    bool hasDeadline() const { return m_announcer.deadline() != Clock::time_point::max(); }

private:
    EndpointSnapshot m_now;
    EndpointAnnouncer m_announcer;
    Clock::time_point m_time = Clock::time_point() + 1h;
    std::uint32_t m_index = 0;
};

// Sinks a (the default) and b, a microphone; all of it known.
World started()
{
    World world;
    world.connect();
    world.add(L"a");
    world.add(L"b");
    world.add(L"mic", eCapture);
    world.setDefault(L"a");
    world.setDefault(L"mic", eCapture);
    world.lines();
    return world;
}

QStringList none()
{
    return {};
}

} // namespace

class EndpointAnnouncerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void firstSnapshotIsNotNews();
    void defaultIsAnnouncedAtOnceAndOnce();
    void defaultThatIsNotThereIsNotAnnounced();
    void newEndpointIsAdded();
    void removedEndpointOnlyLeaves();
    void removedDefaultWaitsForItsSuccessor();
    void removedDefaultWithoutSuccessorBecomesNotPresent();
    void removedMicrophoneNeverChangesState();
    void recreatedDefaultIsAnnouncedAgain();
    void plugsChangeTheState();
    void unpluggedDefaultIsNoDefault();
    void renamedEndpoint();
    void serverLossTakesEveryEndpoint();
    void serverReturnBringsStatesThenTheDefault();
    void serverReturnWithAnotherDefault();
    void whatDoesNotReturnIsRemovedLater();
    void serverThatComesLateIsAnnounced();
    void changesWhileNobodyAskedAreCaughtUp();
};

void EndpointAnnouncerTest::firstSnapshotIsNotNews()
{
    World world;
    world.connect();
    world.add(L"a");
    world.setDefault(L"a");
    QCOMPARE(world.lines(), none());
    QVERIFY(!world.hasDeadline());
}

void EndpointAnnouncerTest::defaultIsAnnouncedAtOnceAndOnce()
{
    World world = started();
    world.setDefault(L"b");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 b")});
    world.change();
    QCOMPARE(world.lines(), none());
    world.setDefault(L"a");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 a")});
}

void EndpointAnnouncerTest::defaultThatIsNotThereIsNotAnnounced()
{
    World world = started();
    world.setDefault(L"@DEFAULT_SINK@");
    QCOMPARE(world.lines(), none());
    world.setDefault(L"mic"); // a source is no output
    QCOMPARE(world.lines(), none());
    world.setDefault(L"");
    QCOMPARE(world.lines(), none());
    world.setDefault(L"a");
    QCOMPARE(world.lines(), none());
}

void EndpointAnnouncerTest::newEndpointIsAdded()
{
    World world = started();
    world.setDefault(L"c"); // its name may come before itself
    QCOMPARE(world.lines(), none());
    world.add(L"c");
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("added c"), QStringLiteral("default 0 c")}));
}

void EndpointAnnouncerTest::removedEndpointOnlyLeaves()
{
    World world = started();
    world.remove(L"b");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("removed b")});
}

void EndpointAnnouncerTest::removedDefaultWaitsForItsSuccessor()
{
    World world = started();
    world.remove(L"a");
    QCOMPARE(world.lines(), none());
    QVERIFY(world.holding());
    QVERIFY(world.hasDeadline());
    world.pass(50ms);
    world.setDefault(L"b");
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("default 0 b"), QStringLiteral("removed a")}));
    QVERIFY(!world.holding());
}

void EndpointAnnouncerTest::removedDefaultWithoutSuccessorBecomesNotPresent()
{
    World world = started();
    world.remove(L"b");
    world.remove(L"a");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("removed b")});
    QCOMPARE(world.untilDeadline(), Clock::duration(EndpointAnnouncer::kTakeoverTime));
    world.pass(EndpointAnnouncer::kTakeoverTime);
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("state a 4"), QStringLiteral("removed a")}));
    QVERIFY(!world.hasDeadline());

    world.add(L"a"); // and here it is again
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("added a"), QStringLiteral("default 0 a")}));
}

void EndpointAnnouncerTest::removedMicrophoneNeverChangesState()
{
    World world = started();
    world.remove(L"mic");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("removed mic")});
}

void EndpointAnnouncerTest::recreatedDefaultIsAnnouncedAgain()
{
    World world = started();
    world.remove(L"a");
    world.add(L"a");
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("default 0 a"), QStringLiteral("removed a"),
                           QStringLiteral("added a")}));
}

void EndpointAnnouncerTest::plugsChangeTheState()
{
    World world = started();
    world.at(L"b").state = DEVICE_STATE_UNPLUGGED;
    world.change();
    QCOMPARE(world.lines(), QStringList {QStringLiteral("state b 8")});
    world.at(L"b").state = DEVICE_STATE_ACTIVE;
    world.change();
    QCOMPARE(world.lines(), QStringList {QStringLiteral("state b 1")});
}

void EndpointAnnouncerTest::unpluggedDefaultIsNoDefault()
{
    World world = started();
    world.at(L"a").state = DEVICE_STATE_UNPLUGGED;
    world.change();
    QCOMPARE(world.lines(), QStringList {QStringLiteral("state a 8")});
    world.at(L"a").state = DEVICE_STATE_ACTIVE;
    world.change();
    QCOMPARE(world.lines(), QStringList {QStringLiteral("state a 1")});
}

void EndpointAnnouncerTest::renamedEndpoint()
{
    World world = started();
    world.at(L"a").name = L"another name";
    world.change();
    QCOMPARE(world.lines(), QStringList {QStringLiteral("name a")});
    QCOMPARE(world.lines(), none());
}

void EndpointAnnouncerTest::serverLossTakesEveryEndpoint()
{
    World world = started();
    world.disconnect();
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("state a 4"), QStringLiteral("state b 4"),
                           QStringLiteral("state mic 4")}));
    QVERIFY(!world.hasDeadline());
}

void EndpointAnnouncerTest::serverReturnBringsStatesThenTheDefault()
{
    World world = started();
    world.disconnect();
    world.lines();
    world.pass(1s);
    world.connect();
    world.add(L"a");
    world.setDefault(L"a");
    world.add(L"b");
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("state a 1"), QStringLiteral("state b 1")}));
    QVERIFY(world.holding());
    QCOMPARE(world.untilDeadline(), Clock::duration(EndpointAnnouncer::kSettleTime));
    world.pass(EndpointAnnouncer::kSettleTime);
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 a")});
}

void EndpointAnnouncerTest::serverReturnWithAnotherDefault()
{
    World world = started();
    world.disconnect();
    world.lines();
    world.connect();
    world.add(L"new");
    world.setDefault(L"new");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("added new")});
    world.pass(EndpointAnnouncer::kSettleTime);
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 new")});
}

void EndpointAnnouncerTest::whatDoesNotReturnIsRemovedLater()
{
    World world = started();
    world.disconnect();
    world.lines();
    world.pass(10s);
    world.connect();
    world.add(L"b");
    world.setDefault(L"b");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("state b 1")});
    world.pass(EndpointAnnouncer::kSettleTime);
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 b")});
    QVERIFY(!world.holding());
    QVERIFY(world.hasDeadline());
    world.pass(EndpointAnnouncer::kReturnTime);
    QCOMPARE(world.lines(),
             (QStringList {QStringLiteral("removed a"), QStringLiteral("removed mic")}));
}

void EndpointAnnouncerTest::serverThatComesLateIsAnnounced()
{
    World world;
    QCOMPARE(world.lines(), none());
    world.connect();
    world.add(L"a");
    world.setDefault(L"a");
    QCOMPARE(world.lines(), QStringList {QStringLiteral("added a")});
    world.pass(EndpointAnnouncer::kSettleTime);
    QCOMPARE(world.lines(), QStringList {QStringLiteral("default 0 a")});
}

void EndpointAnnouncerTest::changesWhileNobodyAskedAreCaughtUp()
{
    World world = started();
    world.disconnect();
    world.connect();
    world.add(L"b");
    world.add(L"a");
    world.setDefault(L"a");
    // The loss and the return were over before either could be told: every endpoint is another.
    const QStringList now = world.lines();
    world.pass(EndpointAnnouncer::kSettleTime);
    const QStringList later = world.lines();
    QVERIFY2(now.contains(QStringLiteral("removed b")) && now.contains(QStringLiteral("added b")),
             qPrintable(now.join(QLatin1String(", "))));
    QVERIFY2(later.contains(QStringLiteral("default 0 a")),
             qPrintable(later.join(QLatin1String(", "))));
}

QTEST_GUILESS_MAIN(EndpointAnnouncerTest)
#include "tst_endpointannouncer.moc"
