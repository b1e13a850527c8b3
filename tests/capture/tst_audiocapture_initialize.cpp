// How a start initialises the client: format, retries, recovery, what is announced.
#include "tests/capture/scene.h"
#include "tests/support/virtualmain.h"

#include <QSignalSpy>

class TestAudioCaptureInitialize : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void diagnosticLineOfTheMixFormat_data();
    void diagnosticLineOfTheMixFormat();
    void diagnosticLinesOfAMissingMixFormat();
    void transientInitializeFourTimesThenRecovery();
    void transientInitializeSucceedsOnRetry();
    void otherInitializeFailureGoesStraightToRecovery();
    void recoveryUsesTheDefaultAndKeepsTheChoice();
    void recoveryFailsForGood();
    void recoveryThatFailsEarlierIsReportedByThatCall();
    void unalignedBufferIsAskedForInWholeFrames_data();
    void unalignedBufferIsAskedForInWholeFrames();
    void unalignedBufferWithoutSize();
    void announcedFormatIsStereoPcmAndWorkerGetsDeviceAlign();
    void formatIsAnnouncedBeforeTheBufferSize();
    void successWithoutAnObjectFails_data();
    void successWithoutAnObjectFails();
};

void TestAudioCaptureInitialize::diagnosticLineOfTheMixFormat_data()
{
    QTest::addColumn<int>("tag");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("bits");
    QTest::addColumn<QString>("line");
    QTest::newRow("PCM") << WAVE_FORMAT_PCM << 2 << 16
                         << text("2ch 16bit 44100Hz blockAlign=4 PCM");
    QTest::newRow("float") << WAVE_FORMAT_IEEE_FLOAT << 6 << 32
                           << text("6ch 32bit 44100Hz blockAlign=24 IEEE_FLOAT");
    QTest::newRow("other") << 0x55 << 1 << 24 << text("1ch 24bit 44100Hz blockAlign=3");
}

void TestAudioCaptureInitialize::diagnosticLineOfTheMixFormat()
{
    QFETCH(int, tag);
    QFETCH(int, channels);
    QFETCH(int, bits);
    QFETCH(QString, line);
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.audio.setFormat(kIdA,
                          FakeAudio::plainFormat(static_cast<WORD>(tag), channels, bits, 44100));
    scene.started();
    QVERIFY(scene.captures(kIdA));
    QCOMPARE(DiagnosticLog::lines().value(1), text("当前设备: 默认输出设备 | ") + line);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::diagnosticLinesOfAMissingMixFormat()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.audio.fail(FakeCall::GetMixFormat, {AUDCLNT_E_SERVICE_NOT_RUNNING});
    scene.started();
    QCOMPARE(DiagnosticLog::lines(),
             QStringList({text("startCapture 开始, 当前设备=默认输出设备"),
                          text("GetMixFormat 失败, hr=0xffffffff88890010")}));
    QVERIFY(scene.log.contains(text("GetMixFormat 失败 ffffffff88890010")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::transientInitializeFourTimesThenRecovery()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_BUFFER_OPERATION_PENDING}, 1, 4);
    scene.capture->startCapture();

    const auto calls = scene.audio.records(FakeCall::Initialize);
    QCOMPARE(calls.size(), 5);
    for (int i = 1; i < 4; ++i)
        QCOMPARE(calls.at(i).atMs - calls.at(i - 1).atMs, 200LL);
    QCOMPARE(calls.at(4).atMs - calls.at(3).atMs, 500LL);
    QCOMPARE(calls.at(3).client, calls.at(0).client);
    QVERIFY(calls.at(4).client != calls.at(0).client);
    QVERIFY(scene.log.inOrder({text("[Step 4d] 瞬态错误 0xffffffff8889000b，第1次重试..."),
                               text("[Step 4d] 瞬态错误 0xffffffff8889000b，第2次重试..."),
                               text("[Step 4d] 瞬态错误 0xffffffff8889000b，第3次重试..."),
                               text("Initialize 失败 ffffffff8889000b"), text("[Step 4f]")}));
    QVERIFY(!scene.log.contains(text("第4次重试")));
    const QStringList lines = DiagnosticLog::lines();
    const int failed = lines.indexOf(text("Initialize 失败, hr=0xffffffff8889000b"));
    QVERIFY(failed >= 0);
    QCOMPARE(lines.mid(failed + 1, 2),
             QStringList({text("Initialize 重试 #1"), text("Initialize 重试成功")}));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::transientInitializeSucceedsOnRetry()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_EVENTHANDLE_NOT_SET}, 1, 2);
    scene.capture->startCapture();
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 3);
    QCOMPARE(scene.log.count(text("次重试...")), 2);
    QVERIFY(!scene.log.contains(text("Initialize 失败")));
    for (const FakeCallRecord &call : scene.audio.records(FakeCall::Initialize)) {
        QVERIFY(call.argumentsRight);
        QCOMPARE(call.argument, static_cast<qint64>(10'000'000));
    }
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::otherInitializeFailureGoesStraightToRecovery()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {E_FAIL}, 1, 2);
    scene.capture->startCapture();
    const auto calls = scene.audio.records(FakeCall::Initialize);
    QCOMPARE(calls.size(), 3);
    QVERIFY(scene.log.inOrder({text("[Step 4d] 非瞬态错误: 0xffffffff80004005"),
                               text("Initialize 失败 ffffffff80004005")}));
    QVERIFY(!scene.log.contains(text("瞬态错误 0x")));
    QCOMPARE(calls.at(1).atMs - calls.at(0).atMs, 500LL);
    QCOMPARE(calls.at(2).atMs - calls.at(1).atMs, 500LL);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::recoveryUsesTheDefaultAndKeepsTheChoice()
{
    Scene scene;
    scene.audio.setFormat(kIdB, FakeAudio::plainFormat(WAVE_FORMAT_PCM, 2, 24));
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {E_FAIL}, 1, 1);
    scene.capture->setCurrentDevice(QStringLiteral("Headset"));
    QCOMPARE(scene.capture->currentDevice(), QStringLiteral("Headset"));
    QVERIFY(scene.captures(kIdA));
    QVERIFY(scene.log.contains(text(" blockAlign =8"))); // of the new device, not 6
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::recoveryFailsForGood()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_UNSUPPORTED_FORMAT});
    QSignalSpy formats(&capture, &AudioCapture::formatChanged);
    capture.startCapture();
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 3);
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff88890008")), 1);
    QCOMPARE(DiagnosticLog::lines().mid(2),
             QStringList({text("Initialize 失败, hr=0xffffffff88890008"),
                          text("Initialize 重试 #1"), text("Initialize 重试 #2")}));
    QCOMPARE(formats.size(), 0);
    QVERIFY(!capture.isCapturing());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::recoveryThatFailsEarlierIsReportedByThatCall()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {E_FAIL});
    scene.audio.fail(FakeCall::Activate, {AUDCLNT_E_SERVICE_NOT_RUNNING}, 2, 2);
    scene.capture->startCapture();
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 3);
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 1);
    QCOMPARE(scene.log.count(text("Initialize 失败 ffffffff80004005")), 1);
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff88890010")), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::unalignedBufferIsAskedForInWholeFrames_data()
{
    QTest::addColumn<uint>("frames");
    QTest::addColumn<qint64>("duration"); // 100 ns
    QTest::newRow("101587.3 of 100 ns") << 448U << Q_INT64_C(101587);
    QTest::newRow("102040.8 of 100 ns") << 450U << Q_INT64_C(102041);
}

