// The audio API on a real sound server; which one, the build says (TONEWELL_TEST_SERVER).

#include "platform/deviceenumerator.h"
#include "tests/platform/loopbackrecorder.h"
#include "tests/platform/notificationlog.h"
#include "tests/support/soundserver.h"

#include <cmath>
#include <functiondiscoverykeys_devpkey.h>
#include <objbase.h>
#include <QDir>
#include <QElapsedTimer>
#include <QtTest>

namespace {

constexpr double Frequency = 1000;

QString friendlyName(IMMDevice *device, const PROPERTYKEY &key = PKEY_Device_FriendlyName)
{
    IPropertyStore *store = nullptr;
    if (FAILED(device->OpenPropertyStore(STGM_READ, &store)))
        return QStringLiteral("(no store)");
    PROPVARIANT value;
    PropVariantInit(&value);
    QString name = QStringLiteral("(no name)");
    if (SUCCEEDED(store->GetValue(key, &value)) && value.vt == VT_LPWSTR)
        name = QString::fromWCharArray(value.pwszVal);
    PropVariantClear(&value);
    store->Release();
    return name;
}

QString idOf(IMMDevice *device)
{
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)))
        return QStringLiteral("(no id)");
    const QString result = QString::fromWCharArray(id);
    CoTaskMemFree(id);
    return result;
}

// PipeWire's stand-in while there is no sink.
bool isStandIn(const QString &id)
{
    return id == QLatin1String("auto_null");
}

} // namespace

class AudioSystemTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void withoutServerNothingBlocksAndItsStartIsAnnounced(); // the first: no server has run yet
    void endpointsAndTheirNames();
    void stateMasksAndBadArguments();
    void defaultEndpoints();
    void monitorIsNoDefaultMicrophone();
    void defaultChangeIsAnnouncedForEveryRole();
    void newSinkIsAnnounced();
    void removedSinkKeepsItsNameAndIsNotPresent();
    void removedDefaultIsFollowedByItsSuccessor();
    void tone_data();
    void tone();
    void silence();
    void clientRefusesWhatItCannotDo();
    void buffersFollowTheContract();
    void readerThatFallsBehindMissesWholePackets();
    void stopAndStart();
    void captureClientKeepsItsAudioClient();
    void releasedStreamsLeaveTheServer();
    void removedSinkInvalidates();
    void returnedSinkIsAnotherOne();
    void microphoneIsNeverHeard();
    void killedServerInvalidatesAndItsReturnIsAnnounced();
    void hungServerBlocksNothing();
    void unregisteringWaitsForACall();
    void repeatedUseIsFlat();

private:
    void tidyUp();
    QString defaultId();
    bool waitForDefault(const QString &id);
    bool waitUntilKnown(const QString &id, bool present = true);
    QStringList enumerate(EDataFlow flow, DWORD mask = DEVICE_STATE_ACTIVE);
    IMMDevice *device(const QString &id);
    bool hears(LoopbackRecorder *recorder, double frequency, const std::vector<double> &amplitudes);

    QString m_heard; // the last that hears() did
    SoundServer m_server {TONEWELL_TEST_SERVER};
    IMMDeviceEnumerator *m_enumerator = nullptr;
    NotificationLog m_log;
};

void AudioSystemTest::initTestCase()
{
    const QString missing = SoundServer::missingProgram(TONEWELL_TEST_SERVER);
    QVERIFY2(missing.isEmpty(), qPrintable(QStringLiteral("%1 is not installed").arg(missing)));
    m_server.adoptEnvironment();
    QCOMPARE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
}

void AudioSystemTest::init()
{
    if (!m_enumerator) {
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(createDeviceEnumerator(&m_enumerator), S_OK);
        // A refused connection ends the wait for the first answers at once.
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
    }
    tidyUp(); // after a test whose preparation failed, nobody else has
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(&m_log), S_OK);
    const char *const test = QTest::currentTestFunction();
    if (qstrcmp(test, "withoutServerNothingBlocksAndItsStartIsAnnounced") == 0)
        return;
    if (!m_server.isRunning())
        QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.addSink({"a", "Speakers A"}), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.addSink({"b", "Speakers B", 44100}), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.setDefaultSink("a"), qPrintable(m_server.errorText()));
    QVERIFY2(waitForDefault(QStringLiteral("a")),
             qPrintable(QStringLiteral("known: %1; its default: %2; the server's default: %3")
                            .arg(enumerate(eAll).join(QLatin1String(", ")), defaultId(),
                                 QString::fromUtf8(m_server.defaultSink()))));
    QVERIFY(waitUntilKnown(QStringLiteral("b")));
    // Whatever led here is told before the test begins.
    QTest::qWait(400);
    m_log.clear();
}

void AudioSystemTest::cleanup()
{
    if (m_enumerator)
        tidyUp();
}

void AudioSystemTest::cleanupTestCase()
{
    if (!m_enumerator)
        return;
    tidyUp();
    QCOMPARE(m_enumerator->Release(), ULONG(0));
}

