// The endpoint notifications, each on a thread that Qt did not start.
#include "tests/capture/scene.h"
#include "tests/support/virtualmain.h"

#include <optional>

class TestAudioCaptureNotifications : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { spin(500); } // past the debounce of the test before

    void threeRolesLeadToOneSwitch();
    void sameIdAfterTheDebounceIsHandledAgain();
    void sameIdWithinTheDebounceIsNot();
    void differentIdIsHandledAtOnce();
    void everyRoleCounts_data();
    void everyRoleCounts();
    void debounceIsTheProcesses();
    void otherFlowsNullIdsAndUnreadyControllersAreIgnored();
    void pinnedDeviceStaysPinned();
    void bareNameOfAnotherEndpointIsFollowed();
    void textsOfADefaultChange();
    void stateTexts_data();
    void stateTexts();
    void microphoneCountsInFollowDefaultMode();
    void otherDeviceDoesNotCountWhenPinned();
    void pinnedDevicesStateCountsByEitherSubstring();
    void inactiveWithoutSessionStopsNothing();
    void stateChangeOfANullId();
    void returnTimerFiresInTheControllersThread();
    void addedDeviceIsOnlyLogged();
    void removalOfThePinnedDefaultSwitchesBack();
    void removalInFollowDefaultModeIsIgnored();
    void removalOfAnotherDeviceIsIgnored();
    void propertyChangesDoNothing();
    void notificationsWhileAStartHoldsTheMutex();
    void destructionWaitsForARunningCallback();
};

