// The three ways back into a start.
#include "tests/capture/scene.h"
#include "tests/support/virtualmain.h"

class TestAudioCaptureRestart : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void workerThatStopsByItselfIsStartedOnceAfterHalfASecond();
    void failedRecoveryIsRestartedToo();
    void deliberateStopIsNotAnswered();
    void stopWithinHalfASecondCancels();
    void deviceReturnIsCancelledByAnotherChoice();
    void deviceReturnRestartsAfterADeliberateStop();
    void defaultChangeStartsAfterADeliberateStop();
    void sameDeviceRestartsAnyway();
    void sessionThatCannotStartIsRetriedForever();
    void invalidatedWorkerStartFallsBackToTheDefault();
    void invalidatedSessionOfThePastIsLoggedOnly();
    void invalidatedInsideTheStartDoesNot();
    void stopOfATimedOutWorkerIsNotAnswered();
};

void TestAudioCaptureRestart::workerThatStopsByItselfIsStartedOnceAfterHalfASecond()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    const int polls = scene.audio.calls(FakeCall::GetNextPacketSize);
    scene.audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED}, polls + 1, 1);
    const QString armed = text("[handleThreadStopped] 检测到线程停止，需要自动重启，延迟500ms...");
    const QString fired = text("[handleThreadStopped] 正在执行自动重启...");
    QVERIFY(waitUntil([&] { return scene.log.contains(armed); }));
    spin(499);
    QVERIFY(!scene.log.contains(fired));
    spin(1);
    QVERIFY(scene.log.contains(fired));
    QCOMPARE(between(scene.log, armed, fired), 500LL);
    // The worker has left its run flag set: the start waited for it, in vain, and paused.
    QCOMPARE(between(scene.log, fired, text("[startCapture] 线程停止超时，强制终止")), 3000LL);
    QCOMPARE(scene.audio.records(FakeCall::GetDefaultAudioEndpoint).last().atMs
                 - scene.audio.records(FakeCall::Stop).last().atMs,
             500LL);
    QVERIFY(scene.captures(kIdA));
    spin(800);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QCOMPARE(scene.log.count(fired), 1);
    const QStringList started {
        text("startCapture 开始, 当前设备=默认输出设备"),
        text("当前设备: 默认输出设备 | 2ch 32bit 48000Hz blockAlign=8 WAVEFORMATEXTENSIBLE"),
        text("Initialize成功, 启动采集线程 blockAlign=8"),
    };
    const QStringList ended {
        text("采集线程: GetNextPacketSize DEVICE_INVALIDATED"),
        text("采集线程退出循环"),
        text("handleThreadStopped 触发"),
    };
    QCOMPARE(DiagnosticLog::lines(), started + ended + started);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::failedRecoveryIsRestartedToo()
{
    Scene scene;
    scene.audio.setEndlessFrames(kIdA, 0);
    scene.audio.fail(FakeCall::Start, {E_FAIL}, 2, 1);
    scene.started();
    QVERIFY(waitUntil([&] { return scene.audio.calls(FakeCall::Activate) == 2; }));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::deliberateStopIsNotAnswered()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    capture.stopCapture();
    QVERIFY(waitUntil([&] {
        return scene.log.contains(text("[handleThreadStopped] 线程停止（不需要自动重启）"));
    }));
    spin(700);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::stopWithinHalfASecondCancels()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    const int polls = scene.audio.calls(FakeCall::GetNextPacketSize);
    scene.audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED}, polls + 1, 1);
    QVERIFY(waitUntil([&] { return scene.log.contains(text("延迟500ms...")); }));
    spin(499);
    capture.stopCapture();
    const QString cancelled = text("[handleThreadStopped] 自动重启已取消（用户可能已手动停止）");
    QVERIFY(!scene.log.contains(cancelled));
    spin(1);
    QVERIFY(scene.log.contains(cancelled));
    spin(5000);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::deviceReturnIsCancelledByAnotherChoice()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_ACTIVE); });
    QVERIFY(scene.log.contains(text("[设备状态] 设备恢复活动状态，延迟500ms后重启采集")));
    capture.setCurrentDevice(QStringLiteral("Headset"));
    const QString cancelled = text("[设备状态] 当前设备已变更，取消重启");
    spin(499);
    QVERIFY(!scene.log.contains(cancelled));
    spin(1);
    QVERIFY(scene.log.contains(cancelled));
    QVERIFY(!scene.log.contains(text("正在重启采集")));
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::deviceReturnRestartsAfterADeliberateStop()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    capture.stopCapture();
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_ACTIVE); });
    const QString fired = text("[设备状态] 正在重启采集...");
    spin(499);
    QVERIFY(!scene.log.contains(fired));
    spin(1);
    QVERIFY(scene.log.contains(fired));
    QCOMPARE(between(scene.log, text("[设备状态] 设备恢复活动状态，延迟500ms后重启采集"), fired),
             500LL);
    QVERIFY(scene.captures(kIdA));
    QVERIFY(capture.isCapturing());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::defaultChangeStartsAfterADeliberateStop()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    capture.stopCapture();
    QVERIFY(waitUntil([&] {
        return scene.log.contains(text("[handleThreadStopped] 线程停止（不需要自动重启）"));
    }));
    scene.audio.setDefault(kIdB);
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
    QVERIFY(scene.log.contains(text("[设备切换] 之前是否在运行: false")));
    QVERIFY(scene.captures(kIdB));
    QVERIFY(capture.isCapturing());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::sameDeviceRestartsAnyway()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    {
        const DiagnosticLog diagnostics;
        capture.setCurrentDevice(kFollow);
        const QStringList lines = DiagnosticLog::lines();
        QCOMPARE(lines.value(0), text("setCurrentDevice -> 默认输出设备"));
        QCOMPARE(lines.value(1), text("startCapture 开始, 当前设备=默认输出设备"));
    }
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::sessionThatCannotStartIsRetriedForever()
{
    Scene scene;
    scene.audio.fail(FakeCall::GetService, {E_FAIL}, 1, 4);
    scene.started();
    QVERIFY(waitUntil([&] { return scene.audio.capturedDevice() == kIdA; }, 60000));
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff80004005")), 4);
    QCOMPARE(scene.log.count(text("正在执行自动重启")), 4);
    // Half a second to the restart, half a second after the old client's stop.
    const auto services = scene.audio.records(FakeCall::GetService);
    QCOMPARE(services.size(), 5);
    for (int i = 1; i < services.size(); ++i)
        QCOMPARE(services.at(i).atMs - services.at(i - 1).atMs, 1000LL);
    QVERIFY(ReportTaker::reports().size() <= 1); // one for the whole process
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::invalidatedWorkerStartFallsBackToTheDefault()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.audio.fail(FakeCall::Start, {AUDCLNT_E_DEVICE_INVALIDATED}, 1, 1);
    capture.setCurrentDevice(QStringLiteral("Headset"));
    QVERIFY(scene.captures(kIdA));
    QCOMPARE(capture.currentDevice(), kFollow);
    QVERIFY(scene.log.contains(text("引擎启动失败，错误代码 ffffffff88890004")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::invalidatedSessionOfThePastIsLoggedOnly()
{
    // The worker's error is under way when another device is chosen: it is logged and reported as
    // any other, but the choice stands.
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.audio.fail(FakeCall::Start, {AUDCLNT_E_DEVICE_INVALIDATED}, 1, 1);
    capture.startCapture();
    while (!scene.log.contains(text("Start 失败, hr = ffffffff88890004")))
        sleepMs(1); // no events: the error waits
    sleepMs(50);
    QVERIFY(!scene.log.contains(text("引擎启动失败")));
    capture.setCurrentDevice(QStringLiteral("Headset"));
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(scene.log.count(text("引擎启动失败，错误代码 ffffffff88890004")), 1);
    spin(700);
    QCOMPARE(capture.currentDevice(), QStringLiteral("Headset"));
    QCOMPARE(scene.audio.calls(FakeCall::Initialize), 2);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::invalidatedInsideTheStartDoesNot()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.audio.fail(FakeCall::GetMixFormat, {AUDCLNT_E_DEVICE_INVALIDATED}, 1, 1);
    capture.setCurrentDevice(QStringLiteral("Headset"));
    QVERIFY(scene.log.contains(text("引擎启动失败，错误代码 ffffffff88890004")));
    spin(300);
    QCOMPARE(capture.currentDevice(), QStringLiteral("Headset"));
    QCOMPARE(scene.log.count(text("[Step 1] ")), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureRestart::stopOfATimedOutWorkerIsNotAnswered()
{
    // The worker ends only after the new start has gone on, but still because of that start.
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    std::atomic<bool> entered {false};
    std::atomic<bool> go {false};
    scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        entered = true;
        while (!go)
            sleepMs(1);
    });
    QVERIFY(waitUntil([&] { return entered.load(); }));
    capture.startCapture();
    QVERIFY(scene.log.contains(text("线程停止超时，强制终止")));
    go = true;
    QVERIFY(scene.captures(kIdA));
    spin(800);
    QVERIFY(!scene.log.contains(text("需要自动重启，延迟500ms")));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    VERIFY_NOTHING_LEFT(scene);
}

VIRTUAL_TIME_MAIN(TestAudioCaptureRestart)
#include "tst_audiocapture_restart.moc"