void AudioSystemTest::tidyUp()
{
    m_log.setAction({});
    m_enumerator->UnregisterEndpointNotificationCallback(&m_log);
    QCOMPARE(m_log.references(), 1L);
    if (m_server.isRunning() && !m_server.clear()) {
        qWarning("%s", qPrintable(m_server.errorText()));
        m_server.kill();
    }
    m_log.clear();
}

QString AudioSystemTest::defaultId()
{
    IMMDevice *found = nullptr;
    const HRESULT result = m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &found);
    if (FAILED(result))
        return QStringLiteral("(0x%1)").arg(DWORD(result), 8, 16, QLatin1Char('0'));
    const QString id = idOf(found);
    found->Release();
    return id;
}

bool AudioSystemTest::waitForDefault(const QString &id)
{
    return QTest::qWaitFor([&] { return defaultId() == id; }, 10000);
}

bool AudioSystemTest::waitUntilKnown(const QString &id, bool present)
{
    return QTest::qWaitFor([&] { return enumerate(eAll).contains(id) == present; }, 10000);
}

QStringList AudioSystemTest::enumerate(EDataFlow flow, DWORD mask)
{
    QStringList ids;
    IMMDeviceCollection *collection = nullptr;
    if (FAILED(m_enumerator->EnumAudioEndpoints(flow, mask, &collection)))
        return {QStringLiteral("(failed)")};
    UINT count = 0;
    collection->GetCount(&count);
    for (UINT i = 0; i < count; ++i) {
        IMMDevice *found = nullptr;
        if (FAILED(collection->Item(i, &found)))
            continue;
        const QString id = idOf(found);
        if (!isStandIn(id))
            ids << id;
        found->Release();
    }
    collection->Release();
    return ids;
}

IMMDevice *AudioSystemTest::device(const QString &id)
{
    IMMDevice *found = nullptr;
    m_enumerator->GetDevice(id.toStdWString().c_str(), &found);
    return found;
}

// Whether a third of a second comes in which every channel has just that tone. On a machine under
// load the player, not the recorder, is late at times, so the first one need not be good.
bool AudioSystemTest::hears(LoopbackRecorder *recorder, double frequency,
                            const std::vector<double> &amplitudes)
{
    for (int attempt = 0; attempt < 30; ++attempt) {
        recorder->forget();
        if (FAILED(recorder->record(330)) || recorder->frames() < recorder->rate() / 5)
            continue;
        bool good = true;
        m_heard.clear();
        for (int i = 0; i < recorder->channels(); ++i) {
            const double expected = amplitudes[std::size_t(i)];
            const double found = recorder->amplitude(i, frequency);
            const double harmonic = recorder->amplitude(i, 2 * frequency);
            good = good && std::fabs(found - expected) < 0.005 && harmonic < 0.005
                && recorder->peak(i) < expected + 0.005;
            m_heard += QStringLiteral("channel %1: %2 for %3, peak %4, harmonic %5; ")
                           .arg(i)
                           .arg(found)
                           .arg(expected)
                           .arg(recorder->peak(i))
                           .arg(harmonic);
        }
        if (good)
            return true;
    }
    return false;
}

void AudioSystemTest::withoutServerNothingBlocksAndItsStartIsAnnounced()
{
    QElapsedTimer timer;
    timer.start();
    IMMDevice *found = nullptr;
    IMMDeviceCollection *collection = nullptr;
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &found),
             AUDCLNT_E_SERVICE_NOT_RUNNING);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eAll, DEVICE_STATE_ACTIVE, &collection),
             AUDCLNT_E_SERVICE_NOT_RUNNING);
    QCOMPARE(m_enumerator->GetDevice(L"a", &found), AUDCLNT_E_SERVICE_NOT_RUNNING);
    IMMDeviceEnumerator *another = nullptr;
    QCOMPARE(createDeviceEnumerator(&another), S_OK);
    another->Release();
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));

    QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.addSink({"first", "First"}), qPrintable(m_server.errorText()));
    QVERIFY2(m_server.setDefaultSink("first"), qPrintable(m_server.errorText()));
    QVERIFY2(m_log.waitFor(QStringList {QStringLiteral("added first")}
                           + NotificationLog::defaultLines(QStringLiteral("first"))),
             qPrintable(m_log.lines().join(QLatin1String(", "))));
    QVERIFY(m_log.heardOnOtherThreads());
}

