// The primary display, beside what the window system says of it.
#include "platform/display.h"

#include <windows.h>
#include <QGuiApplication>
#include <QScreen>
#include <QtTest>

class TestDisplaySettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void size();
    void otherDevicesAndModesFail();
    void dialogsCanBeSeen();
};

void TestDisplaySettings::size()
{
    DEVMODEW mode {};
    QCOMPARE(sizeof(mode), static_cast<std::size_t>(220));
    mode.dmSize = sizeof(mode);
    QVERIFY(EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode));
    QCOMPARE(static_cast<int>(mode.dmPelsWidth), GetSystemMetrics(SM_CXSCREEN));
    QCOMPARE(static_cast<int>(mode.dmPelsHeight), GetSystemMetrics(SM_CYSCREEN));
    const QScreen *const screen = QGuiApplication::primaryScreen();
    const QSize pixels = screen->size() * screen->devicePixelRatio();
    QCOMPARE(QSize(static_cast<int>(mode.dmPelsWidth), static_cast<int>(mode.dmPelsHeight)),
             pixels);
    QVERIFY(mode.dmDisplayFrequency > 0);
}

void TestDisplaySettings::otherDevicesAndModesFail()
{
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode);
    QVERIFY(!EnumDisplaySettingsW(L"\\\\.\\DISPLAY999", ENUM_CURRENT_SETTINGS, &mode));
}

void TestDisplaySettings::dialogsCanBeSeen()
{
    QVERIFY(dialogCanBeSeen());
}

QTEST_MAIN(TestDisplaySettings)
#include "tst_primarydisplay.moc"
