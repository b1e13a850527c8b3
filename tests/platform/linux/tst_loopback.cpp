// What a real sound server plays, heard from its monitors.
#include "tests/platform/linux/audiosystemtest.h"

#include <QDir>

namespace {
constexpr double kFrequencyHz = 1000;
} // namespace

class LoopbackTest : public AudioSystemTest {
    Q_OBJECT

private Q_SLOTS:
    void tone_data();
    void tone();
    void silence();
    void clientRefusesWhatItCannotDo();
    void buffersFollowTheContract();
    void readerThatFallsBehindMissesWholePackets();
    void stopAndStart();
    void captureClientKeepsItsAudioClient();
    void releasedStreamsLeaveTheServer();
    void microphoneIsNeverHeard();
    void repeatedUseIsFlat();
};

void LoopbackTest::tone_data()
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

void LoopbackTest::tone()
{
    QFETCH(int, rate);
    QFETCH(QByteArray, map);
    QFETCH(QList<int>, order);
    QFETCH(unsigned, mask);
    SoundServer::Sink sink {"t", "Tone", rate, map};
    QVERIFY2(m_server.addSink(sink), qPrintable(m_server.errorText()));
    QVERIFY(waitUntilKnown(QStringLiteral("t")));
    std::vector<double> amplitudes;
    amplitudes.reserve(static_cast<std::size_t>(sink.channels()));
    for (int i = 0; i < sink.channels(); ++i)
        amplitudes.push_back(0.6 - 0.1 * i);

    Tone tone(m_server, sink, kFrequencyHz, amplitudes);
    QVERIFY(tone.isPlaying());
    LoopbackRecorder recorder;
    // A server that a loaded machine holds up may take longer than the two seconds of an open.
    QTRY_COMPARE_WITH_TIMEOUT(recorder.open(m_enumerator, QStringLiteral("t")), S_OK, 20000);
    QCOMPARE(recorder.rate(), rate);
    QCOMPARE(recorder.channels(), static_cast<int>(order.size()));
    QCOMPARE(recorder.mask(), static_cast<DWORD>(mask));
    UINT32 frames = 0;
    QCOMPARE(recorder.client()->GetBufferSize(&frames), S_OK);
    QCOMPARE(frames, static_cast<UINT32>(rate));

    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
    std::vector<double> expected;
    for (const int channel : order)
        expected.push_back(amplitudes[static_cast<std::size_t>(channel)]);
    QVERIFY2(hears(&recorder, kFrequencyHz, expected), qPrintable(m_heard));
    QCOMPARE(recorder.frames() % (rate / 100), 0); // whole packets
    recorder.close();
}

void LoopbackTest::silence()
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

void LoopbackTest::clientRefusesWhatItCannotDo()
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
    QCOMPARE(time, static_cast<REFERENCE_TIME>(100000));

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
    QCOMPARE(frames, static_cast<UINT32>(960)); // the smallest: two packets
    QCOMPARE(initialize(AUDCLNT_SHAREMODE_SHARED, Loopback, 0, 0), AUDCLNT_E_ALREADY_INITIALIZED);
    QCOMPARE(client->SetEventHandle(nullptr), AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED);
    QCOMPARE(client->GetService(IID_IMMDevice, &service), E_NOINTERFACE);
    QCOMPARE(client->GetService(IID_IAudioCaptureClient, nullptr), E_POINTER);
    CoTaskMemFree(format);
    QCOMPARE(client->Release(), static_cast<ULONG>(0));
}

void LoopbackTest::buffersFollowTheContract()
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
    QCOMPARE(frames, static_cast<UINT32>(0));
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
    QCOMPARE(frames, static_cast<UINT32>(480));
    QCOMPARE(capture->GetBuffer(&data, &frames, &flags, &position, &time), S_OK);
    QVERIFY(data);
    QCOMPARE(frames, static_cast<UINT32>(480));
    QCOMPARE(
        flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY,
        static_cast<DWORD>(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY)); // the stream has just begun
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
    QCOMPARE(flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY, static_cast<DWORD>(0));
    QCOMPARE(capture->ReleaseBuffer(480), S_OK);

    QCOMPARE(recorder.client()->Reset(), AUDCLNT_E_NOT_STOPPED);
    QCOMPARE(recorder.client()->Stop(), S_OK);
    QCOMPARE(recorder.client()->Reset(), S_OK);
    QCOMPARE(capture->GetNextPacketSize(&frames), S_OK);
    QCOMPARE(frames, static_cast<UINT32>(0));
}

void LoopbackTest::readerThatFallsBehindMissesWholePackets()
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
    QCOMPARE(waiting, static_cast<UINT32>(48000));
    QCOMPARE(recorder.record(1000), S_OK);
    QVERIFY(recorder.frames() > 48000);
    QCOMPARE(recorder.discontinuities(), 2); // the beginning, and where packets are missing
}

void LoopbackTest::stopAndStart()
{
    const SoundServer::Sink *const sink = m_server.find("a");
    Tone tone(m_server, *sink, kFrequencyHz, {0.5, 0.25});
    QVERIFY(tone.isPlaying());
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Stop(), S_FALSE);
    for (int round = 0; round < 3; ++round) {
        QCOMPARE(recorder.client()->Start(), S_OK);
        QCOMPARE(recorder.client()->Start(), AUDCLNT_E_NOT_STOPPED);
        QCOMPARE(recorder.waitForSound(), S_OK);
        QVERIFY2(hears(&recorder, kFrequencyHz, {0.5, 0.25}), qPrintable(m_heard));
        QCOMPARE(recorder.client()->Stop(), S_OK);
        QCOMPARE(recorder.client()->Stop(), S_FALSE);
        recorder.record(100); // what had come before
        recorder.forget();
        QCOMPARE(recorder.record(300), S_OK);
        QCOMPARE(recorder.frames(), 0);
    }
    QCOMPARE(recorder.discontinuities(), 3);
}

void LoopbackTest::captureClientKeepsItsAudioClient()
{
    LoopbackRecorder recorder;
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    IAudioClient *const client = recorder.client();
    IAudioCaptureClient *const capture = recorder.capture();
    capture->AddRef();
    client->AddRef();
    recorder.close();
    QCOMPARE(client->Release(), static_cast<ULONG>(1)); // the capture client's
    QVERIFY(QTest::qWaitFor(
        [&] {
            UINT32 frames = 0;
            return SUCCEEDED(capture->GetNextPacketSize(&frames)) && frames > 0;
        },
        10000));
    QCOMPARE(client->Stop(), S_OK);
    QCOMPARE(capture->Release(), static_cast<ULONG>(0));
}

void LoopbackTest::releasedStreamsLeaveTheServer()
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

void LoopbackTest::microphoneIsNeverHeard()
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

    // The monitor of the sink that plays the sound does hear it.
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

void LoopbackTest::repeatedUseIsFlat()
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
        QCOMPARE(enumerator->Release(), static_cast<ULONG>(0));
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

QTEST_GUILESS_MAIN(LoopbackTest)
#include "tst_loopback.moc"