void AudioSystemTest::endpointsAndTheirNames()
{
    const QString name = QStringLiteral("Büro-Lautsprecher 🎵");
    QVERIFY(m_server.addSink({"c", name.toUtf8()}));
    QVERIFY(m_server.addMicrophone("mic"));
    QVERIFY(waitUntilKnown(QStringLiteral("c")));
    QVERIFY(waitUntilKnown(QStringLiteral("mic")));

    const QStringList render {QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c"),
                              QStringLiteral("mic_feed")};
    QCOMPARE(enumerate(eRender), render);
    QCOMPARE(enumerate(eCapture), QStringList {QStringLiteral("mic")}); // and no monitor
    QCOMPARE(enumerate(eAll), render + QStringList {QStringLiteral("mic")});

    IMMDevice *const c = device(QStringLiteral("c"));
    QVERIFY(c);
    QCOMPARE(friendlyName(c), name);
    QCOMPARE(friendlyName(c, PKEY_Device_DeviceDesc), name);
    DWORD state = 0;
    QCOMPARE(c->GetState(&state), S_OK);
    QCOMPARE(state, DWORD(DEVICE_STATE_ACTIVE));
    IPropertyStore *store = nullptr;
    QCOMPARE(c->OpenPropertyStore(1, &store), E_ACCESSDENIED);
    QCOMPARE(c->OpenPropertyStore(STGM_READ, &store), S_OK);
    PROPVARIANT value;
    QCOMPARE(store->GetValue({IID_IUnknown, 1}, &value), S_OK);
    QCOMPARE(int(value.vt), int(VT_EMPTY));
    QCOMPARE(store->SetValue(PKEY_Device_FriendlyName, value), STG_E_ACCESSDENIED);
    QCOMPARE(store->Commit(), STG_E_ACCESSDENIED);
    DWORD count = 0;
    PROPERTYKEY key {};
    QCOMPARE(store->GetCount(&count), S_OK);
    QCOMPARE(count, DWORD(2));
    QCOMPARE(store->GetAt(1, &key), S_OK);
    QVERIFY(key == PKEY_Device_DeviceDesc);
    QCOMPARE(store->GetAt(2, &key), E_INVALIDARG);
    store->Release();
    c->Release();
}

void AudioSystemTest::stateMasksAndBadArguments()
{
    QCOMPARE(enumerate(eRender, DEVICE_STATE_UNPLUGGED), QStringList());
    QCOMPARE(enumerate(eRender, DEVICE_STATE_DISABLED), QStringList());
    QVERIFY(m_server.removeSink("b"));
    QVERIFY(waitUntilKnown(QStringLiteral("b"), false));
    QVERIFY(enumerate(eRender, DEVICE_STATE_NOTPRESENT).contains(QStringLiteral("b")));
    QVERIFY(!enumerate(eRender, DEVICE_STATE_NOTPRESENT).contains(QStringLiteral("a")));

    IMMDeviceCollection *collection = nullptr;
    IMMDevice *found = nullptr;
    QCOMPARE(m_enumerator->EnumAudioEndpoints(EDataFlow(3), 1, &collection), E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 0, &collection), E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 16, &collection), E_INVALIDARG);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 1, nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eAll, eConsole, &found), E_INVALIDARG);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, ERole(3), &found), E_INVALIDARG);
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(nullptr, &found), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(L"a", nullptr), E_POINTER);
    QCOMPARE(m_enumerator->GetDevice(L"never seen", &found), E_NOTFOUND);
    QVERIFY(!found);
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(nullptr), E_POINTER);
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(nullptr), E_POINTER);
    NotificationLog stranger;
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&stranger), E_NOTFOUND);
    QCOMPARE(m_enumerator->EnumAudioEndpoints(eRender, 1, &collection), S_OK);
    QCOMPARE(collection->Item(99, &found), E_INVALIDARG);
    QCOMPARE(collection->Item(0, nullptr), E_POINTER);
    void *object = nullptr;
    QCOMPARE(collection->QueryInterface(IID_IMMDevice, &object), E_NOINTERFACE);
    QCOMPARE(collection->QueryInterface(IID_IMMDeviceCollection, nullptr), E_POINTER);
    QCOMPARE(collection->QueryInterface(IID_IUnknown, &object), S_OK);
    QCOMPARE(collection->Release(), ULONG(1));
    QCOMPARE(collection->Release(), ULONG(0));

    IMMDevice *const a = device(QStringLiteral("a"));
    QCOMPARE(a->Activate(IID_IMMDevice, CLSCTX_INPROC_SERVER, nullptr, &object), E_NOINTERFACE);
    QVERIFY(!object);
    QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_LOCAL_SERVER, nullptr, &object), E_INVALIDARG);
    QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, nullptr), E_POINTER);
    a->Release();
}

void AudioSystemTest::defaultEndpoints()
{
    for (const ERole role : {eConsole, eMultimedia, eCommunications}) {
        IMMDevice *found = nullptr;
        QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, role, &found), S_OK);
        QCOMPARE(idOf(found), QStringLiteral("a"));
        found->Release();
    }
    QVERIFY(m_server.setDefaultSink("b"));
    QVERIFY(waitForDefault(QStringLiteral("b")));
}

void AudioSystemTest::monitorIsNoDefaultMicrophone()
{
    IMMDevice *found = nullptr;
    QVERIFY2(m_server.defaultSource().endsWith(".monitor"), m_server.defaultSource().constData());
    QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &found), E_NOTFOUND);
    QVERIFY(m_server.addMicrophone("mic"));
    QVERIFY(m_server.setDefaultSource("mic"));
    QVERIFY(QTest::qWaitFor(
        [&] {
            return SUCCEEDED(m_enumerator->GetDefaultAudioEndpoint(eCapture, eConsole, &found));
        },
        10000));
    QCOMPARE(idOf(found), QStringLiteral("mic"));
    found->Release();
    QVERIFY(m_log.waitFor({QStringLiteral("default capture console mic")}));

    // It can be asked for its format, but loopback is for outputs.
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("mic")), AUDCLNT_E_WRONG_ENDPOINT_TYPE);
}

