// The user works in another program's window while the service starts.
#include "app/widget.h"
#include "report/deliverreport.h"
#include "report/errorreportdialog.h"
#include "tests/support/fakeaudio.h"

#include <windows.h>
#include <cstdio>
#include <memory>
#include <QApplication>
#include <QProcess>
#include <QTest>
#include <QTimer>

namespace {

constexpr int kPatienceMs = 20000;
constexpr int kAgainMs = 200;

FakeAudio &world()
{
    static FakeAudio audio;
    return audio;
}

HWND handle(const QWidget &window)
{
    return reinterpret_cast<HWND>(window.winId());
}

LONG_PTR extendedStyle(const QWidget &window)
{
    return GetWindowLongPtrW(handle(window), GWL_EXSTYLE);
}

/// The other program: one window, whose handle it prints.
int showUsersWindow()
{
    QWidget window;
    window.resize(300, 200);
    window.show();
    window.activateWindow();
    // A system that has no foreground window at the moment may pass over the first request.
    QTimer again;
    QObject::connect(&again, &QTimer::timeout, &window, [&] {
        if (GetForegroundWindow() == handle(window))
            again.stop();
        else
            window.activateWindow();
    });
    again.start(kAgainMs);
    std::printf("%llu\n", static_cast<unsigned long long>(window.winId()));
    std::fflush(stdout);
    return QApplication::exec();
}

} // namespace

class ForegroundTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void startLeavesTheForegroundWindowWhatItWas();
    void endOfTheForegroundWindowDoesNotBringItUp();
    void isInNoTaskBarAndNoSwitcher();
    void reportIsAWindowLikeAnyOther();

private:
    QProcess m_program;
    HWND m_users = nullptr;
};

void ForegroundTest::initTestCase()
{
    world().add(QStringLiteral("speakers"), QStringLiteral("Speakers"));
    world().setDefault(QStringLiteral("speakers"));
    setReportSink([](const QString &report) { qFatal("%s", qPrintable(report)); });
}

void ForegroundTest::init()
{
    m_program.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--users-window")});
    QTRY_VERIFY_WITH_TIMEOUT(m_program.canReadLine(), kPatienceMs);
    bool ok = false;
    m_users = reinterpret_cast<HWND>(m_program.readLine().trimmed().toULongLong(&ok));
    QVERIFY(ok);
    QTRY_COMPARE_WITH_TIMEOUT(GetForegroundWindow(), m_users, kPatienceMs);
}

void ForegroundTest::cleanup()
{
    m_program.kill();
    QVERIFY(m_program.waitForFinished(kPatienceMs));
}

void ForegroundTest::startLeavesTheForegroundWindowWhatItWas()
{
    Widget widget;
    widget.show();
    QTRY_VERIFY_WITH_TIMEOUT(IsWindowVisible(handle(widget)), kPatienceMs);
    QTRY_VERIFY_WITH_TIMEOUT(!world().capturedDevice().isEmpty(), kPatienceMs);
    QCOMPARE(GetForegroundWindow(), m_users);
    QVERIFY(!GetActiveWindow());
}

void ForegroundTest::endOfTheForegroundWindowDoesNotBringItUp()
{
    Widget widget;
    widget.show();
    QTRY_VERIFY_WITH_TIMEOUT(IsWindowVisible(handle(widget)), kPatienceMs);
    m_program.kill();
    QTRY_VERIFY_WITH_TIMEOUT(!IsWindow(m_users), kPatienceMs);
    QVERIFY(GetForegroundWindow() != handle(widget));
    QVERIFY(!GetActiveWindow());
}

void ForegroundTest::isInNoTaskBarAndNoSwitcher()
{
    Widget widget;
    widget.show();
    QTRY_VERIFY_WITH_TIMEOUT(IsWindowVisible(handle(widget)), kPatienceMs);
    const LONG_PTR style = extendedStyle(widget);
    QVERIFY(style & WS_EX_TOOLWINDOW);
    QVERIFY(style & WS_EX_NOACTIVATE);
    QVERIFY(!(style & WS_EX_APPWINDOW));
    QCOMPARE(widget.windowFlags(), Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
}

void ForegroundTest::reportIsAWindowLikeAnyOther()
{
    Widget widget;
    widget.show();
    ErrorReportDialog dialog(QStringLiteral("report"));
    dialog.show();
    QTRY_VERIFY_WITH_TIMEOUT(IsWindowVisible(handle(dialog)), kPatienceMs);
    QVERIFY(!(extendedStyle(dialog) & (WS_EX_TOOLWINDOW | WS_EX_NOACTIVATE)));
}

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    if (QCoreApplication::arguments().contains(QStringLiteral("--users-window")))
        return showUsersWindow();
    ForegroundTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_foreground.moc"
