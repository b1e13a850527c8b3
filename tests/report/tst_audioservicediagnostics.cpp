// The audio section of a report: services as the test describes them, endpoints of the fakes.
#include "platform/deviceenumerator.h"
#include "report/audioservicediagnostics.h"
#include "tests/report/fakehost.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/taskmemory.h"

#include <objbase.h>
#include <QtTest>
#include <thread>

namespace {

const wchar_t *const kAudio = L"Audiosrv";

// From the heading to the blank line.
QString block(const QString &heading)
{
    const QString text = audioServiceDiagnostics().section(heading + QLatin1Char('\n'), 1);
    return text.section(QStringLiteral("\n\n"), 0, 0) + QLatin1Char('\n');
}

QString serviceBlock()
{
    return block(QStringLiteral("[Windows Audio Service Status]"));
}

QString comBlock()
{
    return block(QStringLiteral("[COM Initialization Status]"));
}

QString devicesBlock()
{
    return block(QStringLiteral("[Audio Devices Information]"));
}

// Both services run in a process of their own, in the state given.
void describeServices(DWORD type, DWORD state)
{
    fakeHost().managerOpens = [](int) { return true; };
    fakeHost().serviceOpens = [](const wchar_t *) { return true; };
    fakeHost().queryService = [=](const wchar_t *, SERVICE_STATUS *status) {
        status->dwServiceType = type;
        status->dwCurrentState = state;
        return TRUE;
    };
}

bool isAudio(const wchar_t *name)
{
    return std::wcscmp(name, kAudio) == 0;
}

// The render endpoints, by way of the fakes' factory, are capture endpoints as well.
class BothWaysEnumerator : public IMMDeviceEnumerator {
public:
    explicit BothWaysEnumerator(IMMDeviceEnumerator *inner)
        : m_inner(inner)
    {
    }
    virtual ~BothWaysEnumerator() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        m_inner->Release();
        delete this;
        return 0;
    }
    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD mask,
                                                 IMMDeviceCollection **all) override
    {
        return m_inner->EnumAudioEndpoints(flow, mask, all);
    }
    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow, ERole role,
                                                      IMMDevice **device) override
    {
        return m_inner->GetDefaultAudioEndpoint(eRender, role, device);
    }
    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice **device) override
    {
        return m_inner->GetDevice(id, device);
    }
    HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient *) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient *) override
    {
        return E_NOTIMPL;
    }

private:
    IMMDeviceEnumerator *const m_inner;
};

DeviceEnumeratorFactory s_fakes = nullptr;

HRESULT createBothWays(IMMDeviceEnumerator **enumerator)
{
    const HRESULT hr = s_fakes(enumerator);
    if (SUCCEEDED(hr))
        *enumerator = new BothWaysEnumerator(*enumerator);
    return hr;
}

const QString kRunning = QStringLiteral("  Audiosrv Service State: Running\n"
                                        "  Service Type: Win32\n");
const QString kBuilderRunning = QStringLiteral("  AudioEndpointBuilder State: Running\n");

} // namespace

class TestAudioServiceDiagnostics : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void wholeSection();
    void serviceState_data();
    void serviceState();
    void serviceType_data();
    void serviceType();
    void noRightsOnTheManager();
    void managerOpensOnlyTheSecondTime();
    void managerOpensOnlyTheFirstTime();
    void audioServiceNotFound();
    void audioServiceQueryFails();
    void endpointBuilderNotFound();
    void endpointBuilderQueryFails();
    void endpointBuilderStartPendingIsStopped();
    void comFails();
    void multithreadedApartment();
    void enumeratorFails();
    void enumeratorIsNull();
    void noCaptureEndpoint();
    void captureEndpointHasItsDetails();
    void defaultsAreThoseOfTheConsole();
    void noEndpointAtAll();
    void deviceState_data();
    void deviceState();
    void missingDetailsAreLeftOut();
    void endpointWithoutFriendlyName();
    void nameThatIsNoTextIsLeftOut();
    void enumerationFails();
    void idsAreNoPlaceholders();

private:
    FakeAudio *m_audio = nullptr;
};

void TestAudioServiceDiagnostics::init()
{
    fakeHost() = FakeHost();
    describeServices(SERVICE_WIN32, SERVICE_RUNNING);
    m_audio = new FakeAudio;
    m_audio->enter();
    m_audio->add(QStringLiteral("{render-1}"), QStringLiteral("扬声器"));
    m_audio->add(QStringLiteral("{capture-1}"), QStringLiteral("Microphone"), eCapture);
    m_audio->setDefault(QStringLiteral("{render-1}"));
}