void AudioSystemTest::defaultChangeIsAnnouncedForEveryRole()
{
    QVERIFY(m_server.setDefaultSink("b"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))));
    QVERIFY(m_server.setDefaultSink("a"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))
                          + NotificationLog::defaultLines(QStringLiteral("a"))));
    QTest::qWait(300);
    const QStringList heard = m_log.lines().filter(QStringLiteral("default render"));
    QCOMPARE(heard,
             NotificationLog::defaultLines(QStringLiteral("b"))
                 + NotificationLog::defaultLines(QStringLiteral("a")));
}

void AudioSystemTest::newSinkIsAnnounced()
{
    QVERIFY(m_server.addSink({"c", "Speakers C"}));
    QVERIFY(m_log.waitFor({QStringLiteral("added c")}));
    QVERIFY(m_server.setDefaultSink("c"));
    QVERIFY(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("c"))));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
}

void AudioSystemTest::removedSinkKeepsItsNameAndIsNotPresent()
{
    IMMDevice *const before = device(QStringLiteral("b"));
    QVERIFY(before);
    QString nameInCallback;
    m_log.setAction([&] {
        if (IMMDevice *const found = device(QStringLiteral("b"))) {
            nameInCallback = friendlyName(found);
            found->Release();
        }
    });
    QVERIFY(m_server.removeSink("b"));
    QVERIFY(m_log.waitFor({QStringLiteral("removed b")}));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&m_log), S_OK); // ends the action
    QCOMPARE(nameInCallback, QStringLiteral("Speakers B"));

    DWORD state = 0;
    QCOMPARE(before->GetState(&state), S_OK);
    QCOMPARE(state, DWORD(DEVICE_STATE_NOTPRESENT));
    void *object = nullptr;
    QCOMPARE(before->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &object),
             AUDCLNT_E_DEVICE_INVALIDATED);
    QVERIFY(!object);
    QCOMPARE(friendlyName(before), QStringLiteral("Speakers B"));
    before->Release();
}

void AudioSystemTest::removedDefaultIsFollowedByItsSuccessor()
{
    QVERIFY(m_server.removeSink("a"));
    QVERIFY2(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("b"))
                           + QStringList {QStringLiteral("removed a")}),
             qPrintable(m_log.lines().join(QLatin1String(", "))));
    QCOMPARE(m_log.lines().filter(QStringLiteral("state")), QStringList());
}

void AudioSystemTest::tone_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<QByteArray>("map"); // as the server has it
    QTest::addColumn<QList<int>>("order"); // the server's channel for each of the mix format's
    QTest::addColumn<unsigned>("mask");
    const QByteArray stereo = "front-left,front-right";
    const QByteArray surround = "front-left,front-right,rear-left,rear-right,front-center,lfe";
    for (const int rate : {44100, 48000, 96000}) {
        QTest::addRow("%d mono", rate) << rate << QByteArray("mono") << QList<int> {0} << 0x4U;
        QTest::addRow("%d stereo", rate) << rate << stereo << QList<int> {0, 1} << 0x3U;
        QTest::addRow("%d 5.1", rate) << rate << surround << QList<int> {0, 1, 4, 5, 2, 3} << 0x3FU;
    }
}

void AudioSystemTest::tone()
{
    QFETCH(int, rate);
    QFETCH(QByteArray, map);
    QFETCH(QList<int>, order);
    QFETCH(unsigned, mask);
    SoundServer::Sink sink {"t", "Tone", rate, map};
    QVERIFY2(m_server.addSink(sink), qPrintable(m_server.errorText()));
    QVERIFY(waitUntilKnown(QStringLiteral("t")));
    std::vector<double> amplitudes;
    for (int i = 0; i < sink.channels(); ++i)
        amplitudes.push_back(0.6 - 0.1 * i);

    Tone tone(m_server, sink, Frequency, amplitudes);
    QVERIFY(tone.isPlaying());
    LoopbackRecorder recorder;
    // A server that a loaded machine holds up may take longer than the two seconds of an open.
    QTRY_COMPARE_WITH_TIMEOUT(recorder.open(m_enumerator, QStringLiteral("t")), S_OK, 20000);
    QCOMPARE(recorder.rate(), rate);
    QCOMPARE(recorder.channels(), int(order.size()));
    QCOMPARE(recorder.mask(), DWORD(mask));
    UINT32 frames = 0;
    QCOMPARE(recorder.client()->GetBufferSize(&frames), S_OK);
    QCOMPARE(frames, UINT32(rate));

    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    std::vector<double> expected;
    for (const int channel : order)
        expected.push_back(amplitudes[std::size_t(channel)]);
    QVERIFY2(hears(&recorder, Frequency, expected), qPrintable(m_heard));
    QCOMPARE(recorder.frames() % (rate / 100), 0); // whole packets
    recorder.close();
}

