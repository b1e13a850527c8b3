// The session's events as window messages, and the restart that they cause.
#include "app/widget.h"
#include "platform/qtgeneration.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/messagelog.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <windows.h>
#include <memory>
#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <QTextBrowser>
#include <wtsapi32.h>

namespace {

constexpr int kPatienceMs = 20000;

// Milliseconds from an event to the start that answers it, which begins with the end of the old
// client and goes on after a pause.
constexpr qint64 kRestartMs = 1000;
constexpr qint64 kPauseMs = 500;

FakeAudio &world()
{
    static FakeAudio audio;
    return audio;
}

class OpenWidget : public Widget {
public:
    using Widget::nativeEvent;

    /// Passes the message in. Returns what nativeEvent returned.
    bool pass(UINT id, WPARAM code, const char *type = "windows_generic_MSG")
    {
        MSG message = {};
        message.hwnd = reinterpret_cast<HWND>(winId());
        message.message = id;
        message.wParam = code;
        message.lParam = 1;
        NativeEventResult result = 4711;
        const bool consumed = nativeEvent(type, &message, &result);
        resultUntouched = result == 4711;
        return consumed;
    }

    bool resultUntouched = false;
};

} // namespace

class SessionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void everyCode_data();
    void everyCode();
    void otherMessagesPassUnchanged_data();
    void otherMessagesPassUnchanged();
    void lockThenUnlockRestartsAfterASecond();
    void logOnWhileStoppedStarts();
    void logOnWhileARestartIsPendingStopsNothing();
    void consoleDisconnectLeavesCaptureAsItWas();
    void twoEventsStopOnceAndStartTwice();
    void destroyedWindowStartsNothing();
    void registrationIsLoggedAndItsFailureChangesNothing();

private:
    static void failOnReports()
    {
        setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
    }
    /// The start that answers an event of that moment comes a second after it, to the millisecond.
    static void startsAfterASecond(qint64 eventMs)
    {
        spin(10); // the old session ends
        const int stops = world().calls(FakeCall::Stop);
        const int starts = world().calls(FakeCall::Initialize);
        spin(static_cast<int>(eventMs + kRestartMs - 1 - world().nowMs()));
        QCOMPARE(world().calls(FakeCall::Stop), stops);
        spin(1);
        QCOMPARE(world().calls(FakeCall::Stop), stops + 1);
        QCOMPARE(world().records(FakeCall::Stop).last().atMs, eventMs + kRestartMs);
        QCOMPARE(world().calls(FakeCall::Initialize), starts + 1);
        QCOMPARE(world().records(FakeCall::Initialize).last().atMs,
                 eventMs + kRestartMs + kPauseMs);
    }
    QString logView() const { return m_widget->findChild<QTextBrowser *>()->toPlainText(); }

    std::unique_ptr<OpenWidget> m_widget;
};

void SessionTest::initTestCase()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    world().add(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    world().setDefault(QStringLiteral("speakers"));
    failOnReports();
}

void SessionTest::init()
{
    m_widget = std::make_unique<OpenWidget>();
    m_widget->show();
    QVERIFY(waitUntil([&] { return !world().capturedDevice().isEmpty(); }, kPatienceMs));
}

void SessionTest::cleanup()
{
    m_widget.reset();
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
}

void SessionTest::everyCode_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("restarts");
    QTest::newRow("console connect") << 1 << QStringLiteral("会话连接") << true;
    QTest::newRow("console disconnect") << 2 << QStringLiteral("系统注销") << false;
    QTest::newRow("remote connect") << 3 << QString() << false;
    QTest::newRow("remote disconnect") << 4 << QString() << false;
    QTest::newRow("log-on") << 5 << QStringLiteral("用户登录") << true;
    QTest::newRow("log-off") << 6 << QString() << false;
    QTest::newRow("lock") << 7 << QStringLiteral("系统锁屏") << false;
    QTest::newRow("unlock") << 8 << QStringLiteral("系统解锁") << true;
    QTest::newRow("remote control") << 9 << QString() << false;
    QTest::newRow("0") << 0 << QString() << false;
}

