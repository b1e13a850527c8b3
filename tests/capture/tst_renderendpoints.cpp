// Names, the catalogue and the default endpoint, without a controller.
#include "capture/renderendpoints.h"
#include "platform/deviceenumerator.h"
#include "tests/capture/scene.h"

#include <objbase.h>

namespace {

/// A scene without a controller, and an enumerator of it.
struct Endpoints : Scene {
    Endpoints()
    {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        createDeviceEnumerator(&enumerator);
    }
    ~Endpoints() { release(); }
    void release()
    {
        if (enumerator)
            enumerator->Release();
        enumerator = nullptr;
    }
    QStringList leftovers()
    {
        release();
        return Scene::leftovers();
    }

    IMMDeviceEnumerator *enumerator = nullptr;
};

/// "name=id" of each entry.
QStringList lines(const QList<DeviceEntry> &entries)
{
    QStringList result;
    for (const DeviceEntry &entry : entries)
        result.append(entry.name + QLatin1Char('=') + entry.id);
    return result;
}

/// The endpoint id of a device, which is released.
QString takeId(IMMDevice *device)
{
    LPWSTR id = nullptr;
    QString result;
    if (device && SUCCEEDED(device->GetId(&id))) {
        result = QString::fromWCharArray(id);
        CoTaskMemFree(id);
    }
    if (device)
        device->Release();
    return result;
}

} // namespace

class TestRenderEndpoints : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nothingNeedsAnEnumerator();
    void names();
    void nameThatCannotBeRead();
    void defaultId();
    void catalogue();
    void catalogueHoldsWhatCanBeRead();
    void catalogueWithoutACount();
    void findsTheFirstOfTheWholeName();
    void opensAnEndpoint();
    void opensTheDefaultEndpoint();
    void opensNothing();
};

void TestRenderEndpoints::nothingNeedsAnEnumerator()
{
    const std::wstring id = kIdA.toStdWString();
    QCOMPARE(endpointName(nullptr, id.c_str()), text("已移除的设备"));
    QCOMPARE(endpointName(nullptr, nullptr), text("未知设备"));
    QCOMPARE(defaultEndpointId(nullptr), QString());
    QCOMPARE(lines(renderEndpoints(nullptr)), QStringList({text("默认输出设备=")}));
    auto *untouched = reinterpret_cast<IMMDevice *>(1);
    IMMDevice *device = untouched;
    QCOMPARE(openEndpoint(nullptr, kIdA, &device), E_POINTER);
    QCOMPARE(device, untouched);
}