void AudioSystemTest::silence()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    QCOMPARE(recorder.record(500), S_OK);
    QVERIFY(recorder.frames() > 0);
    QCOMPARE(recorder.peak(0), 0.0);
    QCOMPARE(recorder.peak(1), 0.0);
}

void AudioSystemTest::clientRefusesWhatItCannotDo()
{
    IMMDevice *const a = device(QStringLiteral("a"));
    IAudioClient *client = nullptr;
    QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void **>(&client)),
             S_OK);
    a->Release();
    WAVEFORMATEX *format = nullptr;
    QCOMPARE(client->GetMixFormat(nullptr), E_POINTER);
    QCOMPARE(client->GetMixFormat(&format), S_OK);

    UINT32 frames = 0;
    REFERENCE_TIME time = 0;
    void *service = nullptr;
    QCOMPARE(client->GetBufferSize(&frames), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->GetCurrentPadding(&frames), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->GetStreamLatency(&time), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->Start(), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->Stop(), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->Reset(), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->SetEventHandle(nullptr), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->GetService(IID_IAudioCaptureClient, &service), AUDCLNT_E_NOT_INITIALIZED);
    QCOMPARE(client->GetDevicePeriod(nullptr, nullptr), E_POINTER);
    QCOMPARE(client->GetDevicePeriod(&time, nullptr), S_OK);
    QCOMPARE(time, REFERENCE_TIME(100000));

    const auto initialize = [&](AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                                REFERENCE_TIME period) {
        return client->Initialize(mode, flags, duration, period, format, nullptr);
    };
    constexpr DWORD Loopback = AUDCLNT_STREAMFLAGS_LOOPBACK;
    QCOMPARE(client->Initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 0, nullptr, nullptr),
             E_POINTER);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, Loopback, 0, 0),
             AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE(7), Loopback, 0, 0), E_INVALIDARG);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback | 0x40000, 0, 0), E_INVALIDARG);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, 0, 0, 0), E_NOTIMPL);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, -1, 0), E_INVALIDARG);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 100000),
             AUDCLNT_E_INVALID_DEVICE_PERIOD);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 200000000, 0),
             AUDCLNT_E_BUFFER_SIZE_ERROR);
    WAVEFORMATEX *closest = nullptr;
    QCOMPARE(client->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, format, &closest), S_OK);
    QVERIFY(!closest);
    QCOMPARE(client->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, format, nullptr), E_POINTER);
    QCOMPARE(client->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, format, nullptr),
             AUDCLNT_E_UNSUPPORTED_FORMAT);
    format->nSamplesPerSec += 1;
    QCOMPARE(client->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, format, &closest), S_FALSE);
    QVERIFY(closest && closest->nSamplesPerSec == 48000);
    CoTaskMemFree(closest);
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 0), AUDCLNT_E_UNSUPPORTED_FORMAT);
    format->nSamplesPerSec -= 1;

    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 0), S_OK);
    QCOMPARE(client->GetBufferSize(&frames), S_OK);
    QCOMPARE(frames, UINT32(960)); // the smallest: two packets
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 0), AUDCLNT_E_ALREADY_INITIALIZED);
    QCOMPARE(client->SetEventHandle(nullptr), AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED);
    QCOMPARE(client->GetService(IID_IMMDevice, &service), E_NOINTERFACE);
    QCOMPARE(client->GetService(IID_IAudioCaptureClient, nullptr), E_POINTER);
    CoTaskMemFree(format);
    QCOMPARE(client->Release(), ULONG(0));
}

void AudioSystemTest::buffersFollowTheContract()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    IAudioCaptureClient *const capture = recorder.capture();
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 position = 0;
    UINT64 time = 0;
    QCOMPARE(capture->GetBuffer(nullptr, &frames, &flags, nullptr, nullptr), E_POINTER);
    QCOMPARE(capture->GetNextPacketSize(nullptr), E_POINTER);
    QCOMPARE(capture->GetNextPacketSize(&frames), S_OK);
    QCOMPARE(frames, UINT32(0));
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_S_BUFFER_EMPTY);
    QCOMPARE(capture->ReleaseBuffer(0), S_OK);
    QCOMPARE(capture->ReleaseBuffer(480), AUDCLNT_E_OUT_OF_ORDER);

    QCOMPARE(recorder.client()->Start(), S_OK);
    QVERIFY(QTest::qWaitFor(
        [&] {
            UINT32 waiting = 0;
            return SUCCEEDED(recorder.client()->GetCurrentPadding(&waiting)) && waiting >= 960;
        },
        10000));
    QCOMPARE(capture->GetNextPacketSize(&frames), S_OK);
    QCOMPARE(frames, UINT32(480));
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, &position, &time), S_OK);
    QVERIFY(data);
    QCOMPARE(frames, UINT32(480));
    QCOMPARE(flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY,
             DWORD(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY)); // the stream has just begun
    const UINT64 firstPosition = position;
    QVERIFY(time > 0);
    BYTE *const first = data;
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr), AUDCLNT_E_OUT_OF_ORDER);
    QCOMPARE(recorder.client()->Reset(), AUDCLNT_E_BUFFER_OPERATION_PENDING);
    QCOMPARE(capture->ReleaseBuffer(479), AUDCLNT_E_INVALID_SIZE);
    QCOMPARE(capture->ReleaseBuffer(0), S_OK); // not read: it comes again
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, &position, nullptr), S_OK);
    QCOMPARE(data, first);
    QCOMPARE(position, firstPosition);
    QCOMPARE(capture->ReleaseBuffer(480), S_OK);
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, &position, nullptr), S_OK);
    QCOMPARE(position, firstPosition + 480);
    QCOMPARE(flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, DWORD(0));
    QCOMPARE(capture->ReleaseBuffer(480), S_OK);

    QCOMPARE(recorder.client()->Reset(), AUDCLNT_E_NOT_STOPPED);
    QCOMPARE(recorder.client()->Stop(), S_OK);
    QCOMPARE(recorder.client()->Reset(), S_OK);
    QCOMPARE(capture->GetNextPacketSize(&frames), S_OK);
    QCOMPARE(frames, UINT32(0));
}

