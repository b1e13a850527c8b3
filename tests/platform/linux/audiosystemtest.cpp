#include "tests/platform/linux/audiosystemtest.h"

#include <cmath>

namespace {

// PipeWire's stand-in while there is no sink.
bool isStandIn(const QString &id)
{
    return id == QLatin1String("auto_null");
}

} // namespace

QString friendlyName(IMMDevice *device, const PROPERTYKEY &key)
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
    QString result = QString::fromWCharArray(id);
    CoTaskMemFree(id);
    return result;
}

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
    // All notifications of the preparation come before the test begins.
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
    QCOMPARE(m_enumerator->Release(), static_cast<ULONG>(0));
}

void AudioSystemTest::tidyUp()
{
    m_log.setAction({});
    m_enumerator->UnregisterEndpointNotificationCallback(&m_log);
    QCOMPARE(m_log.references(), 1L);
    if (m_server.isRunning() && !m_server.clear()) {
        qWarning("%s", qPrintable(m_server.errorText()));
        QVERIFY2(m_server.kill(), qPrintable(m_server.errorText()));
    }
    m_log.clear();
}

QString AudioSystemTest::defaultId()
{
    IMMDevice *found = nullptr;
    const HRESULT result = m_enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &found);
    if (FAILED(result))
        return QStringLiteral("(0x%1)").arg(static_cast<DWORD>(result), 8, 16, QLatin1Char('0'));
    QString id = idOf(found);
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
            const double expected = amplitudes[static_cast<std::size_t>(i)];
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