void TestAudioCaptureNotifications::threeRolesLeadToOneSwitch()
{
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    scene.audio.setDefault(kIdB);
    VirtualThread roles[3];
    for (const ERole role : {eConsole, eMultimedia, eCommunications})
        roles[role] =
            VirtualThread([&, role] { scene.audio.notifyDefaultChanged(kIdB, eRender, role); });
    QVERIFY(scene.captures(kIdB));
    for (VirtualThread &thread : roles)
        thread.join();
    spin(100);
    QCOMPARE(scene.log.count(text("[设备切换] 检测到输出设备变化:")), 1);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::sameIdAfterTheDebounceIsHandledAgain()
{
    Scene scene;
    scene.make();
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdA); });
    spin(600);
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdA); });
    QCOMPARE(scene.log.count(text("[设备切换] 检测到输出设备变化: Speakers")), 2);
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::sameIdWithinTheDebounceIsNot()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Headset")); // pinned: a change is logged, and that is all
    const QString handled = text("[设备切换] 检测到输出设备变化: Speakers");
    const auto tell = [&](ERole role) {
        onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdA, eRender, role); });
    };
    scene.log.clear();
    tell(eConsole);
    QCOMPARE(scene.log.count(handled), 1);
    spin(300);
    tell(eMultimedia);
    spin(199); // it counts from the call that was handled, not from one that was not
    tell(eCommunications);
    QCOMPARE(scene.log.count(text("[设备切换]")), 3); // the three texts of the one change
    QCOMPARE(scene.log.count(handled), 1);
    spin(1);
    tell(eConsole);
    QCOMPARE(scene.log.count(handled), 2);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::differentIdIsHandledAtOnce()
{
    Scene scene;
    scene.make();
    onForeignThread([&] {
        scene.audio.notifyDefaultChanged(kIdA);
        scene.audio.setDefault(kIdB);
        scene.audio.notifyDefaultChanged(kIdB);
    });
    QCOMPARE(scene.log.count(text("[设备切换] 检测到输出设备变化:")), 2);
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::everyRoleCounts_data()
{
    QTest::addColumn<int>("role");
    QTest::newRow("console") << static_cast<int>(eConsole);
    QTest::newRow("multimedia") << static_cast<int>(eMultimedia);
    QTest::newRow("communications") << static_cast<int>(eCommunications);
}

void TestAudioCaptureNotifications::everyRoleCounts()
{
    QFETCH(int, role);
    const QString id = QStringLiteral("{0.0.0}.role%1").arg(role); // new to the debounce
    Scene scene;
    scene.audio.add(id, text("Monitor"));
    scene.make();
    scene.audio.setDefault(id);
    onForeignThread(
        [&] { scene.audio.notifyDefaultChanged(id, eRender, static_cast<ERole>(role)); });
    QCOMPARE(scene.log.count(text("[设备切换] 检测到输出设备变化: Monitor")), 1);
    QVERIFY(scene.captures(id));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::debounceIsTheProcesses()
{
    // Two controllers hear of the same change; the one that comes first handles it alone.
    Scene scene;
    scene.make().setCurrentDevice(text("Headset")); // pinned: a change is logged, and that is all
    std::optional<AudioCapture> other(std::in_place);
    scene.log.clear();
    const std::wstring id = kIdA.toStdWString();
    onForeignThread([&] {
        scene.audio.enter();
        scene.capture->OnDefaultDeviceChanged(eRender, eConsole, id.c_str());
        sleepMs(499);
        other->OnDefaultDeviceChanged(eRender, eConsole, id.c_str());
    });
    other.reset();
    QCOMPARE(scene.log.count(text("[设备切换] 检测到输出设备变化: Speakers")), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::otherFlowsNullIdsAndUnreadyControllersAreIgnored()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.log.clear();
    const int calls = scene.audio.totalCalls();
    onForeignThread([&] {
        scene.audio.notifyDefaultChanged(kIdMic, eCapture);
        scene.audio.notifyDefaultChanged(kIdA, eAll);
        scene.audio.notifyDefaultChanged(QString());
    });
    QCOMPARE(scene.audio.totalCalls(), calls);
    QCOMPARE(scene.log.texts(), QStringList());
    QCOMPARE(capture.currentDevice(), kFollow);
    VERIFY_NOTHING_LEFT(scene);

    // Not ready: during the construction, before the first catalogue is complete.
    Scene early;
    early.audio.setHook(FakeCall::EnumAudioEndpoints,
                        [&] { early.audio.notifyDefaultChanged(kIdB); });
    early.make();
    early.audio.setHook(FakeCall::EnumAudioEndpoints, {});
    QVERIFY(!early.log.contains(text("[设备切换]")));
    QCOMPARE(early.audio.calls(FakeCall::Activate), 0);
    // Nor has it been remembered: not for the next start, and not for the debounce.
    early.capture->startCapture();
    QVERIFY(early.captures(kIdA));
    QVERIFY(!early.log.contains(text("使用回调指定的设备ID")));
    early.audio.setDefault(kIdB);
    onForeignThread([&] { early.audio.notifyDefaultChanged(kIdB); });
    QCOMPARE(early.log.count(text("[设备切换] 检测到输出设备变化: Headset")), 1);
    QVERIFY(early.captures(kIdB));
    VERIFY_NOTHING_LEFT(early);
}

void TestAudioCaptureNotifications::pinnedDeviceStaysPinned()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Headset"));
    QVERIFY(scene.captures(kIdB));
    const auto before = capture.devices();
    scene.audio.setDefault(kIdB);
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
    QVERIFY(scene.log.inOrder({text("[设备切换] 用户之前选择的设备: Headset , 是否跟随: false"),
                               text("[设备切换] 之前是否在运行: true")}));
    spin(100);
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    QCOMPARE(capture.currentDevice(), text("Headset"));
    QCOMPARE(capture.devices().at(1).name, before.at(1).name); // no new catalogue
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::bareNameOfAnotherEndpointIsFollowed()
{
    // Two endpoints have one name. The new default carries the suffix, the other endpoint the bare
    // name, and the bare name is found.
    Scene scene;
    const QString twin = QStringLiteral("{0.0.0}.twin");
    scene.audio.add(twin, text("Headset"));
    AudioCapture &capture = scene.make();
    scene.audio.setDefault(kIdB);
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
    QVERIFY(scene.log.contains(text("[设备切换] 已自动跟随到: Headset")));
    QCOMPARE(capture.currentDevice(), text("Headset"));
    QVERIFY(scene.captures(twin));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::textsOfADefaultChange()
{
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.make();
    scene.audio.setDefault(kIdB);
    scene.log.clear();
    onForeignThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
    QCOMPARE(DiagnosticLog::lines().mid(0, 3),
             QStringList({text("OnDefaultDeviceChanged -> Headset"),
                          text("setCurrentDevice -> 默认输出设备"),
                          text("startCapture 开始, 当前设备=默认输出设备")}));
    QVERIFY(scene.log.inOrder({text("[设备切换] 检测到输出设备变化: Headset"),
                               text("[设备切换] 用户之前选择的设备: 默认输出设备 , 是否跟随: true"),
                               text("[设备切换] 之前是否在运行: false"),
                               text("[flushDevices] 发现 2 个输出设备"),
                               text("[设备切换] 未找到设备，切换到默认设备"), text("[Step 1]")}));
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::stateTexts_data()
{
    QTest::addColumn<quint32>("state");
    QTest::addColumn<QString>("name");
    QTest::newRow("1") << 1U << text("ACTIVE");
    QTest::newRow("2") << 2U << text("DISABLED");
    QTest::newRow("4") << 4U << text("NOTPRESENT");
    QTest::newRow("8") << 8U << text("UNPLUGGED");
    QTest::newRow("0x10") << 0x10U << text("UNKNOWN");
    QTest::newRow("0") << 0U << text("UNKNOWN");
}

void TestAudioCaptureNotifications::stateTexts()
{
    QFETCH(quint32, state);
    QFETCH(QString, name);
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdB, state); });
    QVERIFY(scene.log.contains(text("[设备状态变化] 设备: Headset  状态: ") + name));
    const bool stopped =
        scene.log.contains(text("[设备状态] 当前使用的设备变为非活动状态，停止采集"));
    QCOMPARE(stopped, state != 1);
    QCOMPARE(capture.isCapturing(), state == 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::microphoneCountsInFollowDefaultMode()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdMic, DEVICE_STATE_DISABLED); });
    QVERIFY(!capture.isCapturing());
    spin(700); // longer than any restart would wait
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    QVERIFY(!scene.log.contains(text("需要自动重启，延迟500ms")));
    QVERIFY(!capture.isCapturing());
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdMic, DEVICE_STATE_ACTIVE); });
    QVERIFY(scene.log.contains(text("[设备状态] 设备恢复活动状态，延迟500ms后重启采集")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::otherDeviceDoesNotCountWhenPinned()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Headset"));
    QVERIFY(scene.captures(kIdB));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_UNPLUGGED); });
    QVERIFY(capture.isCapturing());
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_ACTIVE); });
    QVERIFY(!scene.log.contains(text("[设备状态] ")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::pinnedDevicesStateCountsByEitherSubstring()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Speakers (当前默认)")); // contains the name
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_UNPLUGGED); });
    QVERIFY(!capture.isCapturing());
    capture.setCurrentDevice(text("Head")); // contained in the name; not listed
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdB, DEVICE_STATE_UNPLUGGED); });
    QVERIFY(!capture.isCapturing());
    capture.setCurrentDevice(text("head"));
    QVERIFY(waitUntil([&] { return capture.isCapturing(); }));
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdB, DEVICE_STATE_UNPLUGGED); });
    QVERIFY(capture.isCapturing());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::inactiveWithoutSessionStopsNothing()
{
    // Not running: the text is logged, but the restarts that wait are not called off.
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    scene.audio.fail(FakeCall::GetService, {E_FAIL}, 2, 1);
    scene.capture->startCapture();
    QVERIFY(waitUntil([&] { return scene.log.contains(text("延迟500ms...")); }));
    QVERIFY(!scene.capture->isCapturing());
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdB, DEVICE_STATE_DISABLED); });
    QVERIFY(scene.log.contains(text("停止采集")));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::stateChangeOfANullId()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    scene.log.clear();
    QCOMPARE(capture.OnDeviceStateChanged(nullptr, DEVICE_STATE_ACTIVE), S_OK);
    QCOMPARE(scene.log.texts(), QStringList());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::returnTimerFiresInTheControllersThread()
{
    Scene scene;
    scene.make();
    std::atomic<Qt::HANDLE> starter {nullptr};
    scene.audio.setHook(FakeCall::Activate, [&] { starter = QThread::currentThreadId(); });
    onForeignThread([&] { scene.audio.notifyStateChanged(kIdA, DEVICE_STATE_ACTIVE); });
    QVERIFY(scene.captures(kIdA));
    QCOMPARE(starter.load(), QThread::currentThreadId());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::addedDeviceIsOnlyLogged()
{
    Scene scene;
    scene.make();
    scene.audio.add(QStringLiteral("{0.0.0}.c"), text("Monitor"));
    const int calls = scene.audio.totalCalls();
    onForeignThread([&] { scene.audio.notifyAdded(QStringLiteral("{0.0.0}.c")); });
    QVERIFY(scene.log.contains(text("设备已添加 0x"))); // the address, not the text
    QCOMPARE(scene.audio.totalCalls(), calls);
    QCOMPARE(scene.capture->devices().size(), 3);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::removalOfThePinnedDefaultSwitchesBack()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Speakers (当前默认)"));
    QVERIFY(scene.captures(kIdA));
    scene.audio.setDefault(kIdB);
    scene.audio.setState(kIdA, DEVICE_STATE_NOTPRESENT); // still known by its id
    onForeignThread([&] { scene.audio.notifyRemoved(kIdA); });
    QVERIFY(scene.log.inOrder({text("设备已移除 0x"), text("[设备移除] 被移除的设备名称: Speakers"),
                               text("[设备移除] 当前使用的设备: Speakers (当前默认)"),
                               text("[设备移除] 当前使用的设备被移除，切换到默认设备"),
                               text("[Step 1] 使用默认输出设备")}));
    QCOMPARE(capture.currentDevice(), kFollow);
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(capture.devices().size(), 2); // the catalogue is new, too
    QVERIFY(!scene.log.contains(text("等待旧线程停止"))); // it was given 100 ms
    // These, and the pause after the old client's end.
    QCOMPARE(between(scene.log, text("[设备移除] 当前使用的设备被移除，切换到默认设备"),
                     text("[Step 1] 使用默认输出设备")),
             600LL);
    spin(2000); // the stop of the removed device's session is not answered by a second start
    QCOMPARE(scene.log.count(text("[handleThreadStopped] 线程停止（不需要自动重启）")), 1);
    QVERIFY(!scene.log.contains(text("需要自动重启，延迟500ms")));
    QVERIFY(!scene.log.contains(text("已在执行中")));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 2);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::removalInFollowDefaultModeIsIgnored()
{
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    onForeignThread([&] { scene.audio.notifyRemoved(kIdA); });
    QVERIFY(!scene.log.contains(text("切换到默认设备")));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::removalOfAnotherDeviceIsIgnored()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    capture.setCurrentDevice(text("Headset"));
    QVERIFY(scene.captures(kIdB));
    onForeignThread([&] { scene.audio.notifyRemoved(kIdA); });
    QCOMPARE(capture.currentDevice(), text("Headset"));
    QCOMPARE(scene.audio.calls(FakeCall::Activate), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::propertyChangesDoNothing()
{
    Scene scene;
    scene.make();
    scene.log.clear();
    const int calls = scene.audio.totalCalls();
    onForeignThread([&] { scene.audio.notifyPropertyChanged(kIdA); });
    QCOMPARE(scene.audio.totalCalls(), calls);
    QCOMPARE(scene.log.texts(), QStringList());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::notificationsWhileAStartHoldsTheMutex()
{
    // A default change that arrives between Step 1 and the end is not lost to the re-entry guard:
    // it waits for the mutex, and finds the start finished when it gets it.
    Scene scene;
    AudioCapture &capture = scene.make();
    VirtualThread notifier;
    scene.audio.setHook(FakeCall::Initialize, [&] {
        if (scene.audio.calls(FakeCall::Initialize) > 0)
            return;
        scene.audio.setDefault(kIdB);
        notifier = VirtualThread([&] { scene.audio.notifyDefaultChanged(kIdB); });
        sleepMs(100);
    });
    capture.startCapture();
    QVERIFY(scene.captures(kIdB));
    notifier.join();
    QVERIFY(!scene.log.contains(text("已在执行中")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureNotifications::destructionWaitsForARunningCallback()
{
    Scene scene;
    scene.started();
    QVERIFY(scene.captures(kIdA));
    std::atomic<bool> inside {false};
    scene.audio.setDefault(kIdB);
    scene.audio.setHook(FakeCall::GetValue, [&] { inside = true; });
    VirtualThread notifier([&] { scene.audio.notifyDefaultChanged(kIdB); });
    while (!inside)
        sleepMs(1);
    VERIFY_NOTHING_LEFT(scene); // the start on that thread comes to its end first
    notifier.join();
    QCOMPARE(scene.audio.problems(), QStringList());
}

VIRTUAL_TIME_MAIN(TestAudioCaptureNotifications)
#include "tst_audiocapture_notifications.moc"