void AudioSystemTest::readerThatFallsBehindMissesWholePackets()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    UINT32 waiting = 0;
    QVERIFY(QTest::qWaitFor(
        [&] {
            return SUCCEEDED(recorder.client()->GetCurrentPadding(&waiting)) && waiting == 48000;
        },
        10000));
    QTest::qWait(500); // more than fits
    QCOMPARE(recorder.client()->GetCurrentPadding(&waiting), S_OK);
    QCOMPARE(waiting, UINT32(48000));
    QCOMPARE(recorder.record(1000), S_OK);
    QVERIFY(recorder.frames() > 48000);
    QCOMPARE(recorder.discontinuities(), 2); // the beginning, and where packets are missing
}

void AudioSystemTest::stopAndStart()
{
    const SoundServer::Sink *const sink = m_server.find("a");
    Tone tone(m_server, *sink, Frequency, {0.5, 0.25});
    QVERIFY(tone.isPlaying());
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Stop(), S_FALSE);
    for (int round = 0; round < 3; ++round) {
        QCOMPARE(recorder.client()->Start(), S_OK);
        QCOMPARE(recorder.client()->Start(), AUDCLNT_E_NOT_STOPPED);
        QCOMPARE(recorder.waitForSound(), S_OK);
        QVERIFY2(hears(&recorder, Frequency, {0.5, 0.25}), qPrintable(m_heard));
        QCOMPARE(recorder.client()->Stop(), S_OK);
        QCOMPARE(recorder.client()->Stop(), S_FALSE);
        recorder.record(100); // what had come before
        recorder.forget();
        QCOMPARE(recorder.record(300), S_OK);
        QCOMPARE(recorder.frames(), 0);
    }
    QCOMPARE(recorder.discontinuities(), 3);
}

void AudioSystemTest::captureClientKeepsItsAudioClient()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    IAudioClient *const client = recorder.client();
    IAudioCaptureClient *const capture = recorder.capture();
    capture->AddRef();
    client->AddRef();
    recorder.close();
    QCOMPARE(client->Release(), ULONG(1)); // the capture client's
    QVERIFY(QTest::qWaitFor(
        [&] {
            UINT32 frames = 0;
            return SUCCEEDED(capture->GetNextPacketSize(&frames)) && frames > 0;
        },
        10000));
    QCOMPARE(client->Stop(), S_OK);
    QCOMPARE(capture->Release(), ULONG(0));
}

void AudioSystemTest::releasedStreamsLeaveTheServer()
{
    const QStringList list {QStringLiteral("list"), QStringLiteral("short"),
                            QStringLiteral("source-outputs")};
    QByteArray output;
    {
        LoopbackRecorder recorder;
        QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
        QVERIFY(m_server.control(list, &output));
        QCOMPARE(output.count('\n'), 1);
    }
    QVERIFY(QTest::qWaitFor([&] { return m_server.control(list, &output) && output.isEmpty(); },
                            10000));
}

