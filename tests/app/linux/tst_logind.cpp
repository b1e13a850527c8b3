// The session's notifications from a mocked logind, to a bare window and to the real one.
#include "app/widget.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/app/linux/mocklogind.h"
#include "tests/app/linux/mutebus.h"
#include "tests/app/linux/sessionwindow.h"
#include "tests/support/fakeaudio.h"

#include <windows.h>
#include <memory>
#include <QElapsedTimer>
#include <QTest>
#include <QTextBrowser>
#include <unistd.h>
#include <wtsapi32.h>

namespace {

constexpr int kPatienceMs = 20000;

FakeAudio &world()
{
    static FakeAudio audio;
    return audio;
}

uint otherUser()
{
    return getuid() + 1;
}

} // namespace

class LogindTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void withoutABusRegistrationFailsPromptly();
    void withoutLogindRegistrationFailsPromptly();
    void busThatDoesNotAnswerIsGivenUpSoon();
    void otherFlagsAndNoWindowAreRefused();
    void signalsBecomeMessages();
    void lockedHintBecomesMessagesOnce();
    void aNewSessionOfThisUserIsALogOn();
    void whatIsNoLogOnOfThisUserIsIgnored();
    void theSessionOfTheEnvironmentIsFollowed();
    void whenTheSessionEndsTheNextOneIsFollowed();
    void onlyADesktopIsFollowed();
    void everyWindowIsTold();
    void theBusMayGo();
    void afterARestartOfTheBusEventsRestartCapture();
    void unlockLogOnAndConnectRestartCaptureLockAndDisconnectDoNot();

private:
    void start(bool withLogind = true);
    /// Waits for a final disconnect: everything sent before has arrived then. Once in a test.
    bool settle(Window *window, const QString &id);

    std::unique_ptr<MockLogind> m_logind;
};

void LogindTest::initTestCase()
{
    world().add(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    world().setDefault(QStringLiteral("speakers"));
    setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
}

void LogindTest::init()
{
    qunsetenv("XDG_SESSION_ID");
}

void LogindTest::cleanup()
{
    // The notifier notices the end of its bus, and the next registration looks for a new one.
    m_logind.reset();
    QTest::qWait(200);
}

void LogindTest::start(bool withLogind)
{
    m_logind = std::make_unique<MockLogind>(withLogind);
    QVERIFY2(m_logind->valid(), "dbus-daemon and the logind mock (python3-dbusmock) are needed");
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_logind->address().toLatin1());
}

bool LogindTest::settle(Window *window, const QString &id)
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

void LogindTest::withoutABusRegistrationFailsPromptly()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    Window window;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!window.registerForSession());
    QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
}

void LogindTest::withoutLogindRegistrationFailsPromptly()
{
    start(false);
    Window window;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!window.registerForSession());
    QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
}

void LogindTest::busThatDoesNotAnswerIsGivenUpSoon()
{
    const MuteBus bus;
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().toLatin1());
    Window window;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!window.registerForSession());
    const qint64 elapsed = clock.elapsed();
    QVERIFY2(elapsed >= 900 && elapsed < 10000, qPrintable(QString::number(elapsed)));
}

void LogindTest::otherFlagsAndNoWindowAreRefused()
{
    start();
    Window window;
    QVERIFY(!WTSRegisterSessionNotification(reinterpret_cast<HWND>(window.winId()), 1));
    QVERIFY(!WTSRegisterSessionNotification(nullptr, NOTIFY_FOR_THIS_SESSION));
}

void LogindTest::signalsBecomeMessages()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("7"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    QVERIFY(m_logind->callSession(QStringLiteral("7"), "Lock"));
    QVERIFY(m_logind->callSession(QStringLiteral("7"), "Unlock"));
    QVERIFY(m_logind->changeProperty(QStringLiteral("7"), "Active", false));
    QVERIFY(m_logind->changeProperty(QStringLiteral("7"), "Active", true));
    QVERIFY(m_logind->changeProperty(QStringLiteral("7"), "IdleHint", true));
    QVERIFY(m_logind->callSession(QStringLiteral("7"), "Unlock"));
    const QVector<int> expected {WTS_SESSION_LOCK, WTS_SESSION_UNLOCK, WTS_CONSOLE_DISCONNECT,
                                 WTS_CONSOLE_CONNECT, WTS_SESSION_UNLOCK};
    QTRY_COMPARE_WITH_TIMEOUT(window.codes, expected, kPatienceMs);
    QCOMPARE(window.sessions, QVector<int>(5, 7));
    QVERIFY(window.forThisWindow);
}