void TestRenderEndpoints::names()
{
    Endpoints world;
    QCOMPARE(endpointName(world.enumerator, kIdA.toStdWString().c_str()), text("Speakers"));
    QCOMPARE(endpointName(world.enumerator, kIdMic.toStdWString().c_str()), text("Mic"));
    QCOMPARE(endpointName(world.enumerator, nullptr), text("未知设备"));
    QCOMPARE(world.log.texts(), QStringList());
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::nameThatCannotBeRead()
{
    Endpoints world;
    world.audio.fail(FakeCall::GetValue, {E_FAIL});
    QCOMPARE(endpointName(world.enumerator, kIdA.toStdWString().c_str()), text("已移除的设备"));
    QCOMPARE(world.log.texts(),
             QStringList({text("[getDeviceName] GetValue 失败, hr = ffffffff80004005")}));
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::defaultId()
{
    Endpoints world;
    world.audio.setDefault(eMultimedia, kIdB);
    QCOMPARE(defaultEndpointId(world.enumerator), kIdA); // the console's alone
    world.audio.setDefault(eConsole, QString());
    QCOMPARE(defaultEndpointId(world.enumerator), QString());
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::catalogue()
{
    Endpoints world;
    QCOMPARE(lines(renderEndpoints(world.enumerator)),
             QStringList({text("默认输出设备="), text("Speakers (当前默认)=") + kIdA,
                          text("Headset=") + kIdB}));
    QCOMPARE(world.log.texts(), QStringList({text("[flushDevices] 发现 2 个输出设备")}));
    world.audio.setDefault(kIdB);
    world.audio.setState(kIdA, DEVICE_STATE_UNPLUGGED);
    QCOMPARE(lines(renderEndpoints(world.enumerator)),
             QStringList({text("默认输出设备="), text("Headset (当前默认)=") + kIdB}));
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::catalogueHoldsWhatCanBeRead()
{
    Endpoints world;
    world.audio.fail(FakeCall::CollectionItem, {E_FAIL, true}, 1, 1);
    QCOMPARE(lines(renderEndpoints(world.enumerator)),
             QStringList({text("默认输出设备="), text("Headset=") + kIdB}));
    world.audio.clearFaults();
    // The first id that is asked for is the default's, the next the first endpoint's.
    world.audio.fail(FakeCall::GetId, {E_FAIL}, world.audio.calls(FakeCall::GetId) + 2, 1);
    QCOMPARE(lines(renderEndpoints(world.enumerator)),
             QStringList({text("默认输出设备="), text("Headset=") + kIdB}));
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::catalogueWithoutACount()
{
    Endpoints world;
    world.audio.fail(FakeCall::CollectionGetCount, {E_FAIL});
    QCOMPARE(lines(renderEndpoints(world.enumerator)), QStringList({text("默认输出设备=")}));
    QCOMPARE(world.log.texts(),
             QStringList({text("[flushDevices] GetCount 失败, hr = ffffffff80004005")}));
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::findsTheFirstOfTheWholeName()
{
    const QList<DeviceEntry> entries {{followDefaultName(), QString()},
                                      {text("Speakers (当前默认)"), kIdA},
                                      {text("Twin"), kIdB},
                                      {text("Twin"), kIdMic}};
    QCOMPARE(findByName(entries, text("Twin")), &entries.at(2));
    QCOMPARE(findByName(entries, text("默认输出设备")), &entries.at(0));
    QVERIFY(!findByName(entries, text("Speakers")));
    QVERIFY(!findByName(entries, text("twin")));
    QVERIFY(!findByName(entries, QString()));
    QVERIFY(!findByName({}, text("Twin")));
}

void TestRenderEndpoints::opensAnEndpoint()
{
    Endpoints world;
    IMMDevice *device = nullptr;
    QCOMPARE(openEndpoint(world.enumerator, kIdB, &device), S_OK);
    QCOMPARE(takeId(device), kIdB);
    device = nullptr;
    QVERIFY(FAILED(openEndpoint(world.enumerator, text("no such"), &device)));
    QVERIFY(!device);
    world.audio.fail(FakeCall::GetDevice, {E_FAIL, true});
    QCOMPARE(openEndpoint(world.enumerator, kIdB, &device), E_POINTER);
    QVERIFY(!device);
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::opensTheDefaultEndpoint()
{
    Endpoints world;
    world.audio.setDefault(eMultimedia, kIdB);
    IMMDevice *device = nullptr;
    QCOMPARE(openDefaultEndpoint(&device), S_OK);
    QCOMPARE(takeId(device), kIdA);
    world.audio.setDefault(eConsole, QString());
    QCOMPARE(openDefaultEndpoint(&device), S_OK);
    QCOMPARE(takeId(device), kIdB);
    VERIFY_NOTHING_LEFT(world);
}

void TestRenderEndpoints::opensNothing()
{
    Endpoints world;
    auto *device = reinterpret_cast<IMMDevice *>(1);
    world.audio.fail(FakeCall::GetDefaultAudioEndpoint, {E_FAIL, true});
    QCOMPARE(openDefaultEndpoint(&device), E_POINTER);
    QVERIFY(!device);
    world.audio.clearFaults();
    device = reinterpret_cast<IMMDevice *>(1);
    world.audio.fail(FakeCall::CreateEnumerator, {E_NOINTERFACE});
    QCOMPARE(openDefaultEndpoint(&device), E_NOINTERFACE);
    QVERIFY(!device);
    VERIFY_NOTHING_LEFT(world);
}

QTEST_GUILESS_MAIN(TestRenderEndpoints)
#include "tst_renderendpoints.moc"
