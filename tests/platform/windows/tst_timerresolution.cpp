// What the program asks of Windows for its timers when nobody sees its window.
#include "platform/backgroundwindow.h"

#include <windows.h>
#include <QtTest>
#include <QWidget>

namespace {

struct Request {
    HANDLE process = nullptr;
    PROCESS_INFORMATION_CLASS kind {};
    PROCESS_POWER_THROTTLING_STATE state {};
    DWORD size = 0;
};

QList<Request> s_requests;
BOOL s_answer = TRUE;

BOOL WINAPI setInformation(HANDLE process, PROCESS_INFORMATION_CLASS kind, LPVOID information,
                           DWORD size)
{
    Request request {process, kind, {}, size};
    if (size == sizeof(request.state))
        request.state = *static_cast<PROCESS_POWER_THROTTLING_STATE *>(information);
    s_requests.append(request);
    return s_answer;
}

} // namespace

// The linker takes this pointer before it looks into an import library.
extern "C" {
extern decltype(&setInformation) const __imp_SetProcessInformation;
decltype(&setInformation) const __imp_SetProcessInformation = setInformation;
}

class TestTimerResolution : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isKeptWithoutAVisibleWindow_data();
    void isKeptWithoutAVisibleWindow();
};

void TestTimerResolution::isKeptWithoutAVisibleWindow_data()
{
    QTest::addColumn<bool>("known");
    QTest::newRow("Windows 11") << true;
    QTest::newRow("Windows 10, which does not know the request") << false;
}

void TestTimerResolution::isKeptWithoutAVisibleWindow()
{
    QFETCH(bool, known);
    s_requests.clear();
    s_answer = known ? TRUE : FALSE;
    QWidget window(nullptr, Qt::Tool);
    keepInBackground(&window);
    QCOMPARE(s_requests.size(), 1);
    const Request &request = s_requests.first();
    QCOMPARE(request.process, GetCurrentProcess());
    QCOMPARE(static_cast<int>(request.kind), 4); // power throttling
    QCOMPARE(request.size, DWORD {12});
    QCOMPARE(request.state.Version, ULONG {1});
    QCOMPARE(request.state.ControlMask, ULONG {4}); // the program decides on timer resolution,
    QCOMPARE(request.state.StateMask, ULONG {0}); // and it is never ignored
    QVERIFY(GetWindowLongPtrW(reinterpret_cast<HWND>(window.winId()), GWL_EXSTYLE)
            & WS_EX_NOACTIVATE);
}

QTEST_MAIN(TestTimerResolution)
#include "tst_timerresolution.moc"
