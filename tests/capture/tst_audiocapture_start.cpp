// The start sequence as a whole on scripted devices: its texts, old sessions, threads, stops.
#include "tests/capture/scene.h"
#include "tests/support/comfault.h"
#include "tests/support/virtualmain.h"

#include <objbase.h>
#include <QSignalSpy>

class TestAudioCaptureStart : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { failCoInitializeEx(S_OK); }

    void textsOfASuccessfulStartInOrder();
    void diagnosticLinesOfASuccessfulStart();
    void secondStartWhileOneRunsChangesNothing();
    void secondStartOnAnotherThreadDuringThePauseChangesNothing();
    void startOnAnotherThreadDuringTheStepsWaitsAndStartsAgain();
    void oldSessionIsEndedAndPausedBeforeTheNext();
    void mutexIsFreeDuringThePause();
    void waitForTheOldWorkerTimesOut();
    void startOnAForeignThread();
    void otherApartmentIsUsable();
    void failedApartmentIsOnlyLogged();
    void apartmentsAreNeverLeft();
    void doubleStartBeforeTheWorkerBegins();
    void stopBeforeTheWorkerBegins();
    void stopLeavesTheSessionsObjects();
    void destroyedWhileStarting();
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

void TestAudioCaptureStart::startOnAnotherThreadDuringTheStepsWaitsAndStartsAgain()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    VirtualThread other;
    QStringList during;
    scene.audio.setHook(FakeCall::Initialize, [&] {
        if (other.joinable())
            return;
        other = VirtualThread([&] {
            scene.audio.enter();
            capture.startCapture();
        });
        sleepMs(1000);
        during = scene.log.texts();
    });
    capture.startCapture();
    QCOMPARE(during.filter(text("[Step 1]")).size(), 1);
    other.join();
    QVERIFY(!scene.log.contains(text("已在执行中")));
    QCOMPARE(scene.log.count(text("[Step 1]")), 2);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureStart::secondStartOnAnotherThreadDuringThePauseChangesNothing()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    VirtualThread other([&] {
        scene.audio.enter();
        sleepMs(250); // within the 500 ms pause of the start below
        capture.startCapture();
    });
    capture.startCapture();
    other.join();
    QCOMPARE(scene.log.count(text("[startCapture] 已在执行中，跳过本次调用")), 1);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    QVERIFY(scene.captures(kIdA));
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
    QCOMPARE(pause, 500LL);
    QVERIFY(scene.captures(kIdA));
    spin(700); // the stop that the start provoked is not answered by another start
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
    VirtualThread other([&] {
        sleepMs(200);
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
            sleepMs(1);
    });
    QVERIFY(waitUntil([&] { return entered.load(); }));
    scene.log.clear();
    const quint64 beforeMs = tickCountMs();
    VirtualThread helper([&] {
        sleepMs(3550);
        go = true;
    });
    capture.startCapture();
    QCOMPARE(tickCountMs() - beforeMs, 3500ULL); // the wait, and the pause after the client's end
    QCOMPARE(between(scene.log, text("[startCapture] 等待旧线程停止..."),
                     text("[startCapture] 线程停止超时，强制终止")),
             3000LL);
    helper.join();
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
    failCoInitializeEx(E_OUTOFMEMORY);
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

void TestAudioCaptureStart::apartmentsAreNeverLeft()
{
    // A thread that has left its apartment could enter the other kind.
    Scene scene;
    AudioCapture &capture = scene.make();
    HRESULT afterStart = S_OK;
    onForeignThread([&] {
        scene.audio.enter();
        capture.startCapture();
        capture.stopCapture();
        afterStart = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    });
    QCOMPARE(afterStart, RPC_E_CHANGED_MODE);
    VERIFY_NOTHING_LEFT(scene);
    QCOMPARE(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
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
            sleepMs(1);
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
    spin(1200);
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
            sleepMs(1);
    });
    capture.startCapture();
    QVERIFY(waitUntil([&] { return entered.load(); }));
    capture.stopCapture();
    go = true;
    QVERIFY(waitUntil([&] { return scene.log.contains(text("频谱引擎已停止采集！")); }));
    QVERIFY(!capture.isCapturing());
    spin(700);
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
    scene.audio.setHook(FakeCall::GetService, [] { sleepMs(300); });
    scene.started();
    VERIFY_NOTHING_LEFT(scene);
}

VIRTUAL_TIME_MAIN(TestAudioCaptureStart)
#include "tst_audiocapture_start.moc"