void LogindTest::lockedHintBecomesMessagesOnce()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "LockedHint", true));
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "LockedHint", false));
    // A locker that obeys the request sets the hint as well: that is no second message.
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Lock"));
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "LockedHint", true));
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Unlock"));
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "LockedHint", false));
    QVERIFY(settle(&window, QStringLiteral("1")));
    const QVector<int> expected {WTS_SESSION_LOCK, WTS_SESSION_UNLOCK, WTS_SESSION_LOCK,
                                 WTS_SESSION_UNLOCK};
    QCOMPARE(window.codes, expected);
}

void LogindTest::aNewSessionOfThisUserIsALogOn()
{
    start();
    Window window;
    // This user has no session yet, and the window is registered all the same.
    QVERIFY(window.registerForSession());
    QVERIFY(!m_logind->addSession(QStringLiteral("c3"), getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("c3")));
    QTRY_COMPARE_WITH_TIMEOUT(window.codes, QVector<int> {WTS_SESSION_LOGON}, kPatienceMs);
    QCOMPARE(window.sessions, QVector<int> {0});
    // From now on the notifier follows the session that was just added.
    QVERIFY(m_logind->callSession(QStringLiteral("c3"), "Unlock"));
    QTRY_COMPARE_WITH_TIMEOUT(window.codes.size(), 2, kPatienceMs);
    QCOMPARE(window.codes.last(), static_cast<int>(WTS_SESSION_UNLOCK));
}

void LogindTest::whatIsNoLogOnOfThisUserIsIgnored()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    QVERIFY(!m_logind->addSession(QStringLiteral("2"), otherUser()).isEmpty());
    QVERIFY(!m_logind->addSession(QStringLiteral("3"), getuid(), true).isEmpty());
    QVERIFY(
        !m_logind->addSession(QStringLiteral("4"), getuid(), false, QStringLiteral("background"))
             .isEmpty());
    for (const char *id : {"2", "3", "4", "nonexistent"})
        QVERIFY(m_logind->emitManagerSignal("SessionNew", QLatin1String(id)));
    QVERIFY(m_logind->callSession(QStringLiteral("2"), "Unlock"));
    QVERIFY(m_logind->changeProperty(QStringLiteral("3"), "Active", false));
    QVERIFY(settle(&window, QStringLiteral("1")));
    QTest::qWait(200);
    QCOMPARE(window.codes, QVector<int>());
}

void LogindTest::theSessionOfTheEnvironmentIsFollowed()
{
    start();
    for (const char *id : {"1", "2", "3"})
        QVERIFY(!m_logind->addSession(QLatin1String(id), getuid()).isEmpty());
    qputenv("XDG_SESSION_ID", "2");
    Window window;
    QVERIFY(window.registerForSession());
    for (const char *id : {"1", "3", "2"})
        QVERIFY(m_logind->callSession(QLatin1String(id), "Unlock"));
    QVERIFY(settle(&window, QStringLiteral("2")));
    QCOMPARE(window.codes, QVector<int> {WTS_SESSION_UNLOCK});
    QCOMPARE(window.sessions, QVector<int> {2});
}

void LogindTest::whenTheSessionEndsTheNextOneIsFollowed()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    QVERIFY(m_logind->emitManagerSignal("SessionRemoved", QStringLiteral("1")));
    QVERIFY(!m_logind->addSession(QStringLiteral("2"), getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("2")));
    QTRY_COMPARE_WITH_TIMEOUT(window.codes, QVector<int> {WTS_SESSION_LOGON}, kPatienceMs);
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Unlock"));
    QVERIFY(settle(&window, QStringLiteral("2")));
    QCOMPARE(window.codes, QVector<int> {WTS_SESSION_LOGON});
}