void AudioSystemTest::removedSinkInvalidates()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    BYTE *data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    QVERIFY(QTest::qWaitFor(
        [&] {
            return recorder.capture()->GetBuffer(&data, &frames, &flags, nullptr, nullptr) == S_OK;
        },
        10000));
    QVERIFY(m_server.removeSink("b"));
    QVERIFY(waitUntilKnown(QStringLiteral("b"), false));

    QVERIFY(QTest::qWaitFor(
        [&] {
            UINT32 next = 0;
            return recorder.capture()->GetNextPacketSize(&next) == AUDCLNT_E_DEVICE_INVALIDATED;
        },
        10000));
    QVERIFY(m_log.lines().contains(QStringLiteral("removed b"))); // heard first
    const QByteArray stillThere(reinterpret_cast<const char *>(data), int(frames * 8));
    QCOMPARE(stillThere, QByteArray(int(frames * 8), '\0'));
    QCOMPARE(recorder.capture()->ReleaseBuffer(frames), S_OK);
    QCOMPARE(recorder.capture()->GetBuffer(&data, &frames, &flags, nullptr, nullptr),
             AUDCLNT_E_DEVICE_INVALIDATED);
    void *service = nullptr;
    QCOMPARE(recorder.client()->GetBufferSize(&frames), AUDCLNT_E_DEVICE_INVALIDATED);
    QCOMPARE(recorder.client()->GetService(IID_IAudioCaptureClient, &service),
             AUDCLNT_E_DEVICE_INVALIDATED);
    QCOMPARE(recorder.client()->Stop(), S_OK);
    QCOMPARE(recorder.client()->Start(), AUDCLNT_E_DEVICE_INVALIDATED);
}

void AudioSystemTest::returnedSinkIsAnotherOne()
{
    IMMDevice *const b = device(QStringLiteral("b"));
    IAudioClient *early = nullptr;
    QCOMPARE(b->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, reinterpret_cast<void **>(&early)),
             S_OK);
    WAVEFORMATEX *format = nullptr;
    QCOMPARE(early->GetMixFormat(&format), S_OK);
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);

    QVERIFY(m_server.removeSink("b"));
    QVERIFY(m_server.addSink({"b", "Speakers B again", 44100}));
    QVERIFY(m_log.waitFor({QStringLiteral("removed b"), QStringLiteral("added b")}));
    QVERIFY(QTest::qWaitFor([&] { return recorder.record(10) == AUDCLNT_E_DEVICE_INVALIDATED; },
                            10000));
    QCOMPARE(early->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, 0, 0, format,
                               nullptr),
             AUDCLNT_E_DEVICE_INVALIDATED);
    CoTaskMemFree(format);
    early->Release();

    // The device object finds it again.
    QCOMPARE(friendlyName(b), QStringLiteral("Speakers B again"));
    DWORD state = 0;
    QCOMPARE(b->GetState(&state), S_OK);
    QCOMPARE(state, DWORD(DEVICE_STATE_ACTIVE));
    b->Release();
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
}

void AudioSystemTest::microphoneIsNeverHeard()
{
    QVERIFY2(m_server.addMicrophone("mic"), qPrintable(m_server.errorText()));
    QVERIFY(m_server.setDefaultSource("mic"));
    const SoundServer::Sink feed = *m_server.find("mic_feed");
    Tone voice(m_server, feed, 3000, {0.8, 0.8});
    QVERIFY(voice.isPlaying());
    QVERIFY(waitUntilKnown(QStringLiteral("mic_feed")));

    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    QCOMPARE(recorder.record(500), S_OK);
    QVERIFY(recorder.frames() > 0);
    QCOMPARE(recorder.peak(0), 0.0);

    // The sound is there to be heard, where it is played.
    LoopbackRecorder control;
    QCOMPARE(control.open(m_enumerator, QStringLiteral("mic_feed")), S_OK);
    QCOMPARE(control.client()->Start(), S_OK);
    QCOMPARE(control.waitForSound(), S_OK);
    QVERIFY2(hears(&control, 3000, {0.8, 0.8}), qPrintable(m_heard));
    control.close();

    // A server that wants to rescue the stream of a lost sink must not find the microphone.
    recorder.forget();
    QVERIFY(m_server.removeSink("b"));
    HRESULT hr = S_OK;
    for (int i = 0; i < 200 && SUCCEEDED(hr); ++i)
        hr = recorder.record(20);
    QCOMPARE(hr, AUDCLNT_E_DEVICE_INVALIDATED);
    QCOMPARE(recorder.peak(0), 0.0);
    QCOMPARE(recorder.peak(1), 0.0);
}

void AudioSystemTest::killedServerInvalidatesAndItsReturnIsAnnounced()
{
    for (int round = 0; round < 3; ++round) {
        LoopbackRecorder recorder;
        QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
        QCOMPARE(recorder.client()->Start(), S_OK);
        QCOMPARE(recorder.waitForSound(), S_OK);
        IMMDevice *const a = device(QStringLiteral("a"));
        m_log.clear();

        m_server.kill();
        QVERIFY2(m_log.waitFor({QStringLiteral("state a 4"), QStringLiteral("state b 4")}),
                 qPrintable(m_log.lines().join(QLatin1String(", "))));
        QVERIFY(QTest::qWaitFor([&] { return recorder.record(10) == AUDCLNT_E_DEVICE_INVALIDATED; },
                                10000));

        QElapsedTimer timer;
        timer.start();
        IMMDevice *found = nullptr;
        void *object = nullptr;
        DWORD state = 0;
        QCOMPARE(m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &found),
                 AUDCLNT_E_SERVICE_NOT_RUNNING);
        QCOMPARE(a->GetState(&state), S_OK);
        QCOMPARE(state, DWORD(DEVICE_STATE_NOTPRESENT));
        QCOMPARE(friendlyName(a), QStringLiteral("Speakers A"));
        QCOMPARE(a->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &object),
                 AUDCLNT_E_SERVICE_NOT_RUNNING);
        QCOMPARE(recorder.client()->Stop(), S_OK);
        recorder.close();
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
        a->Release();

        QTest::qWait(600); // some attempts to connect fail
        m_log.clear();
        QVERIFY2(m_server.start(), qPrintable(m_server.errorText()));
        QVERIFY(m_server.addSink({"a", "Speakers A"}));
        QVERIFY(m_server.addSink({"b", "Speakers B"}));
        QVERIFY(m_server.setDefaultSink("a"));
        QVERIFY2(m_log.waitFor(NotificationLog::defaultLines(QStringLiteral("a"))),
                 qPrintable(m_log.lines().join(QLatin1String(", "))));
        QVERIFY2(m_log.waitFor({QStringLiteral("state a 1")}),
                 qPrintable(m_log.lines().join(QLatin1String(", "))));
    }
}

