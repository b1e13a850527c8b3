// Construction, destruction, the catalogue, friendly names and IUnknown.
#include "tests/capture/scene.h"
#include "tests/support/virtualmain.h"

#include <QPointer>
#include <QSignalSpy>

namespace {

QStringList names(const QList<DeviceEntry> &entries)
{
    QStringList result;
    for (const DeviceEntry &entry : entries)
        result.append(entry.name);
    return result;
}

} // namespace

class TestAudioCaptureDevices : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void metaObjectHasTheMethods();
    void constructionOrder();
    void noEnumerator_data();
    void noEnumerator();
    void unregisterableCallbackIsPassedOver();
    void noActiveEndpointLeavesOneEntry();
    void catalogueMarksTheDefault();
    void inactiveEndpointsAndMicrophonesAreNotListed();
    void withoutDefaultNothingIsMarked_data();
    void withoutDefaultNothingIsMarked();
    void failedEnumerationLeavesOneEntry_data();
    void failedEnumerationLeavesOneEntry();
    void unreadableItemsAreSkipped_data();
    void unreadableItemsAreSkipped();
    void namesThatCannotBeRead_data();
    void namesThatCannotBeRead();
    void nameOfANullId();
    void nullNameIsEmpty();
    void findDeviceWantsTheWholeText();
    void queryInterface();
    void referenceCount();
    void nobodyEmitsDeviceChanged();
};

void TestAudioCaptureDevices::metaObjectHasTheMethods()
{
    QStringList signatures;
    const QMetaObject &meta = AudioCapture::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(signatures,
             QStringList({QStringLiteral("notifyData(QByteArray)"),
                          QStringLiteral("formatChanged(WAVEFORMATEX)"),
                          QStringLiteral("deviceChanged(QString)"),
                          QStringLiteral("startCapture()"), QStringLiteral("stopCapture()")}));
    QCOMPARE(meta.method(meta.methodOffset() + 1).parameterNames().first(), QByteArray("fromat"));
}

void TestAudioCaptureDevices::constructionOrder()
{
    Scene scene;
    scene.make();
    const auto calls = scene.audio.records();
    QCOMPARE(static_cast<int>(calls.at(0).call), static_cast<int>(FakeCall::CreateEnumerator));
    QCOMPARE(static_cast<int>(calls.at(1).call), static_cast<int>(FakeCall::Register));
    QCOMPARE(static_cast<int>(calls.at(2).call),
             static_cast<int>(FakeCall::GetDefaultAudioEndpoint));
    QCOMPARE(scene.audio.registeredClients(), 1);
    QCOMPARE(scene.capture->currentDevice(), kFollow);
    QVERIFY(!scene.capture->isCapturing());
    VERIFY_NOTHING_LEFT(scene);
    QCOMPARE(static_cast<int>(scene.audio.records().last().call),
             static_cast<int>(FakeCall::Unregister));
}

void TestAudioCaptureDevices::noEnumerator_data()
{
    QTest::addColumn<bool>("nullSuccess");
    QTest::newRow("failure") << false;
    QTest::newRow("success without an object") << true;
}