void LogindTest::onlyADesktopIsFollowed()
{
    // A log-in over the network and a background one, both before the desktop; a console log-in
    // without a seat and then the desktop while the window listens.
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    QVERIFY(m_logind->unseat(QStringLiteral("1")));
    QVERIFY(
        !m_logind->addSession(QStringLiteral("2"), getuid(), false, QStringLiteral("background"))
             .isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    QVERIFY(!m_logind->addSession(QStringLiteral("3"), getuid()).isEmpty());
    QVERIFY(m_logind->unseat(QStringLiteral("3")));
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("3")));
    QTRY_COMPARE_WITH_TIMEOUT(window.codes, QVector<int> {WTS_SESSION_LOGON}, kPatienceMs);
    QVERIFY(!m_logind->addSession(QStringLiteral("4"), getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("4")));
    QTRY_COMPARE_WITH_TIMEOUT(window.codes.size(), 2, kPatienceMs);
    for (const char *id : {"1", "2", "3", "4"})
        QVERIFY(m_logind->callSession(QLatin1String(id), "Unlock"));
    QVERIFY(settle(&window, QStringLiteral("4")));
    const QVector<int> expected {WTS_SESSION_LOGON, WTS_SESSION_LOGON, WTS_SESSION_UNLOCK};
    QCOMPARE(window.codes, expected);
    const QVector<int> sessions {3, 4, 4};
    QCOMPARE(window.sessions, sessions);
}

void LogindTest::everyWindowIsTold()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window first;
    QVERIFY(first.registerForSession());
    QVERIFY(first.registerForSession());
    {
        Window gone;
        QVERIFY(gone.registerForSession());
    }
    Window second;
    QVERIFY(second.registerForSession());
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Lock"));
    QTRY_COMPARE_WITH_TIMEOUT(second.codes, QVector<int> {WTS_SESSION_LOCK}, kPatienceMs);
    QCOMPARE(first.codes, QVector<int> {WTS_SESSION_LOCK});
}

void LogindTest::theBusMayGo()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Window window;
    QVERIFY(window.registerForSession());
    m_logind.reset();
    QTest::qWait(300);
    QCOMPARE(window.codes, QVector<int>());
}

void LogindTest::afterARestartOfTheBusEventsRestartCapture()
{
    start();
    Widget widget;
    QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
    m_logind->killBus();
    QVERIFY(m_logind->startBus());
    QVERIFY(m_logind->startLogind());
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("1")));
    const auto *const log = widget.findChild<QTextBrowser *>();
    const int starts = world().calls(FakeCall::Initialize);
    QElapsedTimer clock;
    clock.start();
    while (!log->toPlainText().contains(QStringLiteral("用户登录：重启服务"))) {
        QVERIFY2(clock.elapsed() < 2 * kPatienceMs, "nothing restarts");
        QVERIFY(m_logind->callSession(QStringLiteral("1"), "Unlock"));
        QTest::qWait(50);
    }
    QVERIFY(
        QTest::qWaitFor([&] { return world().calls(FakeCall::Initialize) > starts; }, kPatienceMs));
    QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
}

void LogindTest::unlockLogOnAndConnectRestartCaptureLockAndDisconnectDoNot()
{
    start();
    QVERIFY(!m_logind->addSession(QStringLiteral("1"), getuid()).isEmpty());
    Widget widget;
    widget.show();
    QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
    const auto *const log = widget.findChild<QTextBrowser *>();
    const auto restarts = [log] {
        return log->toPlainText().count(QStringLiteral("用户登录：重启服务"));
    };
    int starts = world().calls(FakeCall::Initialize);
    int expected = 0;
    const auto restarted = [&] {
        QElapsedTimer clock;
        ++expected;
        QTRY_COMPARE_WITH_TIMEOUT(restarts(), expected, kPatienceMs);
        clock.start();
        QVERIFY(!SpecEngine::instance()->isCapturing());
        QTRY_VERIFY_WITH_TIMEOUT(SpecEngine::instance()->isCapturing(), kPatienceMs);
        QVERIFY2(clock.elapsed() >= 800, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(world().calls(FakeCall::Initialize), ++starts);
        QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
    };

    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Lock"));
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Unlock"));
    restarted();
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "Active", false));
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "Active", true));
    restarted();
    QVERIFY(!m_logind->addSession(QStringLiteral("2"), getuid()).isEmpty());
    QVERIFY(m_logind->emitManagerSignal("SessionNew", QStringLiteral("2")));
    restarted();
    QVERIFY(m_logind->callSession(QStringLiteral("1"), "Lock"));
    QVERIFY(m_logind->changeProperty(QStringLiteral("1"), "Active", false));
    QTest::qWait(1300);
    QCOMPARE(restarts(), expected);
    QVERIFY(SpecEngine::instance()->isCapturing());
    QCOMPARE(world().calls(FakeCall::Initialize), starts);
}

QTEST_MAIN(LogindTest)
#include "tst_logind.moc"