void TestAudioServiceDiagnostics::cleanup()
{
    QCOMPARE(m_audio->problems(), QStringList());
    QCOMPARE(taskBlocksAlive(m_audio), 0); // every id and every value is freed
    delete m_audio;
    QCOMPARE(fakeHost().openHandles, 0);
}

void TestAudioServiceDiagnostics::wholeSection()
{
    QCOMPARE(audioServiceDiagnostics(),
             QStringLiteral(
                 "[Audio Service Diagnostics]\n"
                 "[Windows Audio Service Status]\n"
                 "  Audiosrv Service State: Running\n"
                 "  Service Type: Win32\n"
                 "  AudioEndpointBuilder State: Running\n"
                 "\n"
                 "[COM Initialization Status]\n"
                 "  COM Status: Successfully initialized (COINIT_APARTMENTTHREADED)\n"
                 "\n"
                 "[Audio Devices Information]\n"
                 "  Device Enumerator: Created successfully\n"
                 "  Default Render Device (Console): Found\n"
                 "    Device ID: {render-1}\n"
                 "    State: Active\n"
                 "    Friendly Name: 扬声器\n"
                 "    Description: 扬声器\n"
                 "  Default Capture Device (Console): Not found\n"
                 "  Total Active Audio Devices: 2\n"
                 "  Note: Run 'control mmsys.cpl' to view all audio devices\n"
                 "\n"
                 "[WASAPI Error Code Reference]\n"
                 "  AUDCLNT_E_DEVICE_INVALIDATED    = 0x8889000D (Device disconnected/invalid)\n"
                 "  AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED = 0x88890008 (Buffer size alignment error)\n"
                 "  AUDCLNT_E_CPUUSAGE_EXCEEDED     = 0x88890013 (CPU overload)\n"
                 "  AUDCLNT_E_BUFFER_ERROR          = 0x8889000A (Buffer creation failed)\n"
                 "  AUDCLNT_E_SERVICE_NOT_RUNNING   = 0x88890020 (Audio service stopped)\n"
                 "  CO_E_NOTINITIALIZED             = 0x8001010F (COM not initialized)\n"
                 "  E_NOINTERFACE                   = 0x80004002 (Interface not supported)\n"
                 "  E_POINTER                       = 0x80004003 (Invalid pointer)\n"
                 "  AUDCLNT_E_UNSUPPORTED_FORMAT    = 0x88890005 (Unsupported audio format)\n"
                 "  AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED = 0x8889000E (Exclusive mode denied)\n"
                 "  AUDCLNT_E_ENDPOINT_CREATE_FAILED = 0x8889001F (Endpoint creation failed)\n"));
}

void TestAudioServiceDiagnostics::serviceState_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("name");
    const char *const names[] = {"Unknown",       "Stopped", "Start Pending",
                                 "Stop Pending",  "Running", "Continue Pending",
                                 "Pause Pending", "Paused",  "Unknown"};
    for (int state = 0; state <= 8; ++state)
        QTest::addRow("%d", state) << state << names[state];
}

void TestAudioServiceDiagnostics::serviceState()
{
    QFETCH(int, state);
    QFETCH(QString, name);
    describeServices(SERVICE_WIN32, static_cast<DWORD>(state));
    // The second service knows two names only.
    const QString builder = state == 4 ? QStringLiteral("Running") : QStringLiteral("Stopped");
    QCOMPARE(serviceBlock(),
             QStringLiteral("  Audiosrv Service State: %1\n  Service Type: Win32\n"
                            "  AudioEndpointBuilder State: %2\n")
                 .arg(name, builder));
}

void TestAudioServiceDiagnostics::serviceType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("name");
    QTest::newRow("0x30") << 0x30 << "Win32";
    QTest::newRow("0x0B") << 0x0B << "Driver";
    QTest::newRow("own process, 0x10") << 0x10 << "Unknown";
    QTest::newRow("shared process, 0x20") << 0x20 << "Unknown";
    QTest::newRow("0x01") << 0x01 << "Unknown";
}

void TestAudioServiceDiagnostics::serviceType()
{
    QFETCH(int, type);
    QFETCH(QString, name);
    describeServices(static_cast<DWORD>(type), SERVICE_RUNNING);
    QVERIFY(serviceBlock().contains(QStringLiteral("\n  Service Type: %1\n").arg(name)));
}

void TestAudioServiceDiagnostics::noRightsOnTheManager()
{
    fakeHost().managerOpens = [](int) { return false; };
    QCOMPARE(serviceBlock(), QStringLiteral("  Service Control Manager: Access denied\n"));
    QCOMPARE(fakeHost().managerCalls, 2); // the second service is attempted all the same
}

