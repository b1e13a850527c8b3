// The display of an X server whose size is known: 1234 x 777.
#include "platform/display.h"

#include <windows.h>
#include <QGuiApplication>
#include <QScreen>
#include <QtTest>
#include <thread>

class TestDisplaySettings : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void size();
    void otherDevicesAndModesFail();
    void onlyOnTheGuiThread();
};

void TestDisplaySettings::size()
{
    QVERIFY(dialogCanBeSeen());
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode);
    QVERIFY(EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode));
    QCOMPARE(mode.dmPelsWidth, 1234U);
    QCOMPARE(mode.dmPelsHeight, 777U);
    QCOMPARE(mode.dmBitsPerPel, 24U);
    QCOMPARE(static_cast<int>(mode.dmDisplayFrequency),
             qRound(QGuiApplication::primaryScreen()->refreshRate()));
    QVERIFY(mode.dmFields & DM_PELSWIDTH);
}

void TestDisplaySettings::otherDevicesAndModesFail()
{
    DEVMODEW mode {};
    mode.dmSize = sizeof(mode);
    QVERIFY(!EnumDisplaySettingsW(L"\\\\.\\DISPLAY2", ENUM_CURRENT_SETTINGS, &mode));
    QCOMPARE(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
    QVERIFY(!EnumDisplaySettingsW(nullptr, 0, &mode));
}

void TestDisplaySettings::onlyOnTheGuiThread()
{
    BOOL answered = TRUE;
    std::thread([&answered] {
        DEVMODEW mode {};
        mode.dmSize = sizeof(mode);
        answered = EnumDisplaySettingsW(nullptr, ENUM_CURRENT_SETTINGS, &mode);
    }).join();
    QVERIFY(!answered);
}

QTEST_MAIN(TestDisplaySettings)
#include "tst_displaysettings.moc"
