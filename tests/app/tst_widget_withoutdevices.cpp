// The main window on an audio system without any render device.
#include "app/widget.h"
#include "remote/commoninterface.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <QApplication>
#include <QComboBox>
#include <QSignalSpy>
#include <QTest>

class WidgetWithoutDevicesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void comboHoldsNoDeviceAndMessagesArePublished();

private:
    static int s_reports;
};

int WidgetWithoutDevicesTest::s_reports = 0;

void WidgetWithoutDevicesTest::comboHoldsNoDeviceAndMessagesArePublished()
{
    static FakeAudio world; // made before the engine, so that it goes after it
    world.add(QStringLiteral("mic"), QStringLiteral("Microphone"), eCapture);
    setReportSink([](const QString &) { ++s_reports; });

    Widget widget;
    widget.show();
    // No device, only the choice to follow the default.
    QCOMPARE(widget.findChild<QComboBox *>()->count(), 1);
    QCOMPARE(widget.findChild<QComboBox *>()->itemText(0), QStringLiteral("默认输出设备"));
    QCOMPARE(s_reports, 1);
    QVERIFY(world.calls(FakeCall::GetDefaultAudioEndpoint) > 0);
    QCOMPARE(world.calls(FakeCall::Activate), 0);
    QVERIFY(!SpecEngine::instance()->isCapturing());

    QSignalSpy sent(widget.findChild<CommonInterface *>(), &CommonInterface::sigMessage);
    QVERIFY(waitUntil([&] { return sent.count() >= 10; }, 20000));
    QCOMPARE(sent.last().at(0).toString().split(QStringLiteral("/&+&/")).size(), 104);
}

VIRTUAL_TIME_MAIN_WITH(QApplication, WidgetWithoutDevicesTest)
#include "tst_widget_withoutdevices.moc"
