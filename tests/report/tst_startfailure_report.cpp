// The whole report of a start that fails, as the capture controller hands it over.
#include "capture/audiocapture.h"
#include "report/deliverreport.h"
#include "tests/report/masked.h"
#include "tests/support/fakeaudio.h"

#include <QtTest>

namespace {

QStringList s_reports;

} // namespace

class TestStartFailureReport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void goldenReport();
};

void TestStartFailureReport::goldenReport()
{
    setReportSink([](const QString &report) { s_reports.append(report); });
    FakeAudio audio;
    audio.add(QStringLiteral("{render-1}"), QStringLiteral("扬声器"));
    audio.add(QStringLiteral("{capture-1}"), QStringLiteral("Microphone"), eCapture);
    audio.setDefault(QStringLiteral("{render-1}"));
    audio.fail(FakeCall::Initialize, {static_cast<HRESULT>(0x88890008U)});
    {
        AudioCapture capture;
        capture.startCapture();
    }
    setReportSink(nullptr);
    QCOMPARE(s_reports.size(), 1);
    compareWithGolden(s_reports.first(), QStringLiteral("start-failure"));
    QCOMPARE(audio.problems(), QStringList());
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QCoreApplication::setApplicationVersion(QStringLiteral("7.8.9"));
    TestStartFailureReport test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_startfailure_report.moc"