void TestAudioServiceDiagnostics::managerOpensOnlyTheSecondTime()
{
    fakeHost().managerOpens = [](int time) { return time == 2; };
    QCOMPARE(serviceBlock(),
             QStringLiteral("  Service Control Manager: Access denied\n") + kBuilderRunning);
}

void TestAudioServiceDiagnostics::managerOpensOnlyTheFirstTime()
{
    fakeHost().managerOpens = [](int time) { return time == 1; };
    QCOMPARE(serviceBlock(), kRunning);
    QCOMPARE(fakeHost().lastServiceAccess,
             static_cast<DWORD>(SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS));
}

void TestAudioServiceDiagnostics::audioServiceNotFound()
{
    fakeHost().serviceOpens = [](const wchar_t *name) { return !isAudio(name); };
    QCOMPARE(serviceBlock(), QStringLiteral("  Audiosrv Service: Not found\n") + kBuilderRunning);
    QCOMPARE(fakeHost().lastServiceAccess, static_cast<DWORD>(SERVICE_QUERY_STATUS));
}

void TestAudioServiceDiagnostics::audioServiceQueryFails()
{
    fakeHost().queryService = [](const wchar_t *name, SERVICE_STATUS *status) {
        status->dwCurrentState = SERVICE_RUNNING;
        return isAudio(name) ? FALSE : TRUE;
    };
    QCOMPARE(serviceBlock(), kBuilderRunning);
}

void TestAudioServiceDiagnostics::endpointBuilderNotFound()
{
    fakeHost().serviceOpens = isAudio;
    QCOMPARE(serviceBlock(),
             kRunning + QStringLiteral("  AudioEndpointBuilder Service: Not found\n"));
}

void TestAudioServiceDiagnostics::endpointBuilderQueryFails()
{
    fakeHost().queryService = [](const wchar_t *name, SERVICE_STATUS *status) {
        status->dwServiceType = SERVICE_WIN32;
        status->dwCurrentState = SERVICE_RUNNING;
        return isAudio(name) ? TRUE : FALSE;
    };
    QCOMPARE(serviceBlock(), kRunning);
}

void TestAudioServiceDiagnostics::endpointBuilderStartPendingIsStopped()
{
    describeServices(SERVICE_WIN32, SERVICE_START_PENDING);
    QVERIFY(serviceBlock().endsWith(QStringLiteral("  AudioEndpointBuilder State: Stopped\n")));
}

void TestAudioServiceDiagnostics::comFails()
{
    fakeHost().coInitialize = [] { return E_OUTOFMEMORY; };
    QCOMPARE(comBlock(), QStringLiteral("  COM Status: Failed, hr = 0xffffffff8007000e\n"));
    QCOMPARE(devicesBlock(), QStringLiteral("  Error: COM initialization failed\n"));
    QCOMPARE(m_audio->totalCalls(), 0);
}

void TestAudioServiceDiagnostics::multithreadedApartment()
{
    QString com;
    QString devices;
    std::thread([&] {
        m_audio->enter();
        if (CoInitializeEx(nullptr, COINIT_MULTITHREADED) != S_OK)
            return;
        com = comBlock();
        devices = devicesBlock();
        CoUninitialize();
    }).join();
    QCOMPARE(com,
             QStringLiteral(
                 "  COM Status: Already initialized in different mode (RPC_E_CHANGED_MODE)\n"
                 "  Note: Audio operations may still work if previous mode was compatible\n"));
    QVERIFY(devices.startsWith(QStringLiteral("  Device Enumerator: Created successfully\n")));
}

void TestAudioServiceDiagnostics::enumeratorFails()
{
    m_audio->fail(FakeCall::CreateEnumerator, {REGDB_E_CLASSNOTREG});
    QCOMPARE(devicesBlock(),
             QStringLiteral("  Device Enumerator: Failed to create\n"
                            "  Error Code: 0xffffffff80040154\n"));
}

void TestAudioServiceDiagnostics::enumeratorIsNull()
{
    m_audio->fail(FakeCall::CreateEnumerator, {S_OK, true});
    QCOMPARE(devicesBlock(),
             QStringLiteral("  Device Enumerator: Failed to create\n"
                            "  Error Code: 0x00000000\n"));
}

void TestAudioServiceDiagnostics::noCaptureEndpoint()
{
    const QString text = devicesBlock();
    QVERIFY(text.contains(QStringLiteral("\n  Default Render Device (Console): Found\n"
                                         "    Device ID: {render-1}\n")));
    QVERIFY(text.contains(QStringLiteral("\n  Default Capture Device (Console): Not found\n"
                                         "  Total Active Audio Devices: ")));
}

