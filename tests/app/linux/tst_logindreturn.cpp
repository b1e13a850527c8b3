// A bus or a logind that comes late, goes away and returns: the notifications go on.
#include "platform/linux/desktop/sessionnotifier.h"
#include "tests/app/linux/mocklogind.h"
#include "tests/app/linux/mutebus.h"
#include "tests/app/linux/sessionwindow.h"

#include <memory>
#include <QElapsedTimer>
#include <QTest>
#include <unistd.h>

namespace {
constexpr int kPatienceMs = 20000;
} // namespace

class LogindReturnTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aBusThatReturnsIsFollowedAgain();
    void aBusThatComesLateIsFollowed();
    void aLogindThatReturnsIsFollowedAgain();
    void aLogindThatComesLateIsFollowed();
    void whoLooksForTheBusDoesNotHoldUpTheWindow();
    void theNotifierMayGoWhileItLooks();

private:
    void start(bool withLogind = true);
    /// Waits for a disconnect of the session: everything sent before has arrived then.
    bool settle(Window *window, const QString &id);
    /// Waits until the window hears of the session, and that it hears everything once.
    void heardAgain(Window *window, const QString &id);
    /// Waits until an attempt of the notifier waits for a bus that does not answer.
    void untilItLooks(const MuteBus &bus);

    std::unique_ptr<MockLogind> m_logind;
};

void LogindReturnTest::init()
{
    qunsetenv("XDG_SESSION_ID");
}

void LogindReturnTest::cleanup()
{
    delete SessionNotifier::instance();
    m_logind.reset();
}

void LogindReturnTest::start(bool withLogind)
{
    m_logind = std::make_unique<MockLogind>(withLogind);
    QVERIFY2(m_logind->valid(), "dbus-daemon and the logind mock (python3-dbusmock) are needed");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_logind->address().toLatin1());
}

bool LogindReturnTest::settle(Window *window, const QString &id)
{
    return m_logind->changeProperty(id, "Active", false)
        && QTest::qWaitFor(
               [&] {
                   const int last = window->codes.indexOf(WTS_CONSOLE_DISCONNECT);
                   if (last < 0)
                       return false;
                   window->codes.remove(last);
                   window->sessions.remove(last);
                   return true;
               },
               kPatienceMs);
}

void LogindReturnTest::heardAgain(Window *window, const QString &id)
{
    QVERIFY(!m_logind->addSession(id, getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", id)); // for one that has asked before
    window->codes.clear();
    QElapsedTimer clock;
    clock.start();
    while (window->codes.isEmpty()) {
        QVERIFY2(clock.elapsed() < 2 * kPatienceMs, "the window hears nothing");
        QVERIFY(m_logind->callSession(id, "Unlock"));
        QTest::qWait(50);
    }
    QVERIFY(settle(window, id));
    window->codes.clear();
    window->sessions.clear();
    QVERIFY(m_logind->changeProperty(id, "Active", true));
    QVERIFY(m_logind->callSession(id, "Lock"));
    QVERIFY(m_logind->callSession(id, "Unlock"));
    QVERIFY(settle(window, id));
    const QVector<int> expected {WTS_CONSOLE_CONNECT, WTS_SESSION_LOCK, WTS_SESSION_UNLOCK};
    QCOMPARE(window->codes, expected);
    QCOMPARE(window->sessions, QVector<int>(3, id.toInt()));
}

void LogindReturnTest::untilItLooks(const MuteBus &bus)
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().toLatin1());
    QVERIFY(QTest::qWaitFor([&] { return bus.isWaitedFor(); }, kPatienceMs));
}

void LogindReturnTest::aBusThatReturnsIsFollowedAgain()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    for (const char *id : {"2", "3"}) {
        m_logind->killBus();
        QTest::qWait(700); // an attempt fails meanwhile
        QVERIFY(m_logind->startBus());
        QVERIFY(m_logind->startLogind());
        heardAgain(&window, QLatin1String(id));
        if (QTest::currentTestFailed())
            return;
    }
}

void LogindReturnTest::aBusThatComesLateIsFollowed()
{
    start(false);
    m_logind->killBus();
    Window window;
    QVERIFY(!window.registerForSession());
    QTest::qWait(700);
    QVERIFY(m_logind->startBus());
    QVERIFY(m_logind->startLogind());
    heardAgain(&window, QStringLiteral("1"));
}

void LogindReturnTest::aLogindThatReturnsIsFollowedAgain()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    m_logind->endLogind();
    QVERIFY(m_logind->startLogind());
    heardAgain(&window, QStringLiteral("2"));
}

void LogindReturnTest::aLogindThatComesLateIsFollowed()
{
    start(false);
    Window window;
    QVERIFY(!window.registerForSession());
    QVERIFY(m_logind->startLogind());
    heardAgain(&window, QStringLiteral("1"));
}

void LogindReturnTest::whoLooksForTheBusDoesNotHoldUpTheWindow()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    Window window;
    QVERIFY(!window.registerForSession());
    const MuteBus bus;
    // Events are handled while it waits: held up by it, this thread would see it only afterwards.
    untilItLooks(bus);
}

void LogindReturnTest::theNotifierMayGoWhileItLooks()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    Window window;
    QVERIFY(!window.registerForSession());
    {
        const MuteBus bus;
        untilItLooks(bus);
        delete SessionNotifier::instance();
    }
    start();
    QVERIFY(window.registerForSession());
    heardAgain(&window, QStringLiteral("1"));
}

QTEST_MAIN(LogindReturnTest)
#include "tst_logindreturn.moc"
