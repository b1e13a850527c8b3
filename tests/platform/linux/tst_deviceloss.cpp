// Sinks that go and come back, servers that die or hang, under a stream.
#include "tests/platform/linux/audiosystemtest.h"

class DeviceLossTest : public AudioSystemTest {
    Q_OBJECT

private Q_SLOTS:
    void removedSinkInvalidates();
    void returnedSinkIsAnotherOne();
    void killedServerInvalidatesAndItsReturnIsAnnounced();
    void hungServerBlocksNothing();
};

void DeviceLossTest::removedSinkInvalidates()
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
    const QByteArray stillThere(reinterpret_cast<const char *>(data), static_cast<int>(frames * 8));
    QCOMPARE(stillThere, QByteArray(static_cast<int>(frames * 8), '\0'));
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

void DeviceLossTest::returnedSinkIsAnotherOne()
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
    QCOMPARE(state, static_cast<DWORD>(DEVICE_STATE_ACTIVE));
    b->Release();
    QCOMPARE(recorder.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(recorder.client()->Start(), S_OK);
    QCOMPARE(recorder.waitForSound(), S_OK);
}

void DeviceLossTest::killedServerInvalidatesAndItsReturnIsAnnounced()
{
    for (int round = 0; round < 3; ++round) {
        LoopbackRecorder recorder;
        QCOMPARE(recorder.open(m_enumerator, QStringLiteral("a")), S_OK);
        QCOMPARE(recorder.client()->Start(), S_OK);
        QCOMPARE(recorder.waitForSound(), S_OK);
        IMMDevice *const a = device(QStringLiteral("a"));
        m_log.clear();

        QVERIFY2(m_server.kill(), qPrintable(m_server.errorText()));
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
        QCOMPARE(state, static_cast<DWORD>(DEVICE_STATE_NOTPRESENT));
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

void DeviceLossTest::hungServerBlocksNothing()
{
    auto recorder = std::make_unique<LoopbackRecorder>();
    LoopbackRecorder survivor;
    QCOMPARE(recorder->open(m_enumerator, QStringLiteral("a")), S_OK);
    QCOMPARE(recorder->client()->Start(), S_OK);
    QCOMPARE(recorder->waitForSound(), S_OK);
    QCOMPARE(survivor.open(m_enumerator, QStringLiteral("b")), S_OK);
    QCOMPARE(survivor.client()->Start(), S_OK);
    QCOMPARE(survivor.waitForSound(), S_OK);

    QVERIFY2(m_server.hang(), qPrintable(m_server.errorText()));
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

    QVERIFY2(m_server.resume(), qPrintable(m_server.errorText()));
    QCOMPARE(survivor.waitForSound(), S_OK);
    QCOMPARE(survivor.record(300), S_OK);
    QVERIFY(survivor.frames() > 0);
    survivor.close();
    // Nothing is left of the stream that was given up before the server could make it.
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

QTEST_GUILESS_MAIN(DeviceLossTest)
#include "tst_deviceloss.moc"
