// The session's events as the system delivers them: posted to the window, through Qt's own event
// dispatcher.
#include "app/widget.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/messagelog.h"

#include <windows.h>
#include <memory>
#include <QTest>
#include <QTextBrowser>
#include <wtsapi32.h>

namespace {

constexpr int kPatienceMs = 20000;

FakeAudio &world()
{
    static FakeAudio audio;
    return audio;
}

} // namespace

class PostedSessionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void windowIsRegistered();
    void everyCodeArrives_data();
    void everyCodeArrives();
    void neighbouringMessageDoesNothing();

private:
    HWND window() const { return reinterpret_cast<HWND>(m_widget->winId()); }
    QString logView() const { return m_widget->findChild<QTextBrowser *>()->toPlainText(); }

    std::unique_ptr<MessageLog> m_log;
    std::unique_ptr<Widget> m_widget;
};

void PostedSessionTest::initTestCase()
{
    world().add(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    world().setDefault(QStringLiteral("speakers"));
    setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
}

void PostedSessionTest::init()
{
    m_log = std::make_unique<MessageLog>();
    m_widget = std::make_unique<Widget>();
    m_widget->show();
    QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
}

void PostedSessionTest::cleanup()
{
    m_widget.reset();
    m_log.reset();
    QTRY_VERIFY_WITH_TIMEOUT(world().capturedDevice().isEmpty(), kPatienceMs);
}

void PostedSessionTest::windowIsRegistered()
{
    QVERIFY(IsWindow(window()));
    QCOMPARE(m_log->count(QStringLiteral("注册windows通知事件： true")), 1);
}

void PostedSessionTest::everyCodeArrives_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("restarts");
    QTest::newRow("console connect") << 1 << QStringLiteral("会话连接") << true;
    QTest::newRow("console disconnect") << 2 << QStringLiteral("系统注销") << false;
    QTest::newRow("log-on") << 5 << QStringLiteral("用户登录") << true;
    QTest::newRow("lock") << 7 << QStringLiteral("系统锁屏") << false;
    QTest::newRow("unlock") << 8 << QStringLiteral("系统解锁") << true;
}

void PostedSessionTest::everyCodeArrives()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    QFETCH(bool, restarts);
    const int starts = world().calls(FakeCall::Initialize);
    QVERIFY(PostMessageW(window(), WM_WTSSESSION_CHANGE, static_cast<WPARAM>(code), 1));
    QTRY_COMPARE_WITH_TIMEOUT(m_log->count(text), 1, kPatienceMs);
    QCOMPARE(logView(), restarts ? QStringLiteral("用户登录：重启服务") : QString());
    QCOMPARE(SpecEngine::instance()->isCapturing(), !restarts);
    if (restarts) {
        QTRY_COMPARE_WITH_TIMEOUT(world().calls(FakeCall::Initialize), starts + 1, kPatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(world().capturedDevice(), QStringLiteral("speakers"),
                                  kPatienceMs);
    }
}

void PostedSessionTest::neighbouringMessageDoesNothing()
{
    QVERIFY(PostMessageW(window(), WM_WTSSESSION_CHANGE + 1, WTS_SESSION_UNLOCK, 1));
    // Posted messages keep their order: when this one has come, so has the other.
    QVERIFY(PostMessageW(window(), WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, 1));
    QTRY_COMPARE_WITH_TIMEOUT(m_log->count(QStringLiteral("系统锁屏")), 1, kPatienceMs);
    QCOMPARE(m_log->count(QStringLiteral("系统解锁")), 0);
    QCOMPARE(logView(), QString());
    QVERIFY(SpecEngine::instance()->isCapturing());
}

QTEST_MAIN(PostedSessionTest)
#include "tst_session_posted.moc"
