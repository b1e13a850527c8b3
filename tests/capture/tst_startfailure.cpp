// The report of a failed start. A process hands over one report in its life, so every function
// runs in a process of its own: named on the command line, or each in turn without arguments.
#include "capture/wasapierrortext.h"
#include "tests/capture/scene.h"

namespace {

/// The report's lines from "[Device Format Debug Info]" on.
QStringList debugInfo(const QString &report)
{
    const int at = report.indexOf(QLatin1String("\n[Device Format Debug Info]\n"));
    return at < 0 ? QStringList() : report.mid(at + 1).split(QLatin1Char('\n'));
}

} // namespace

class TestStartFailure : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void errorTexts_data();
    void errorTexts();
    void successCodesDoNothing();
    void reportBeforeTheFormatIsKnown();
    void reportWithTheDevicesFormat();
    void reportWithAFormatOfNoName();
    void reportAfterTheAnnouncement();
    void reportOfAControllerThatIsNotReady();
    void twoFailuresGiveOneReport();
    void failuresOnManyThreadsGiveOneReport();
    void reportIsHandedOverInTheControllersThread();
};

void TestStartFailure::errorTexts_data()
{
    QTest::addColumn<quint32>("code");
    QTest::addColumn<QString>("expected");
    const QList<QPair<quint32, const char *>> table {
        {0x88890004, "Device invalidated (disconnected or disabled)"},
        {0x88890019, "Buffer size not aligned"},
        {0x88890017, "CPU usage exceeded"},
        {0x88890018, "Buffer error"},
        {0x88890010, "Audio service not running"},
        {0x88890008, "Unsupported audio format"},
        {0x8889000E, "Exclusive mode not allowed"},
        {0x800401F0, "COM not initialized"},
        {0x80004002, "Interface not supported (driver issue)"},
        {0x80004003, "Invalid pointer (null pointer accessed)"},
        {0x80004005, "General failure"},
        {0x8889000B, "Unknown error: 0xffffffff8889000b"},
        {0x00000001, "Unknown error: 0x00000001"},
    };
    for (const auto &row : table)
        QTest::newRow(row.second) << row.first << text(row.second);
}

void TestStartFailure::errorTexts()
{
    QFETCH(quint32, code);
    QFETCH(QString, expected);
    QCOMPARE(wasapiErrorText(static_cast<HRESULT>(code)), expected);
}