void TestAudioCaptureDevices::noEnumerator()
{
    QFETCH(bool, nullSuccess);
    Scene scene;
    scene.audio.fail(FakeCall::CreateEnumerator, {E_FAIL, nullSuccess});
    AudioCapture &capture = scene.make();
    QVERIFY(scene.log.contains(
        text("[AudioCapture] CoCreateInstance 失败, hr = ")
        + (nullSuccess ? QStringLiteral("0") : QStringLiteral("ffffffff80004005"))));
    QVERIFY(capture.devices().isEmpty());
    QCOMPARE(scene.audio.registeredClients(), 0);
    QVERIFY(!scene.log.contains(text("引擎启动失败"))); // a later start reports

    // Nothing of it crashes, and a start fails like any other.
    const std::wstring id = kIdA.toStdWString();
    capture.OnDefaultDeviceChanged(eRender, eConsole, id.c_str()); // not ready: ignored
    QVERIFY(!scene.log.contains(text("[设备切换]")));
    QCOMPARE(capture.getDeviceName(id.c_str()), text("已移除的设备"));
    capture.startCapture();
    QCOMPARE(scene.log.count(text("引擎启动失败")), 1);
    capture.flushDevices();
    QCOMPARE(names(capture.devices()), QStringList({kFollow}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::unregisterableCallbackIsPassedOver()
{
    Scene scene;
    scene.audio.fail(FakeCall::Register, {E_FAIL});
    scene.started();
    QVERIFY(scene.captures(kIdA));
    QCOMPARE(scene.capture->devices().size(), 3);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::noActiveEndpointLeavesOneEntry()
{
    Scene scene;
    scene.audio.remove(kIdA);
    scene.audio.setState(kIdB, DEVICE_STATE_UNPLUGGED);
    scene.audio.setDefault(QString());
    scene.make();
    const auto list = scene.capture->devices();
    QCOMPARE(list.size(), 1);
    QCOMPARE(list.first().name, kFollow);
    QVERIFY(list.first().id.isEmpty());
    QVERIFY(scene.log.contains(text("[flushDevices] 发现 0 个输出设备")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::catalogueMarksTheDefault()
{
    Scene scene;
    scene.make();
    QCOMPARE(names(scene.capture->devices()),
             QStringList({kFollow, text("Speakers (当前默认)"), text("Headset")}));
    QCOMPARE(scene.capture->devices().at(1).id, kIdA);
    QVERIFY(scene.log.contains(text("[flushDevices] 发现 2 个输出设备")));
    scene.audio.setDefault(kIdB);
    QCOMPARE(scene.capture->devices().size(), 3); // a copy; only a flush looks again
    scene.capture->flushDevices();
    QCOMPARE(names(scene.capture->devices()),
             QStringList({kFollow, text("Speakers"), text("Headset (当前默认)")}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::inactiveEndpointsAndMicrophonesAreNotListed()
{
    Scene scene;
    scene.audio.setState(kIdB, DEVICE_STATE_DISABLED);
    scene.make();
    QCOMPARE(names(scene.capture->devices()), QStringList({kFollow, text("Speakers (当前默认)")}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::withoutDefaultNothingIsMarked_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<bool>("nullSuccess");
    QTest::newRow("no default") << static_cast<int>(FakeCall::GetDefaultAudioEndpoint) << false;
    QTest::newRow("null default") << static_cast<int>(FakeCall::GetDefaultAudioEndpoint) << true;
    QTest::newRow("no id") << static_cast<int>(FakeCall::GetId) << false;
    QTest::newRow("null id") << static_cast<int>(FakeCall::GetId) << true;
}

void TestAudioCaptureDevices::withoutDefaultNothingIsMarked()
{
    QFETCH(int, call);
    QFETCH(bool, nullSuccess);
    Scene scene;
    scene.audio.fail(static_cast<FakeCall>(call), {E_FAIL, nullSuccess}, 1, 1);
    scene.make();
    QCOMPARE(names(scene.capture->devices()),
             QStringList({kFollow, text("Speakers"), text("Headset")}));
    QVERIFY(!scene.log.contains(text("失败")));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::failedEnumerationLeavesOneEntry_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<bool>("nullSuccess");
    QTest::addColumn<QString>("message");
    QTest::newRow("enumeration")
        << static_cast<int>(FakeCall::EnumAudioEndpoints) << false
        << text("[flushDevices] EnumAudioEndpoints 失败, hr = ffffffff80004005");
    QTest::newRow("null collection") << static_cast<int>(FakeCall::EnumAudioEndpoints) << true
                                     << text("[flushDevices] EnumAudioEndpoints 失败, hr = 0");
    QTest::newRow("count") << static_cast<int>(FakeCall::CollectionGetCount) << false
                           << text("[flushDevices] GetCount 失败, hr = ffffffff80004005");
}

void TestAudioCaptureDevices::failedEnumerationLeavesOneEntry()
{
    QFETCH(int, call);
    QFETCH(bool, nullSuccess);
    QFETCH(QString, message);
    Scene scene;
    scene.audio.fail(static_cast<FakeCall>(call), {E_FAIL, nullSuccess});
    scene.make();
    QCOMPARE(names(scene.capture->devices()), QStringList({kFollow}));
    QCOMPARE(scene.log.count(message), 1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::unreadableItemsAreSkipped_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<int>("nth");
    QTest::addColumn<bool>("nullSuccess");
    QTest::newRow("item") << static_cast<int>(FakeCall::CollectionItem) << 1 << false;
    QTest::newRow("null item") << static_cast<int>(FakeCall::CollectionItem) << 1 << true;
    QTest::newRow("id") << static_cast<int>(FakeCall::GetId) << 2
                        << false; // the first is the default's
    QTest::newRow("null id") << static_cast<int>(FakeCall::GetId) << 2 << true;
}

void TestAudioCaptureDevices::unreadableItemsAreSkipped()
{
    QFETCH(int, call);
    QFETCH(int, nth);
    QFETCH(bool, nullSuccess);
    Scene scene;
    scene.audio.fail(static_cast<FakeCall>(call), {E_FAIL, nullSuccess}, nth, 1);
    scene.make();
    QCOMPARE(names(scene.capture->devices()), QStringList({kFollow, text("Headset")}));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::namesThatCannotBeRead_data()
{
    QTest::addColumn<int>("call");
    QTest::addColumn<bool>("nullSuccess");
    QTest::addColumn<QString>("message");
    QTest::newRow("device") << static_cast<int>(FakeCall::GetDevice) << false << text("GetDevice");
    QTest::newRow("null device") << static_cast<int>(FakeCall::GetDevice) << true
                                 << text("GetDevice");
    QTest::newRow("store") << static_cast<int>(FakeCall::OpenPropertyStore) << false
                           << text("OpenPropertyStore");
    QTest::newRow("null store") << static_cast<int>(FakeCall::OpenPropertyStore) << true
                                << text("OpenPropertyStore");
    QTest::newRow("value") << static_cast<int>(FakeCall::GetValue) << false << text("GetValue");
}

void TestAudioCaptureDevices::namesThatCannotBeRead()
{
    QFETCH(int, call);
    QFETCH(bool, nullSuccess);
    QFETCH(QString, message);
    Scene scene;
    scene.make();
    scene.audio.fail(static_cast<FakeCall>(call), {E_FAIL, nullSuccess});
    QCOMPARE(scene.capture->getDeviceName(kIdA.toStdWString().c_str()), text("已移除的设备"));
    QCOMPARE(
        scene.log.count(text("[getDeviceName] ") + message + text(" 失败, hr = ")
                        + (nullSuccess ? QStringLiteral("0") : QStringLiteral("ffffffff80004005"))),
        1);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::nameOfANullId()
{
    Scene scene;
    scene.make();
    QCOMPARE(scene.capture->getDeviceName(nullptr), text("未知设备"));
    QCOMPARE(scene.capture->getDeviceName(kIdB.toStdWString().c_str()), text("Headset"));
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::nullNameIsEmpty()
{
    Scene scene;
    scene.make();
    scene.audio.fail(FakeCall::GetValue, {S_OK, true}); // an empty variant
    QCOMPARE(scene.capture->getDeviceName(kIdA.toStdWString().c_str()), QString());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::findDeviceWantsTheWholeText()
{
    Scene scene;
    scene.make();
    QVERIFY(!scene.capture->findDevice(text("Speakers")));
    QVERIFY(!scene.capture->findDevice(text("headset")));
    QVERIFY(!scene.capture->findDevice(QString()));
    QCOMPARE(scene.capture->findDevice(text("Speakers (当前默认)"))->id, kIdA);
    QVERIFY(scene.capture->findDevice(kFollow)->id.isEmpty());
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::queryInterface()
{
    Scene scene;
    AudioCapture &capture = scene.make();
    QCOMPARE(capture.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    for (const IID &iid : {IID_IUnknown, IID_IMMNotificationClient}) {
        void *object = nullptr;
        QCOMPARE(capture.QueryInterface(iid, &object), S_OK);
        QCOMPARE(object, static_cast<void *>(static_cast<IMMNotificationClient *>(&capture)));
        capture.Release();
    }
    void *object = &scene;
    QCOMPARE(capture.QueryInterface(IID_IAudioClient, &object), E_NOINTERFACE);
    QVERIFY(!object);
    VERIFY_NOTHING_LEFT(scene);
}

void TestAudioCaptureDevices::referenceCount()
{
    // The registration holds one reference, the object itself another.
    Scene scene;
    AudioCapture &capture = scene.make();
    QCOMPARE(capture.AddRef(), static_cast<ULONG>(3));
    QCOMPARE(capture.Release(), static_cast<ULONG>(2));
    VERIFY_NOTHING_LEFT(scene);

    // The last release schedules the deletion.
    Scene other;
    other.audio.fail(FakeCall::CreateEnumerator, {E_FAIL});
    QPointer<AudioCapture> deleted = new AudioCapture;
    QCOMPARE(deleted->Release(), static_cast<ULONG>(0));
    QVERIFY(deleted);
    QVERIFY(waitUntil([&] { return deleted.isNull(); }));
}

void TestAudioCaptureDevices::nobodyEmitsDeviceChanged()
{
    Scene scene;
    AudioCapture &capture = scene.started();
    QSignalSpy changes(&capture, &AudioCapture::deviceChanged);
    QVERIFY(scene.captures(kIdA));
    capture.setCurrentDevice(text("Headset"));
    QVERIFY(scene.captures(kIdB));
    QCOMPARE(changes.size(), 0);
    VERIFY_NOTHING_LEFT(scene);
}

VIRTUAL_TIME_MAIN(TestAudioCaptureDevices)
#include "tst_audiocapture_devices.moc"
