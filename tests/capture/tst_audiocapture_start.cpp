// The start sequence on scripted devices.
#include "capture/wasapierrortext.h"
#include "tests/capture/scene.h"
#include "tests/support/comfault.h"
#include <objbase.h>
#include <QSignalSpy>

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

class TestAudioCaptureStart : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { failCoInitializeEx(S_OK); }

    void textsOfASuccessfulStartInOrder();
    void diagnosticLinesOfASuccessfulStart();
    void diagnosticLineOfTheMixFormat_data();
    void diagnosticLineOfTheMixFormat();
    void diagnosticLinesOfAMissingMixFormat();
    void secondStartWhileOneRunsChangesNothing();
    void secondStartOnAnotherThreadDuringThePauseChangesNothing();
    void followingUsesTheConsoleDefault();
    void multimediaDefaultOnlyWhenConsoleFails();
    void listedDeviceWinsAndPendingIdIsDiscarded();
    void pendingIdIsUsedWhenFollowing();
    void rejectedPendingIdFallsBackToTheDefault();
    void rejectedListedDeviceFailsTheStart();
    void absentOrUnpluggedDeviceFailsBeforeActivate_data();
    void absentOrUnpluggedDeviceFailsBeforeActivate();
    void disabledDeviceIsOnlyWarnedAbout();
    void unreadableStateIsPassedOver();
    void activateTriesAllContextsSecond();
    void activateFailureHints_data();
    void activateFailureHints();
    void transientInitializeFourTimesThenRecovery();
    void transientInitializeSucceedsOnRetry();
    void otherInitializeFailureGoesStraightToRecovery();
    void recoveryUsesTheDefaultAndKeepsTheChoice();
    void recoveryFailsForGood();
    void unalignedBufferIsAskedForInWholeFrames();
    void unalignedBufferWithoutSize();
    void announcedFormatIsStereoPcmAndWorkerGetsDeviceAlign();
    void formatIsAnnouncedBeforeTheBufferSize();
    void successWithoutAnObjectFails_data();
    void successWithoutAnObjectFails();
    void oldSessionIsEndedAndPausedBeforeTheNext();
    void mutexIsFreeDuringThePause();
    void waitForTheOldWorkerTimesOut();
    void startOnAForeignThread();
    void otherApartmentIsUsable();
    void failedApartmentIsOnlyLogged();
    void doubleStartBeforeTheWorkerBegins();
    void stopBeforeTheWorkerBegins();
    void stopLeavesTheSessionsObjects();
    void destroyedWhileStarting();
    void hexadecimalCodes();
};