void SessionTest::everyCode()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(bool, restarts);
    MessageLog log;
    QVERIFY(!m_widget->pass(WM_WTSSESSION_CHANGE, static_cast<WPARAM>(code)));
    QVERIFY(m_widget->resultUntouched);
    QStringList expected;
    if (!text.isEmpty())
        expected.append(text);
    QCOMPARE(log.texts().mid(0, expected.size()), expected);
    for (const char *other : {"会话连接", "系统注销", "用户登录", "系统锁屏", "系统解锁"})
        QCOMPARE(log.count(QString::fromUtf8(other)),
                 static_cast<int>(text == QString::fromUtf8(other)));
    QCOMPARE(logView(), restarts ? QStringLiteral("用户登录：重启服务") : QString());
    QCOMPARE(SpecEngine::instance()->isCapturing(), !restarts);
}

void SessionTest::otherMessagesPassUnchanged_data()
{
    QTest::addColumn<uint>("id");
    QTest::addColumn<QByteArray>("type");
    QTest::newRow("other message") << 0x0010U << QByteArray("windows_generic_MSG");
    QTest::newRow("neighbour") << 0x02B2U << QByteArray("windows_generic_MSG");
    QTest::newRow("other window system") << 0x02B1U << QByteArray("xcb_generic_event_t");
}

void SessionTest::otherMessagesPassUnchanged()
{
    QFETCH(uint, id);
    QFETCH(QByteArray, type);
    MessageLog log;
    QVERIFY(!m_widget->pass(id, WTS_SESSION_UNLOCK, type.constData()));
    QVERIFY(m_widget->resultUntouched);
    QVERIFY(!log.contains(QStringLiteral("系统解锁")));
    QCOMPARE(logView(), QString());
    QVERIFY(SpecEngine::instance()->isCapturing());
}

void SessionTest::lockThenUnlockRestartsAfterASecond()
{
    MessageLog log;
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK);
    QVERIFY(SpecEngine::instance()->isCapturing());
    QCOMPARE(logView(), QString());
    const int starts = world().calls(FakeCall::Initialize);
    const qint64 eventMs = world().nowMs();
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK);
    QCOMPARE(logView(), QStringLiteral("用户登录：重启服务"));
    QVERIFY(!SpecEngine::instance()->isCapturing());
    QVERIFY(log.inOrder({QStringLiteral("系统锁屏"), QStringLiteral("系统解锁")}));
    startsAfterASecond(eventMs);
    QCOMPARE(world().calls(FakeCall::Initialize), starts + 1);
    QVERIFY(waitUntil([&] { return world().capturedDevice() == QStringLiteral("speakers"); },
                      kPatienceMs));
    QVERIFY(SpecEngine::instance()->isCapturing());
    spin(5000);
    QCOMPARE(world().calls(FakeCall::Initialize), starts + 1);
}

void SessionTest::logOnWhileStoppedStarts()
{
    Q_EMIT m_widget->findChild<QPushButton *>(QStringLiteral("pushButton_2"))->released();
    QVERIFY(waitUntil([&] { return world().capturedDevice().isEmpty(); }, kPatienceMs));
    const int starts = world().calls(FakeCall::Initialize);
    const qint64 eventMs = world().nowMs();
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_LOGON);
    QCOMPARE(logView(), QStringLiteral("停止\n用户登录：重启服务"));
    startsAfterASecond(eventMs);
    QCOMPARE(world().calls(FakeCall::Initialize), starts + 1);
    QVERIFY(waitUntil([&] { return world().capturedDevice() == QStringLiteral("speakers"); },
                      kPatienceMs));
}