void TestAudioCaptureInitialize::unalignedBufferIsAskedForInWholeFrames()
{
    QFETCH(uint, frames);
    QFETCH(qint64, duration);
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::floatFormat(2, 44100));
    scene.audio.setBufferFrames(frames);
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED}, 1, 1);
    scene.capture->startCapture();
    const auto calls = scene.audio.records(FakeCall::Initialize);
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).client, calls.at(1).client);
    QCOMPARE(calls.at(1).argument, duration);
    QVERIFY(calls.at(1).argumentsRight);
    QVERIFY(scene.log.contains(text("[Step 4c] Buffer 对齐问题，尝试调整...")));
    QVERIFY(!scene.log.contains(text("[Step 4d]")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::unalignedBufferWithoutSize()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED}, 1, 1);
    scene.audio.fail(FakeCall::GetBufferSize, {AUDCLNT_E_BUFFER_ERROR}, 1, 1);
    scene.capture->startCapture();
    QVERIFY(scene.log.inOrder({text("[Step 4c]"), text("[Step 4d] 非瞬态错误: 0xffffffff88890018"),
                               text("Initialize 失败 ffffffff88890018"), text("[Step 4f]")}));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::announcedFormatIsStereoPcmAndWorkerGetsDeviceAlign()
{
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::floatFormat(6, 96000));
    AudioCapture &capture = scene.make();
    QSignalSpy formats(&capture, &AudioCapture::formatChanged);
    capture.startCapture();
    QCOMPARE(formats.size(), 1);
    const auto format = formats.first().first().value<WAVEFORMATEX>();
    QCOMPARE(static_cast<int>(format.wFormatTag), 1);
    QCOMPARE(static_cast<int>(format.nChannels), 2);
    QCOMPARE(static_cast<quint32>(format.nSamplesPerSec), 96000U);
    QCOMPARE(static_cast<quint32>(format.nAvgBytesPerSec), 384000U);
    QCOMPARE(static_cast<int>(format.nBlockAlign), 4);
    QCOMPARE(static_cast<int>(format.wBitsPerSample), 16);
    QCOMPARE(static_cast<int>(format.cbSize), 0);
    QVERIFY(scene.captures(kIdA));
    QVERIFY(scene.log.contains(text(" blockAlign =24")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::formatIsAnnouncedBeforeTheBufferSize()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.audio.fail(FakeCall::GetBufferSize, {AUDCLNT_E_BUFFER_ERROR});
    QSignalSpy formats(&capture, &AudioCapture::formatChanged);
    capture.startCapture();
    QCOMPARE(formats.size(), 1);
    QVERIFY(scene.log.inOrder({text("[Step 4f]"), text("[Step 5] GetBufferSize"),
                               text("GetBufferSize 失败 ffffffff88890018"),
                               text("引擎启动失败，错误代码 ffffffff88890018")}));
    QVERIFY(!scene.log.contains(text("[Step 6]")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureInitialize::successWithoutAnObjectFails_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("enumerator") << static_cast<int>(FakeCall::CreateEnumerator);
    QTest::newRow("default endpoint") << static_cast<int>(FakeCall::GetDefaultAudioEndpoint);
    QTest::newRow("activate") << static_cast<int>(FakeCall::Activate);
    QTest::newRow("mix format") << static_cast<int>(FakeCall::GetMixFormat);
}

void TestAudioCaptureInitialize::successWithoutAnObjectFails()
{
    QFETCH(int, call);
    Scene scene;
    scene.make();
    scene.audio.fail(static_cast<FakeCall>(call), {S_OK, true});
    scene.capture->startCapture();
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff80004003")), 1);
    scene.audio.clearFaults();
    VERIFY_NOTHING_LEFT(scene);
}

VIRTUAL_TIME_MAIN(TestAudioCaptureInitialize)
#include "tst_audiocapture_initialize.moc"