void TestStartFailure::successCodesDoNothing()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.log.clear();
    capture.handleStartError(S_OK);
    capture.handleStartError(S_FALSE);
    QCOMPARE(scene.log.texts(), QStringList());
    QCOMPARE(ReportTaker::reports(), QStringList());
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportBeforeTheFormatIsKnown()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Activate, {E_NOINTERFACE});
    scene.capture->startCapture();
    QCOMPARE(ReportTaker::reports().size(), 1);
    const QString report = ReportTaker::reports().first();
    QVERIFY(report.contains(text("Audio Service Error")));
    QVERIFY(report.contains(text("WASAPI Error: Interface not supported (driver issue)\n"
                                 "Error Code: 0xffffffff80004002")));
    QVERIFY(report.contains(text("[COM Initialization Status]"))); // the audio section
    QVERIFY(report.indexOf(text("[COM Initialization Status]"))
            < report.indexOf(text("[Device Format Debug Info]")));
    QCOMPARE(debugInfo(report),
             QStringList(
                 {text("[Device Format Debug Info]"), text("  Current Device: 默认输出设备"),
                  text("  pOutputEnumerator: valid"), text("  m_pendingDeviceId: ''"),
                  text("  m_ready: true"), text("  pDevice: valid"), text("  pAudioClient: null"),
                  text("  pwfx = null (device not initialized)"), QString()}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportWithTheDevicesFormat()
{
    Scene scene;
    scene.audio.setFormat(kIdB, FakeAudio::floatFormat(6, 96000));
    scene.audio.setFormat(kIdA, FakeAudio::plainFormat(WAVE_FORMAT_IEEE_FLOAT, 1, 32, 44100));
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_UNSUPPORTED_FORMAT});
    scene.capture->setCurrentDevice(text("Headset"));
    QCOMPARE(ReportTaker::reports().size(), 1);
    const QString report = ReportTaker::reports().first();
    QVERIFY(report.contains(text("WASAPI Error: Unsupported audio format\n")));
    // The recovery has gone to the default endpoint; the choice stays.
    QCOMPARE(debugInfo(report),
             QStringList({text("[Device Format Debug Info]"), text("  Current Device: Headset"),
                          text("  pOutputEnumerator: valid"), text("  m_pendingDeviceId: ''"),
                          text("  m_ready: true"), text("  pDevice: valid"),
                          text("  pAudioClient: valid"), text("  Format Tag: 0x0003 (IEEE_FLOAT)"),
                          text("  Channels: 1"), text("  Samples Per Sec: 44100"),
                          text("  Bits Per Sample: 32"), text("  Block Align: 4"),
                          text("  Avg Bytes Per Sec: 176400"), text("  cbSize: 0"), QString()}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportWithAFormatOfNoName()
{
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::plainFormat(6, 2, 8, 8000));
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_UNSUPPORTED_FORMAT});
    scene.capture->startCapture();
    const QStringList info = debugInfo(ReportTaker::reports().value(0));
    QVERIFY(info.contains(text("  Format Tag: 0x0006 (Other)")));
    QVERIFY(info.contains(text("  Bits Per Sample: 8")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportAfterTheAnnouncement()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::GetBufferSize, {E_FAIL});
    scene.capture->startCapture();
    const QStringList info = debugInfo(ReportTaker::reports().value(0));
    QVERIFY(info.contains(text("  Format Tag: 0x0001 (PCM)")));
    QVERIFY(info.contains(text("  Channels: 2")));
    QVERIFY(info.contains(text("  Bits Per Sample: 16")));
    QVERIFY(info.contains(text("  Block Align: 4")));
    QVERIFY(info.contains(text("  Avg Bytes Per Sec: 192000")));
    QVERIFY(info.contains(text("  cbSize: 0")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportOfAControllerThatIsNotReady()
{
    Scene scene;
    scene.audio.fail(FakeCall::CreateEnumerator, {E_FAIL});
    scene.started();
    const QStringList info = debugInfo(ReportTaker::reports().value(0));
    QVERIFY(info.contains(text("  pOutputEnumerator: NULL!")));
    QVERIFY(info.contains(text("  m_ready: false")));
    QVERIFY(info.contains(text("  pDevice: null")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::twoFailuresGiveOneReport()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::GetMixFormat, {E_FAIL});
    scene.capture->startCapture();
    scene.capture->startCapture();
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff80004005")), 2);
    spin(50);
    QCOMPARE(ReportTaker::reports().size(), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::failuresOnManyThreadsGiveOneReport()
{
    const RealTime realTime; // they meet as they happen to
    Scene scene;
    AudioCapture &capture = scene.make();
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            scene.audio.enter();
            capture.handleStartError(E_FAIL);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    spin(50);
    QCOMPARE(scene.log.count(text("引擎启动失败")), 8);
    QCOMPARE(ReportTaker::reports().size(), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestStartFailure::reportIsHandedOverInTheControllersThread()
{
    // The thread of a callback has no event loop, which a dialog needs.
    static std::atomic<Qt::HANDLE> thread {nullptr};
    Scene scene;
    AudioCapture &capture = scene.make();
    setReportSink([](const QString &) { thread = QThread::currentThreadId(); });
    onForeignThread([&] {
        scene.audio.enter();
        capture.handleStartError(E_FAIL);
    });
    QVERIFY(waitUntil([] { return thread.load() != nullptr; }));
    QCOMPARE(thread.load(), QThread::currentThreadId());
    VERIFY_NOTHING_LEFT(scene);
}

int main(int argc, char **argv)
{
    VirtualTime time;
    QCoreApplication app(argc, argv);
    TestStartFailure test;
    if (argc > 1)
        return QTest::qExec(&test, argc, argv);
    int failures = 0;
    const QMetaObject *meta = test.metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QString name = QString::fromLatin1(meta->method(i).name());
        if (meta->method(i).methodType() == QMetaMethod::Slot
            && !name.endsWith(QLatin1String("_data")))
            failures += QProcess::execute(app.applicationFilePath(), {name}) != 0 ? 1 : 0;
    }
    return failures;
}
#include "tst_startfailure.moc"