void TestAudioServiceDiagnostics::captureEndpointHasItsDetails()
{
    s_fakes = setDeviceEnumeratorFactory(createBothWays);
    const QString text = devicesBlock();
    setDeviceEnumeratorFactory(s_fakes);
    QVERIFY(text.contains(QStringLiteral("\n  Default Capture Device (Console): Found\n"
                                         "    Device ID: {render-1}\n"
                                         "    State: Active\n"
                                         "    Friendly Name: 扬声器\n"
                                         "    Description: 扬声器\n"
                                         "  Total Active Audio Devices: 2\n")));
}

void TestAudioServiceDiagnostics::defaultsAreThoseOfTheConsole()
{
    for (const ERole other : {eMultimedia, eCommunications}) {
        m_audio->add(QStringLiteral("other"), QStringLiteral("Other"));
        m_audio->setDefault(other, QStringLiteral("other"));
    }
    s_fakes = setDeviceEnumeratorFactory(createBothWays);
    const QString text = devicesBlock();
    setDeviceEnumeratorFactory(s_fakes);
    QCOMPARE(text.count(QStringLiteral(" (Console): Found\n    Device ID: {render-1}\n")), 2);
    QVERIFY(!text.contains(QStringLiteral("Device ID: other")));
}

void TestAudioServiceDiagnostics::noEndpointAtAll()
{
    m_audio->remove(QStringLiteral("{render-1}"));
    m_audio->remove(QStringLiteral("{capture-1}"));
    m_audio->setDefault(QString());
    QCOMPARE(devicesBlock(),
             QStringLiteral("  Device Enumerator: Created successfully\n"
                            "  Default Render Device (Console): Not found\n"
                            "  Default Capture Device (Console): Not found\n"
                            "  Total Active Audio Devices: 0\n"
                            "  Note: Run 'control mmsys.cpl' to view all audio devices\n"));
}

void TestAudioServiceDiagnostics::deviceState_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("name");
    QTest::newRow("1") << 1 << "Active";
    QTest::newRow("2") << 2 << "Disabled";
    QTest::newRow("4") << 4 << "Not Present";
    QTest::newRow("8") << 8 << "Unplugged";
    QTest::newRow("3") << 3 << "Unknown";
    QTest::newRow("0") << 0 << "Unknown";
}

void TestAudioServiceDiagnostics::deviceState()
{
    QFETCH(int, state);
    QFETCH(QString, name);
    m_audio->setState(QStringLiteral("{render-1}"), static_cast<DWORD>(state));
    QVERIFY(devicesBlock().contains(QStringLiteral("\n    State: %1\n").arg(name)));
}

void TestAudioServiceDiagnostics::missingDetailsAreLeftOut()
{
    m_audio->fail(FakeCall::GetId, {E_FAIL});
    m_audio->fail(FakeCall::GetState, {E_FAIL});
    m_audio->fail(FakeCall::OpenPropertyStore, {E_FAIL});
    QVERIFY(
        devicesBlock().contains(QStringLiteral("\n  Default Render Device (Console): Found\n"
                                               "  Default Capture Device (Console): Not found\n")));
}

void TestAudioServiceDiagnostics::endpointWithoutFriendlyName()
{
    m_audio->fail(FakeCall::GetValue, {E_FAIL}, 1, 1);
    QVERIFY(
        devicesBlock().contains(QStringLiteral("\n    State: Active\n    Description: 扬声器\n")));
}

void TestAudioServiceDiagnostics::nameThatIsNoTextIsLeftOut()
{
    m_audio->fail(FakeCall::GetValue, {S_OK, true}, 2, 1);
    QVERIFY(devicesBlock().contains(
        QStringLiteral("\n    Friendly Name: 扬声器\n  Default Capture Device")));
}

void TestAudioServiceDiagnostics::enumerationFails()
{
    m_audio->fail(FakeCall::EnumAudioEndpoints, {E_FAIL});
    QVERIFY(devicesBlock().endsWith(
        QStringLiteral("\n  Default Capture Device (Console): Not found\n")));
}

void TestAudioServiceDiagnostics::idsAreNoPlaceholders()
{
    m_audio->add(QStringLiteral("%1%2"), QStringLiteral("%2 %1"));
    m_audio->setDefault(QStringLiteral("%1%2"));
    const QString text = devicesBlock();
    QVERIFY(text.contains(QStringLiteral("\n    Device ID: %1%2\n")));
    QVERIFY(text.contains(QStringLiteral("\n    Friendly Name: %2 %1\n")));
}

QTEST_GUILESS_MAIN(TestAudioServiceDiagnostics)
#include "tst_audioservicediagnostics.moc"