void TestAudioCaptureStart::textsOfASuccessfulStartInOrder()
{
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    const QStringList expected {
        text("[Step 1] 使用默认输出设备"),
        text("[Step 2] Activate IAudioClient"),
        text("[Step 2a] 设备状态 = 1 (1=ACTIVE, 2=DISABLED, 3=NOTPRESENT, 4=UNPLUGGED)"),
        text("[Step 2b] IID_IAudioClient = 1cb9ad4c"),
        text("[Step 3] GetMixFormat"),
        text("[Step 3a] 原始格式: 通道=2 采样率=48000 位深=32 格式标签=65534"),
        text("------运行状态:------"),
        text("音频设备——（默认输出设备）已就绪！"),
        text("通道数 : 2"),
        text("采样率 : 48000"),
        text("位深  : 32"),
        text("[Step 4] Initialize (使用原始混音格式)"),
        text("[Step 4a] 原始格式（通道=2 位深=32 采样率=48000）"),
        text("[Step 4f] Initialize成功，已通知下游16bit PCM"),
        text("[Step 5] GetBufferSize"),
        text("[Step 5a] Buffer 大小: 48000 帧"),
        text("[Step 6] 调用 CaptureAudioThread::start"),
    };
    QStringList steps;
    for (const QString &line : scene.log.texts()) {
        if (!line.startsWith(QLatin1String("[Thread")) && !line.startsWith(QLatin1String("[flush"))
            && line != text("频谱引擎已启动"))
            steps.append(line);
    }
    QCOMPARE(steps, expected);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::diagnosticLinesOfASuccessfulStart()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    const QStringList expected {
        text("startCapture 开始, 当前设备=默认输出设备"),
        text("当前设备: 默认输出设备 | 2ch 32bit 48000Hz blockAlign=8 WAVEFORMATEXTENSIBLE"),
        text("Initialize成功, 启动采集线程 blockAlign=8"),
    };
    QCOMPARE(DiagnosticLog::lines(), expected);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::diagnosticLineOfTheMixFormat_data()
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

void TestAudioCaptureStart::diagnosticLineOfTheMixFormat()
{
    QFETCH(int, tag);
    QFETCH(int, channels);
    QFETCH(int, bits);
    QFETCH(QString, line);
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::plainFormat(WORD(tag), channels, bits, 44100));
    scene.started();
    QVERIFY(scene.captures(kIdA));
    QCOMPARE(DiagnosticLog::lines().value(1), text("当前设备: 默认输出设备 | ") + line);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::diagnosticLinesOfAMissingMixFormat()
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

void TestAudioCaptureStart::secondStartWhileOneRunsChangesNothing()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    int nested = 0;
    scene.audio.setHook(FakeCall::Activate, [&] {
        ++nested;
        capture.startCapture();
    });
    QSignalSpy formats(&capture, &AudioCapture::formatChanged);
    capture.startCapture();
    QCOMPARE(nested, 1);
    QCOMPARE(scene.log.count(text("[startCapture] 已在执行中，跳过本次调用")), 1);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 1);
    QCOMPARE(formats.size(), 1);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::secondStartOnAnotherThreadDuringThePauseChangesNothing()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    std::thread other([&] {
        scene.audio.enter();
        QThread::msleep(250); // within the 500 ms pause of the start below
        capture.startCapture();
    });
    capture.startCapture();
    other.join();
    QCOMPARE(scene.log.count(text("[startCapture] 已在执行中，跳过本次调用")), 1);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::followingUsesTheConsoleDefault()
{
    Scene scene;
    scene.audio.setDefault(eMultimedia, kIdB);
    scene.make();
    const int before = scene.audio.calls(FakeCall::GetDefaultAudioEndpoint);
    scene.capture->startCapture();
    QCOMPARE(scene.audio.calls(FakeCall::GetDefaultAudioEndpoint), before + 1);
    QCOMPARE(scene.audio.records(FakeCall::GetDefaultAudioEndpoint).last().argument,
             qint64(eConsole));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::multimediaDefaultOnlyWhenConsoleFails()
{
    Scene scene;
    scene.audio.setDefault(eConsole, QString());
    scene.audio.setDefault(eMultimedia, kIdB);
    scene.started();
    const auto calls = scene.audio.records(FakeCall::GetDefaultAudioEndpoint);
    QCOMPARE(calls.at(calls.size() - 2).argument, qint64(eConsole));
    QCOMPARE(calls.last().argument, qint64(eMultimedia));
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::listedDeviceWinsAndPendingIdIsDiscarded()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(QStringLiteral("Headset"));
    QVERIFY(scene.captures(kIdB));
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdA); });
    scene.log.clear();
    capture.startCapture();
    QVERIFY(scene.log.inOrder({text("[Step 1] 使用回调指定的设备ID: ") + kIdA,
                               text("[Step 1] 使用指定输出设备: Headset")}));
    QVERIFY(scene.captures(kIdB));

    scene.log.clear();
    capture.startCapture();
    QVERIFY(!scene.log.contains(text("使用回调指定的设备ID")));
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::pendingIdIsUsedWhenFollowing()
{
    Scene scene;
    scene.make();
    scene.audio.setDefault(kIdB);
    const int before = scene.audio.calls(FakeCall::GetDefaultAudioEndpoint);
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
    QCOMPARE(scene.audio.calls(FakeCall::GetDefaultAudioEndpoint), before + 1); // the catalogue's
    QVERIFY(scene.log.inOrder(
        {text("[Step 1] 使用回调指定的设备ID: ") + kIdB, text("[Step 1] 根据回调ID获取设备")}));
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::rejectedPendingIdFallsBackToTheDefault()
{
    Scene scene;
    scene.make();
    onForeignThread([&] { scene.audio.notifyDefaultChanged(QStringLiteral("no such")); });
    QVERIFY(scene.log.inOrder(
        {text("[Step 1] 根据回调ID获取设备"), text("GetDevice(回调ID) 失败，回退到默认设备")}));
    QVERIFY(!scene.log.contains(text("引擎启动失败")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::rejectedListedDeviceFailsTheStart()
{
    Scene scene;
    scene.make();
    scene.audio.remove(kIdB);
    const int before = scene.audio.calls(FakeCall::Activate);
    scene.capture->setCurrentDevice(QStringLiteral("Headset"));
    QVERIFY(scene.log.inOrder({text("[Step 1] 使用指定输出设备: Headset"),
                               text("GetDevice 失败 ffffffff80070490"),
                               text("引擎启动失败，错误代码 ffffffff80070490")}));
    QVERIFY(!scene.log.contains(text("使用默认输出设备")));
    QVERIFY(scene.audio.capturedDevice().isEmpty());
    QVERIFY(scene.audio.calls(FakeCall::Activate) - before <= 1); // the report's own, no session
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 0);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::absentOrUnpluggedDeviceFailsBeforeActivate_data()
{
    QTest::addColumn<quint32>("state");
    QTest::addColumn<QString>("message");
    QTest::newRow("absent") << quint32(DEVICE_STATE_NOTPRESENT)
                            << text("[Step 2a] 错误: 设备不存在");
    QTest::newRow("unplugged") << quint32(DEVICE_STATE_UNPLUGGED)
                               << text("[Step 2a] 错误: 设备已拔出");
}

void TestAudioCaptureStart::absentOrUnpluggedDeviceFailsBeforeActivate()
{
    QFETCH(quint32, state);
    QFETCH(QString, message);
    Scene scene;
    scene.make();
    scene.audio.setState(kIdA, state);
    scene.capture->startCapture();
    QVERIFY(scene.log.inOrder({text("[Step 2a] 警告: 设备未激活，状态 = ") + QString::number(state),
                               message, text("引擎启动失败，错误代码 ffffffff88890004")}));
    QVERIFY(!scene.log.contains(text("[Step 2b]")));
    QCOMPARE(scene.capture->currentDevice(), kFollow);
    QCOMPARE(scene.log.count(text("引擎启动失败")), 1); // returned, not restarted
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::disabledDeviceIsOnlyWarnedAbout()
{
    Scene scene;
    scene.make();
    scene.audio.setState(kIdA, DEVICE_STATE_DISABLED);
    scene.capture->startCapture();
    QVERIFY(scene.log.inOrder({text("[Step 2a] 警告: 设备未激活，状态 = 2"), text("[Step 2b]")}));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::unreadableStateIsPassedOver()
{
    Scene scene;
    scene.make();
    scene.audio.setState(kIdA, DEVICE_STATE_UNPLUGGED);
    scene.audio.fail(FakeCall::GetState, {E_FAIL});
    scene.capture->startCapture();
    QVERIFY(!scene.log.contains(text("[Step 2a]")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::activateTriesAllContextsSecond()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Activate, {E_FAIL}, 1, 1);
    scene.capture->startCapture();
    QVERIFY(scene.log.contains(text("CLSCTX_INPROC_SERVER 失败，再试 CLSCTX_ALL")));
    const auto calls = scene.audio.records(FakeCall::Activate);
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).argument, qint64(CLSCTX_INPROC_SERVER));
    QCOMPARE(calls.at(1).argument, qint64(CLSCTX_ALL));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::activateFailureHints_data()
{
    QTest::addColumn<qint32>("code");
    QTest::addColumn<QString>("hint");
    QTest::newRow("no interface") << qint32(E_NOINTERFACE)
                                  << text("错误: 不支持此接口，可能是驱动不支持 WASAPI");
    QTest::newRow("invalidated") << qint32(AUDCLNT_E_DEVICE_INVALIDATED) << text("错误: 设备无效");
    QTest::newRow("no COM") << qint32(CO_E_NOTINITIALIZED) << text("错误: COM 未初始化");
    QTest::newRow("other") << qint32(E_FAIL) << QString();
}

void TestAudioCaptureStart::activateFailureHints()
{
    QFETCH(qint32, code);
    QFETCH(QString, hint);
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Activate, {code});
    scene.capture->startCapture();
    const QString hex = hexCode(code);
    QVERIFY(
        scene.log.inOrder({text("Activate 失败 ") + hex, text("引擎启动失败，错误代码 ") + hex}));
    QVERIFY(DiagnosticLog::lines().contains(text("Activate 失败, hr=0x") + hex));
    if (hint.isEmpty())
        QVERIFY(!scene.log.contains(text("错误: ")));
    else
        QVERIFY(scene.log.inOrder({text("Activate 失败"), hint, text("引擎启动失败")}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::transientInitializeFourTimesThenRecovery()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_BUFFER_OPERATION_PENDING}, 1, 4);
    scene.capture->startCapture();

    const auto calls = scene.audio.records(FakeCall::Initialize);
    QCOMPARE(calls.size(), 5);
    for (int i = 1; i < 4; ++i)
        QVERIFY(calls.at(i).atMs - calls.at(i - 1).atMs >= 199);
    QVERIFY(calls.at(4).atMs - calls.at(3).atMs >= 499);
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

void TestAudioCaptureStart::transientInitializeSucceedsOnRetry()
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
        QCOMPARE(call.argument, qint64(10'000'000));
    }
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::otherInitializeFailureGoesStraightToRecovery()
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
    QVERIFY(calls.at(1).atMs - calls.at(0).atMs >= 499);
    QVERIFY(calls.at(2).atMs - calls.at(1).atMs >= 499);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::recoveryUsesTheDefaultAndKeepsTheChoice()
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

void TestAudioCaptureStart::recoveryFailsForGood()
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

void TestAudioCaptureStart::unalignedBufferIsAskedForInWholeFrames()
{
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::floatFormat(2, 44100));
    scene.audio.setBufferFrames(448);
    scene.make();
    scene.audio.fail(FakeCall::Initialize, {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED}, 1, 1);
    scene.capture->startCapture();
    const auto calls = scene.audio.records(FakeCall::Initialize);
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).client, calls.at(1).client);
    QCOMPARE(calls.at(1).argument, qint64(101587)); // 448 / 44100 s = 101587.3 units
    QVERIFY(calls.at(1).argumentsRight);
    QVERIFY(scene.log.contains(text("[Step 4c] Buffer 对齐问题，尝试调整...")));
    QVERIFY(!scene.log.contains(text("[Step 4d]")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::unalignedBufferWithoutSize()
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

void TestAudioCaptureStart::announcedFormatIsStereoPcmAndWorkerGetsDeviceAlign()
{
    Scene scene;
    scene.audio.setFormat(kIdA, FakeAudio::floatFormat(6, 96000));
    AudioCapture &capture = scene.make();
    QSignalSpy formats(&capture, &AudioCapture::formatChanged);
    capture.startCapture();
    QCOMPARE(formats.size(), 1);
    const auto format = formats.first().first().value<WAVEFORMATEX>();
    QCOMPARE(int(format.wFormatTag), 1);
    QCOMPARE(int(format.nChannels), 2);
    QCOMPARE(quint32(format.nSamplesPerSec), 96000U);
    QCOMPARE(quint32(format.nAvgBytesPerSec), 384000U);
    QCOMPARE(int(format.nBlockAlign), 4);
    QCOMPARE(int(format.wBitsPerSample), 16);
    QCOMPARE(int(format.cbSize), 0);
    QVERIFY(scene.captures(kIdA));
    QVERIFY(scene.log.contains(text(" blockAlign =24")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::formatIsAnnouncedBeforeTheBufferSize()
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

void TestAudioCaptureStart::successWithoutAnObjectFails_data()
{
    QTest::addColumn<int>("call");
    QTest::newRow("enumerator") << int(FakeCall::CreateEnumerator);
    QTest::newRow("default endpoint") << int(FakeCall::GetDefaultAudioEndpoint);
    QTest::newRow("activate") << int(FakeCall::Activate);
    QTest::newRow("mix format") << int(FakeCall::GetMixFormat);
}

void TestAudioCaptureStart::successWithoutAnObjectFails()
{
    QFETCH(int, call);
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall(call), {S_OK, true});
    scene.capture->startCapture();
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff80004003")), 1);
    scene.audio.clearFaults();
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::oldSessionIsEndedAndPausedBeforeTheNext()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    scene.log.clear();
    capture.startCapture();
    QVERIFY(scene.log.inOrder({text("[startCapture] 等待旧线程停止..."),
                               text("[startCapture] 旧线程已停止"),
                               text("[Step 1] 使用默认输出设备")}));
    QVERIFY(!scene.log.contains(text("线程停止超时")));
    const auto stops = scene.audio.records(FakeCall::Stop);
    QCOMPARE(stops.size(), 2); // the worker's and the start's
    const qint64 pause =
        scene.audio.records(FakeCall::GetDefaultAudioEndpoint).last().atMs - stops.last().atMs;
    QVERIFY2(pause >= 499, qPrintable(QString::number(pause)));
    QVERIFY(scene.captures(kIdA));
    QTest::qWait(700); // the stop that the start provoked is not answered by another start
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QCOMPARE(scene.log.count(text("[handleThreadStopped] 线程停止（不需要自动重启）")), 1);
    QCOMPARE(scene.audio.liveObjects(),
             4); // enumerator, device, client, capture client: no old one
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::mutexIsFreeDuringThePause()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    QStringList during;
    std::thread other([&] {
        QThread::msleep(200);
        capture.isCapturing();
        during = scene.log.texts();
    });
    capture.startCapture();
    other.join();
    QCOMPARE(during.filter(text("[Step 1]")).size(), 1); // the first start's only
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::waitForTheOldWorkerTimesOut()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    std::atomic<bool> entered {false};
    std::atomic<bool> go {false};
    scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        entered = true;
        while (!go)
            QThread::msleep(1);
    });
    QVERIFY(waitUntil([&] { return entered.load(); }));
    scene.log.clear();
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(3600, &capture, [&] { go = true; });
    std::thread helper([&] {
        while (clock.elapsed() < 3550)
            QThread::msleep(5);
        go = true;
    });
    capture.startCapture();
    helper.join();
    QVERIFY(clock.elapsed() >= 2850); // the timer is a coarse one
    QVERIFY(scene.log.inOrder({text("[startCapture] 线程停止超时，强制终止"),
                               text("[startCapture] 旧线程已停止"), text("[Step 1]"),
                               text("[Step 6]")}));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::startOnAForeignThread()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    int formats = 0; // queued: formatChanged crosses threads
    connect(&capture, &AudioCapture::formatChanged, this, [&](WAVEFORMATEX) { ++formats; });
    onForeignThread([&] {
        scene.audio.enter();
        capture.startCapture();
    });
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] {
        scene.audio.enter();
        capture.startCapture();
    });
    QVERIFY(!scene.log.contains(text("线程停止超时")));
    QVERIFY(scene.captures(kIdA));
    QVERIFY(waitUntil([&] { return formats == 2; }));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::otherApartmentIsUsable()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    onForeignThread([&] {
        scene.audio.enter();
        QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), RPC_E_CHANGED_MODE);
        capture.startCapture();
        CoUninitialize();
    });
    QVERIFY(!scene.log.contains(text("CoInitializeEx 失败")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::failedApartmentIsOnlyLogged()
{
    Scene scene;
    if (!failCoInitializeEx(E_OUTOFMEMORY))
        QSKIP("this host's CoInitializeEx cannot be made to fail");
    scene.make();
    QVERIFY(scene.log.contains(text("[AudioCapture] CoInitializeEx 失败, hr = ffffffff8007000e")));
    scene.capture->startCapture();
    QVERIFY(scene.log.inOrder({text("[startCapture] CoInitializeEx 失败, hr = ffffffff8007000e"),
                               text("[Step 1] 使用默认输出设备"),
                               text("[Step 6] 调用 CaptureAudioThread::start")}));
    QVERIFY(waitUntil([&] { return scene.log.contains(text("[Thread Error] CoInitializeEx")); }));
    failCoInitializeEx(S_OK);
    QVERIFY(scene.captures(kIdA)); // by the restart
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::doubleStartBeforeTheWorkerBegins()
{
    // The second start releases the client of the first, whose session has got no further than
    // GetService: nothing is used after its release, and the second device is captured.
    Scene scene;
    AudioCapture &capture = scene.make();
    std::atomic<bool> entered {false};
    std::atomic<bool> go {false};
    scene.audio.setHook(FakeCall::GetService, [&] {
        entered = true;
        while (!go)
            QThread::msleep(1);
    });
    capture.startCapture();
    QVERIFY(waitUntil([&] { return entered.load(); }));
    QVERIFY(!capture.isCapturing());
    capture.setCurrentDevice(QStringLiteral("Headset"));
    capture.setCurrentDevice(kFollow);
    capture.setCurrentDevice(QStringLiteral("Headset"));
    scene.audio.setHook(FakeCall::GetService, {});
    go = true;
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(scene.audio.calls(FakeCall::GetService), 2); // the superseded ones never got there
    QTest::qWait(1200);
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 4); // no restart for the sessions taken over
    QCOMPARE(scene.audio.violations(), QStringList());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::stopBeforeTheWorkerBegins()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    std::atomic<bool> entered {false};
    std::atomic<bool> go {false};
    scene.audio.setHook(FakeCall::Start, [&] {
        entered = true;
        while (!go)
            QThread::msleep(1);
    });
    capture.startCapture();
    QVERIFY(waitUntil([&] { return entered.load(); }));
    capture.stopCapture();
    go = true;
    QVERIFY(waitUntil([&] { return scene.log.contains(text("频谱引擎已停止采集！")); }));
    QVERIFY(!capture.isCapturing());
    QTest::qWait(700);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    QVERIFY(scene.log.contains(text("[handleThreadStopped] 线程停止（不需要自动重启）")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::stopLeavesTheSessionsObjects()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    QVERIFY(capture.isCapturing());
    QVERIFY(QMetaObject::invokeMethod(&capture, "stopCapture"));
    QVERIFY(!capture.isCapturing());
    QVERIFY(waitUntil([&] { return scene.log.contains(text("频谱引擎已停止采集！")); }));
    QCOMPARE(scene.audio.liveObjects(), 3); // enumerator, device, client
    QVERIFY(QMetaObject::invokeMethod(&capture, "startCapture"));
    QVERIFY(scene.captures(kIdA));
    QVERIFY(!scene.log.contains(text("等待旧线程停止")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::destroyedWhileStarting()
{
    // The session is queued behind a worker that has not begun it when the controller goes.
    Scene scene;
    scene.audio.setHook(FakeCall::GetService, [] { QThread::msleep(300); });
    scene.started();
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::hexadecimalCodes()
{
    QCOMPARE(hexCode(AUDCLNT_E_DEVICE_INVALIDATED), QStringLiteral("ffffffff88890004"));
    QCOMPARE(hexCode(S_FALSE), QStringLiteral("1"));
    QCOMPARE(wasapiErrorText(HRESULT(0x88890FFFU)),
             QStringLiteral("Unknown error: 0xffffffff88890fff"));
}

QTEST_GUILESS_MAIN(TestAudioCaptureStart)
#include "tst_audiocapture_start.moc"