void AudioSystemTest::hungServerBlocksNothing()
{
    auto recorder = std::make_unique<LoopbackRecorder>();
    LoopbackRecorder survivor;
    QCOMPARE(recorder->open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder->client()->Start(), S_OK);
    QCOMPARE(recorder->waitForSound(), S_OK);
    QCOMPARE(survivor.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(survivor.client()->Start(), S_OK);
    QCOMPARE(survivor.waitForSound(), S_OK);

    m_server.hang();
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(enumerate(eRender).size(), 2);
    QCOMPARE(survivor.client()->Stop(), S_OK);
    QCOMPARE(survivor.client()->Start(), S_OK);
    recorder.reset();
    QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));

    timer.start();
    LoopbackRecorder late;
    QCOMPARE(late.open(m_enumerator, QStringLiteral("a")), AUDCLNT_E_ENDPOINT_CREATE_FAILED);
    late.close();
    QVERIFY2(timer.elapsed() > 1000 && timer.elapsed() < 4000,
             qPrintable(QString::number(timer.elapsed())));

    m_server.resume();
    QCOMPARE(survivor.waitForSound(), S_OK);
    QCOMPARE(survivor.record(300), S_OK);
    QVERIFY(survivor.frames() > 0);
    survivor.close();
    // Nothing is left of the one that was given up before the server could make it.
    QByteArray output;
    QVERIFY(QTest::qWaitFor(
        [&] {
            return m_server.control({QStringLiteral("list"), QStringLiteral("short"),
                                     QStringLiteral("source-outputs")},
                                    &output)
                && output.isEmpty();
        },
        10000));
}

void AudioSystemTest::unregisteringWaitsForACall()
{
    NotificationLog log;
    std::atomic<bool> inside {false};
    std::atomic<bool> left {false};
    log.setAction([&] {
        inside = true;
        QTest::qSleep(300);
        left = true;
    });
    QCOMPARE(m_enumerator->RegisterEndpointNotificationCallback(&log), S_OK);
    QVERIFY(m_server.addSink({"c", "Speakers C"}));
    QVERIFY(QTest::qWaitFor([&] { return inside.load(); }, 10000));
    QCOMPARE(m_enumerator->UnregisterEndpointNotificationCallback(&log), S_OK);
    QVERIFY(left);
    QCOMPARE(log.references(), 1L);
    const int heard = log.lines().size();
    QVERIFY(m_server.removeSink("c"));
    QVERIFY(m_log.waitFor({QStringLiteral("removed c")}));
    QCOMPARE(log.lines().size(), heard);

    // An enumerator that goes takes its registrations along.
    IMMDeviceEnumerator *another = nullptr;
    QCOMPARE(createDeviceEnumerator(&another), S_OK);
    QCOMPARE(another->RegisterEndpointNotificationCallback(&log), S_OK);
    QCOMPARE(another->Release(), ULONG(0));
    QCOMPARE(log.references(), 1L);
}

void AudioSystemTest::repeatedUseIsFlat()
{
    const auto count = [](const char *folder) {
        return QDir(QString::fromLatin1(folder))
            .entryList(QDir::AllEntries | QDir::NoDotAndDotDot)
            .size();
    };
    const auto use = [&] {
        IMMDeviceEnumerator *enumerator = nullptr;
        QCOMPARE(createDeviceEnumerator(&enumerator), S_OK);
        LoopbackRecorder recorder;
        QCOMPARE(recorder.open(enumerator, QStringLiteral("a")), S_OK);
        QCOMPARE(recorder.client()->Start(), S_OK);
        recorder.close();
        QCOMPARE(enumerator->Release(), ULONG(0));
    };
    use();
    QTest::qWait(300);
    const int descriptors = count("/proc/self/fd");
    const int threads = count("/proc/self/task");
    for (int i = 0; i < 50; ++i)
        use();
    QTest::qWait(300);
    QCOMPARE(count("/proc/self/fd"), descriptors);
    QCOMPARE(count("/proc/self/task"), threads);
}

QTEST_GUILESS_MAIN(AudioSystemTest)
#include "tst_audiosystem.moc"
