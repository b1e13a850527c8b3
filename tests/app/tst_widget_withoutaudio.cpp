// The main window where there is no audio system at all.
#include "app/widget.h"
#include "platform/deviceenumerator.h"
#include "remote/commoninterface.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <QApplication>
#include <QComboBox>
#include <QSignalSpy>
#include <QTest>

class WidgetWithoutAudioTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void comboStaysEmptyAndMessagesArePublished();

private:
    static int s_reports;
};

int WidgetWithoutAudioTest::s_reports = 0;

void WidgetWithoutAudioTest::comboStaysEmptyAndMessagesArePublished()
{
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **enumerator) -> HRESULT {
        *enumerator = nullptr;
        return E_FAIL;
    });
    setReportSink([](const QString &) { ++s_reports; });

    Widget widget;
    widget.show();
    QCOMPARE(widget.findChild<QComboBox *>()->count(), 0);
    // The engine was started all the same, and the failure reported by the capture side.
    QCOMPARE(s_reports, 1);
    QVERIFY(!SpecEngine::instance()->isCapturing());

    QSignalSpy sent(widget.findChild<CommonInterface *>(), &CommonInterface::sigMessage);
    QVERIFY(waitUntil([&] { return sent.count() >= 10; }, 20000));
    const QStringList fields = sent.last().at(0).toString().split(QStringLiteral("/&+&/"));
    QCOMPARE(fields.size(), 104);
    QCOMPARE(fields.mid(1), QVector<QString>(103, QStringLiteral("0")).toList());
}

VIRTUAL_TIME_MAIN_WITH(QApplication, WidgetWithoutAudioTest)
#include "tst_widget_withoutaudio.moc"