void SessionTest::logOnWhileARestartIsPendingStopsNothing()
{
    // The worker could not begin: nothing runs, and the restart of 500 ms waits. A stop would call
    // it off.
    setReportSink([](const QString &) {});
    MessageLog log;
    world().fail(FakeCall::Start, {E_FAIL}, world().calls(FakeCall::Start) + 1, 1);
    SpecEngine::instance()->start();
    QVERIFY(waitUntil([&] { return log.contains(QStringLiteral("需要自动重启，延迟500ms")); },
                      kPatienceMs));
    QVERIFY(!SpecEngine::instance()->isCapturing());
    const int starts = world().calls(FakeCall::Initialize);
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_LOGON);
    QVERIFY(
        waitUntil([&] { return world().calls(FakeCall::Initialize) == starts + 2; }, kPatienceMs));
    QVERIFY(log.inOrder({QStringLiteral("用户登录"),
                         QStringLiteral("[handleThreadStopped] 正在执行自动重启..."),
                         QStringLiteral("[Step 6]"), QStringLiteral("[Step 6]")}));
    QVERIFY(waitUntil([&] { return world().capturedDevice() == QStringLiteral("speakers"); },
                      kPatienceMs));
    world().clearFaults();
    failOnReports();
}

void SessionTest::consoleDisconnectLeavesCaptureAsItWas()
{
    const int starts = world().calls(FakeCall::Initialize);
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_CONSOLE_DISCONNECT);
    spin(1300);
    QVERIFY(SpecEngine::instance()->isCapturing());
    QCOMPARE(world().calls(FakeCall::Initialize), starts);
    QCOMPARE(logView(), QString());
}

void SessionTest::twoEventsStopOnceAndStartTwice()
{
    const int starts = world().calls(FakeCall::Initialize);
    const qint64 firstMs = world().nowMs();
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_CONSOLE_CONNECT);
    spin(200);
    const qint64 secondMs = world().nowMs();
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK);
    QCOMPARE(logView(), QStringLiteral("用户登录：重启服务\n用户登录：重启服务"));
    QVERIFY(
        waitUntil([&] { return world().calls(FakeCall::Initialize) == starts + 2; }, kPatienceMs));
    const QList<FakeCallRecord> calls = world().records(FakeCall::Initialize);
    const qint64 firstGap = calls.at(starts).atMs - firstMs;
    const qint64 secondGap = calls.at(starts + 1).atMs - secondMs;
    QCOMPARE(firstGap, kRestartMs + kPauseMs);
    // Its second is over while the first start pauses. It begins when that one has ended, and waits
    // for the session that it had just begun.
    QVERIFY2(secondGap >= kRestartMs + kPauseMs && secondGap < 2000,
             qPrintable(QString::number(secondGap)));
    QVERIFY(waitUntil([&] { return world().capturedDevice() == QStringLiteral("speakers"); },
                      kPatienceMs));
    spin(1300); // neither event starts a third time
    QCOMPARE(world().calls(FakeCall::Initialize), starts + 2);
}

void SessionTest::destroyedWindowStartsNothing()
{
    m_widget->pass(WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK);
    const int starts = world().calls(FakeCall::Initialize);
    m_widget.reset();
    spin(1300);
    QVERIFY(!SpecEngine::instance()->isCapturing());
    QCOMPARE(world().calls(FakeCall::Initialize), starts);
}

void SessionTest::registrationIsLoggedAndItsFailureChangesNothing()
{
    MessageLog log;
    m_widget.reset();
    m_widget = std::make_unique<OpenWidget>();
    QCOMPARE(log.count(QStringLiteral("注册windows通知事件： " TONEWELL_REGISTERS)), 1);
    QVERIFY(waitUntil([&] { return world().capturedDevice() == QStringLiteral("speakers"); },
                      kPatienceMs));
}

VIRTUAL_TIME_MAIN_WITH(QApplication, SessionTest)
#include "tst_session.moc"
