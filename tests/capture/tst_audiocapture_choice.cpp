// Which device a start takes, and how it gets the device's client.
#include "capture/wasapierrortext.h"
#include "report/hextext.h"
#include "tests/capture/scene.h"
#include "tests/support/virtualmain.h"

class TestAudioCaptureChoice : public QObject {
    Q_OBJECT

private Q_SLOTS:
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
    void hexadecimalCodes();
};

void TestAudioCaptureChoice::followingUsesTheConsoleDefault()
{
    Scene scene;
    scene.audio.setDefault(eMultimedia, kIdB);
    scene.make();
    const int before = scene.audio.calls(FakeCall::GetDefaultAudioEndpoint);
    scene.capture->startCapture();
    QCOMPARE(scene.audio.calls(FakeCall::GetDefaultAudioEndpoint), before + 1);
    QCOMPARE(scene.audio.records(FakeCall::GetDefaultAudioEndpoint).last().argument,
             static_cast<qint64>(eConsole));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureChoice::multimediaDefaultOnlyWhenConsoleFails()
{
    Scene scene;
    scene.audio.setDefault(eConsole, QString());
    scene.audio.setDefault(eMultimedia, kIdB);
    scene.started();
    const auto calls = scene.audio.records(FakeCall::GetDefaultAudioEndpoint);
    QCOMPARE(calls.at(calls.size() - 2).argument, static_cast<qint64>(eConsole));
    QCOMPARE(calls.last().argument, static_cast<qint64>(eMultimedia));
    QVERIFY(scene.captures(kIdB));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureChoice::listedDeviceWinsAndPendingIdIsDiscarded()
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

void TestAudioCaptureChoice::pendingIdIsUsedWhenFollowing()
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

void TestAudioCaptureChoice::rejectedPendingIdFallsBackToTheDefault()
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

void TestAudioCaptureChoice::rejectedListedDeviceFailsTheStart()
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

void TestAudioCaptureChoice::absentOrUnpluggedDeviceFailsBeforeActivate_data()
{
    QTest::addColumn<quint32>("state");
    QTest::addColumn<QString>("message");
    QTest::newRow("absent") << static_cast<quint32>(DEVICE_STATE_NOTPRESENT)
                            << text("[Step 2a] 错误: 设备不存在");
    QTest::newRow("unplugged") << static_cast<quint32>(DEVICE_STATE_UNPLUGGED)
                               << text("[Step 2a] 错误: 设备已拔出");
}

void TestAudioCaptureChoice::absentOrUnpluggedDeviceFailsBeforeActivate()
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

void TestAudioCaptureChoice::disabledDeviceIsOnlyWarnedAbout()
{
    Scene scene;
    scene.make();
    scene.audio.setState(kIdA, DEVICE_STATE_DISABLED);
    scene.capture->startCapture();
    QVERIFY(scene.log.inOrder({text("[Step 2a] 警告: 设备未激活，状态 = 2"), text("[Step 2b]")}));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureChoice::unreadableStateIsPassedOver()
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

void TestAudioCaptureChoice::activateTriesAllContextsSecond()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Activate, {E_FAIL}, 1, 1);
    scene.capture->startCapture();
    QVERIFY(scene.log.contains(text("CLSCTX_INPROC_SERVER 失败，再试 CLSCTX_ALL")));
    const auto calls = scene.audio.records(FakeCall::Activate);
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).argument, static_cast<qint64>(CLSCTX_INPROC_SERVER));
    QCOMPARE(calls.at(1).argument, static_cast<qint64>(CLSCTX_ALL));
    QVERIFY(scene.captures(kIdA));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureChoice::activateFailureHints_data()
{
    QTest::addColumn<qint32>("code");
    QTest::addColumn<QString>("hint");
    QTest::newRow("no interface") << static_cast<qint32>(E_NOINTERFACE)
                                  << text("错误: 不支持此接口，可能是驱动不支持 WASAPI");
    QTest::newRow("invalidated") << static_cast<qint32>(AUDCLNT_E_DEVICE_INVALIDATED)
                                 << text("错误: 设备无效");
    QTest::newRow("no COM") << static_cast<qint32>(CO_E_NOTINITIALIZED)
                            << text("错误: COM 未初始化");
    QTest::newRow("other") << static_cast<qint32>(E_FAIL) << QString();
}

void TestAudioCaptureChoice::activateFailureHints()
{
    QFETCH(qint32, code);
    QFETCH(QString, hint);
    const DiagnosticLog diagnostics;
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::Activate, {code});
    scene.capture->startCapture();
    const QString hex = hexText(code);
    QVERIFY(
        scene.log.inOrder({text("Activate 失败 ") + hex, text("引擎启动失败，错误代码 ") + hex}));
    QVERIFY(DiagnosticLog::lines().contains(text("Activate 失败, hr=0x") + hex));
    if (hint.isEmpty())
        QVERIFY(!scene.log.contains(text("错误: ")));
    else
        QVERIFY(scene.log.inOrder({text("Activate 失败"), hint, text("引擎启动失败")}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureChoice::hexadecimalCodes()
{
    QCOMPARE(hexText(AUDCLNT_E_DEVICE_INVALIDATED), QStringLiteral("ffffffff88890004"));
    QCOMPARE(hexText(S_FALSE), QStringLiteral("1"));
    QCOMPARE(wasapiErrorText(static_cast<HRESULT>(0x88890FFFU)),
             QStringLiteral("Unknown error: 0xffffffff88890fff"));
}

VIRTUAL_TIME_MAIN(TestAudioCaptureChoice)
#include "tst_audiocapture_choice.moc"
