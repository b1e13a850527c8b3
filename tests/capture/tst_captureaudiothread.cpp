// The worker's sessions on a scripted client.
#include "platform/deviceenumerator.h"
#include "tests/capture/scene.h"
#include "tests/support/comfault.h"
#include <objbase.h>
#include <optional>
#include <QRegularExpression>

namespace {

QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

QByteArray floats(const QList<float> &values)
{
    QByteArray bytes;
    for (const float value : values)
        bytes.append(reinterpret_cast<const char *>(&value), sizeof(value));
    return bytes;
}

FakePacket packet(UINT32 frames, const QByteArray &bytes)
{
    FakePacket result;
    result.frames = frames;
    result.bytes = bytes;
    return result;
}

/// A worker, what it says, and initialised clients of the endpoint "Speakers".
struct Session {
    Session()
    {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        scene.audio.setEndlessFrames(kIdA, 0);
        QObject::connect(worker.get(), &CaptureAudioThread::notifyData, &receiver,
                         [this](const QByteArray &data) { blocks.append(data); });
        QObject::connect(worker.get(), &CaptureAudioThread::stoped, &receiver, [this] {
            stops.append(true);
            events.append(QStringLiteral("stoped"));
        });
        QObject::connect(worker.get(), &CaptureAudioThread::error, &receiver, [this](HRESULT hr) {
            errors.append(hr);
            events.append(QStringLiteral("error"));
        });
    }
    ~Session()
    {
        worker.reset();
        for (IAudioClient *client : std::as_const(clients))
            client->Release();
    }

    IAudioClient *client()
    {
        IMMDevice *device = nullptr;
        AudioCapture::getDefaultRenderDevice(&device);
        void *made = nullptr;
        device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr, &made);
        device->Release();
        auto *result = static_cast<IAudioClient *>(made);
        WAVEFORMATEX *mix = nullptr;
        result->GetMixFormat(&mix);
        result->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_LOOPBACK, 10'000'000, 0,
                           mix, nullptr);
        CoTaskMemFree(mix);
        clients.append(result);
        return result;
    }
    void start(IAudioClient *client, int blockAlign)
    {
        ++starts;
        QVERIFY(QMetaObject::invokeMethod(worker.get(), "start", Qt::AutoConnection,
                                          Q_ARG(IAudioClient *, client), Q_ARG(int, blockAlign)));
    }
    /// Ends the session by clearing the run flag, once it runs.
    bool end()
    {
        if (!waitUntil([this] { return worker->isRunning() || stops.size() > 0; }))
            return false;
        worker->clearRunning();
        return waitUntil([this] { return stops.size() > 0; });
    }
    QByteArray block(int index)
    {
        waitUntil([this, index] { return blocks.size() > index; }, 3000);
        return blocks.value(index);
    }
    /// Ends the worker. Whatever a test was about: each start ends with one stop, and an error
    /// comes right before it.
    QStringList leftovers()
    {
        worker.reset();
        QCoreApplication::sendPostedEvents(&receiver); // what it said last
        while (!clients.isEmpty())
            clients.takeFirst()->Release();
        QStringList result = scene.leftovers();
        if (events.count(QStringLiteral("stoped")) != starts
            || events.join(QLatin1Char(' ')).contains(QLatin1String("error error"))
            || events.endsWith(QStringLiteral("error")))
            result.append(QStringLiteral("%1 starts, but: ").arg(starts)
                          + events.join(QLatin1Char(' ')));
        return result;
    }

    Scene scene;
    std::unique_ptr<CaptureAudioThread> worker = std::make_unique<CaptureAudioThread>();
    QList<IAudioClient *> clients;
    // Received in this thread, in the order of their emission.
    QObject receiver;
    QList<QByteArray> blocks;
    QList<bool> stops;
    QList<HRESULT> errors;
    QStringList events; ///< "error" and "stoped"
    int starts = 0;
};

} // namespace

class TestCaptureAudioThread : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void metaObjectHasTheSignatures();
    void textsOfASession_data();
    void textsOfASession();
    void blocksAreEmittedBeforeTheBufferIsReturned_data();
    void blocksAreEmittedBeforeTheBufferIsReturned();
    void blockAlignFourPassesPacketsThrough();
    void monoFloatIsPassedThroughToo();
    void sixChannelFloatKeepsTheFirstTwo();
    void packetIsOneBlock();
    void unreadableMixFormatMeansStereo16();
    void silentFlagIsNotExamined();
    void nullPacketGivesZeros();
    void packetWithoutFramesGivesAnEmptyBlock();
    void fourHundredEmptyPollsCauseNoRecovery();
    void recoveryAfterFourHundredAndOne();
    void failedRecoveryEndsTheSession();
    void transientPacketSizeErrorIsRetried();
    void transientBufferErrorSkipsThePacket();
    void transientBufferErrorResetsTheEmptyPolls();
    void clearingTheFlagEndsTheSession();
    void invalidatedWhileAsking();
    void invalidatedWhileReading();
    void failedApartment();
    void nullClient();
    void serviceFails();
    void serviceWithoutPointerEmitsASuccessCode();
    void startFails();
    void otherApartmentIsTolerated();
    void secondSessionRunsAfterTheFirst();
    void retiredSessionNeverBegins();
    void retiredSessionLeavesItsLoop();
    void retiredSessionThatFailsReportsNoError();
    void retirementWinsOverTheFlag();
    void forceStopWithoutSessionDoesNothing();
    void forceStopEndsTheSession();
    void errorsPrintAsLongCodes();
    void forceStopTerminatesAHangingThread(); // the last: its cut-off session leaves memory behind

private:
    std::optional<DiagnosticLog> m_diagnostics;
};

void TestCaptureAudioThread::initTestCase()
{
    qRegisterMetaType<IAudioClient *>("IAudioClient*");
    qRegisterMetaType<HRESULT>("HRESULT");
}

void TestCaptureAudioThread::init()
{
    m_diagnostics.emplace();
}

void TestCaptureAudioThread::cleanup()
{
    m_diagnostics.reset();
    failCoInitializeEx(S_OK);
}

void TestCaptureAudioThread::metaObjectHasTheSignatures()
{
    QStringList signatures;
    const QMetaObject &meta = CaptureAudioThread::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(signatures,
             QStringList({QStringLiteral("notifyData(QByteArray)"), QStringLiteral("stoped()"),
                          QStringLiteral("error(HRESULT)"),
                          QStringLiteral("start(IAudioClient*,int)")}));
}

void TestCaptureAudioThread::textsOfASession_data()
{
    QTest::addColumn<int>("blockAlign");
    QTest::addColumn<QStringList>("formatText");
    QTest::newRow("converted") << 8
                               << QStringList(text("[Thread] 需要格式转换: 2ch/32bit/float=true "
                                                   "(blockAlign=8) → 2ch/16bit"));
    QTest::newRow("passed through") << 4 << QStringList();
}

void TestCaptureAudioThread::textsOfASession()
{
    QFETCH(int, blockAlign);
    QFETCH(QStringList, formatText);
    Session session;
    session.scene.audio.setEndlessFrames(kIdA, 1);
    IAudioClient *client = session.client();
    session.scene.log.clear();
    session.start(client, blockAlign);
    QVERIFY(!session.block(0).isEmpty());
    QVERIFY(session.end());
    QVERIFY(waitUntil([&] { return session.scene.log.contains(text("已停止采集")); }));
    QStringList texts = session.scene.log.texts();
    static const QRegularExpression pointer(QStringLiteral("0x[0-9a-f]+"));
    texts.first().replace(pointer, QStringLiteral("0x"));
    QCOMPARE(
        texts,
        QStringList(
            {text("[Thread 1] start() 被调用, pAudioClient =0x blockAlign =%1").arg(blockAlign),
             text("[Thread 2] CoInitialize 完成"), text("[Thread 3] 调用 GetService"),
             text("[Thread 3a] IID_IAudioCaptureClient = c8adbd64"),
             text("[Thread 4] GetService hr = 0"), text("[Thread 5] 调用 Start"),
             text("[Thread 6] Start hr = 0"), text("频谱引擎已启动")})
            + formatText
            + QStringList({text("[Thread] 退出采集循环，准备停止"), text("频谱引擎已停止采集！")}));
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::blocksAreEmittedBeforeTheBufferIsReturned_data()
{
    QTest::addColumn<int>("blockAlign");
    QTest::addColumn<int>("frames");
    QTest::newRow("converted") << 8 << 3;
    QTest::newRow("passed through") << 4 << 3;
    QTest::newRow("empty") << 8 << 0;
}

void TestCaptureAudioThread::blocksAreEmittedBeforeTheBufferIsReturned()
{
    QFETCH(int, blockAlign);
    QFETCH(int, frames);
    Session session;
    for (int i = 0; i < 3; ++i)
        session.scene.audio.push(kIdA, packet(UINT32(frames), QByteArray(frames * 8, '\0')));
    std::atomic<int> early {0};
    std::atomic<int> late {0};
    connect(
        session.worker.get(), &CaptureAudioThread::notifyData, session.worker.get(),
        [&] {
            const FakeAudio &audio = session.scene.audio;
            ++(audio.buffersReturned() < audio.buffersTaken() ? early : late);
        },
        Qt::DirectConnection);
    session.start(session.client(), blockAlign);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 3; }));
    QVERIFY(session.end());
    QCOMPARE(early.load(), 3);
    QCOMPARE(late.load(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::blockAlignFourPassesPacketsThrough()
{
    Session session;
    session.scene.audio.setFormat(kIdA, FakeAudio::plainFormat(WAVE_FORMAT_PCM, 2, 16));
    const QByteArray bytes("\x01\x02\x03\x04\xff\x7f\x00\x80", 8);
    session.scene.audio.push(kIdA, packet(2, bytes));
    IAudioClient *client = session.client();
    const int before = session.scene.audio.calls(FakeCall::GetMixFormat);
    session.start(client, 4);
    QCOMPARE(session.block(0), bytes);
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.calls(FakeCall::GetMixFormat), before);
    QVERIFY(!session.scene.log.contains(text("需要格式转换")));
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::monoFloatIsPassedThroughToo()
{
    Session session;
    session.scene.audio.setFormat(kIdA, FakeAudio::plainFormat(WAVE_FORMAT_IEEE_FLOAT, 1, 32));
    const QByteArray bytes = floats({0.5F, -2.0F});
    session.scene.audio.push(kIdA, packet(2, bytes));
    session.start(session.client(), 4);
    QCOMPARE(session.block(0), bytes);
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::sixChannelFloatKeepsTheFirstTwo()
{
    Session session;
    session.scene.audio.setFormat(kIdA, FakeAudio::floatFormat(6));
    session.scene.audio.push(kIdA, packet(1, floats({1.5F, -1.5F, 1, 1, 1, 1})));
    session.start(session.client(), 24);
    QCOMPARE(session.block(0), QByteArray("\xff\x7f\x01\x80", 4));
    QVERIFY(session.end());
    QVERIFY(session.scene.log.contains(
        text("[Thread] 需要格式转换: 6ch/32bit/float=true (blockAlign=24) → 2ch/16bit")));
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::packetIsOneBlock()
{
    Session session;
    for (const UINT32 frames : {7U, 480U, 1U})
        session.scene.audio.push(kIdA, packet(frames, QByteArray(int(frames) * 8, '\0')));
    session.start(session.client(), 8);
    QCOMPARE(session.block(0).size(), 28);
    QCOMPARE(session.block(1).size(), 1920);
    QCOMPARE(session.block(2).size(), 4);
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::unreadableMixFormatMeansStereo16()
{
    for (const FakeFault fault : {FakeFault {E_FAIL}, FakeFault {S_OK, true}}) {
        Session session;
        const QByteArray bytes("\x11\x22\x33\x44\x55\x66\x77\x08", 8);
        session.scene.audio.push(kIdA, packet(1, bytes));
        IAudioClient *client = session.client();
        session.scene.audio.fail(FakeCall::GetMixFormat, fault);
        session.start(client, 8);
        QCOMPARE(session.block(0), bytes.left(4));
        QVERIFY(session.end());
        QVERIFY(session.scene.log.contains(text("[Thread] 需要格式转换: 2ch/16bit/float=false")));
        VERIFY_NOTHING_LEFT(session);
    }
}

void TestCaptureAudioThread::silentFlagIsNotExamined()
{
    Session session;
    FakePacket loud = packet(1, floats({1.0F, 1.0F}));
    loud.flags = AUDCLNT_BUFFERFLAGS_SILENT;
    session.scene.audio.push(kIdA, loud);
    session.start(session.client(), 8);
    QCOMPARE(session.block(0), QByteArray("\xff\x7f\xff\x7f", 4));
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::nullPacketGivesZeros()
{
    Session session;
    FakePacket loud = packet(2, floats({1, 1, 1, 1}));
    session.scene.audio.push(kIdA, loud);
    FakePacket null = packet(2, {});
    null.nullData = true;
    session.scene.audio.push(kIdA, null);
    session.start(session.client(), 8);
    QCOMPARE(session.block(1), QByteArray(8, '\0'));
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::packetWithoutFramesGivesAnEmptyBlock()
{
    Session session;
    session.scene.audio.push(kIdA, packet(0, {}));
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 1; }));
    QVERIFY(session.block(0).isEmpty());
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.buffersReturned(), 1);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::fourHundredEmptyPollsCauseNoRecovery()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        // The 400th poll is empty too, the 401st finds a packet.
        if (session.scene.audio.calls(FakeCall::GetNextPacketSize) == 400)
            session.scene.audio.push(kIdA, packet(1, QByteArray(8, '\0')));
    });
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 1; }));
    QVERIFY(session.scene.audio.calls(FakeCall::GetNextPacketSize) >= 401);
    QVERIFY(!session.scene.log.contains(text("秒无数据")));
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.calls(FakeCall::Stop), 1); // the end's
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::recoveryAfterFourHundredAndOne()
{
    Session session;
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.scene.log.contains(text("恢复成功")); }));
    QVERIFY(session.end());
    QVERIFY(session.scene.log.inOrder({text("[Thread] 2秒无数据(2秒)，尝试 Stop/Start 恢复"),
                                       text("[Thread] Stop/Start 恢复成功")}));
    QList<FakeCallRecord> calls = session.scene.audio.records();
    int polls = 0;
    while (calls.first().call != FakeCall::Stop)
        polls += calls.takeFirst().call == FakeCall::GetNextPacketSize ? 1 : 0;
    QCOMPARE(polls, 401);
    QCOMPARE(int(calls.at(1).call), int(FakeCall::Start));
    QVERIFY(calls.at(1).atMs - calls.at(0).atMs >= 19);
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::failedRecoveryEndsTheSession()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::Start, {E_FAIL}, 2);
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(session.scene.log.inOrder({text("尝试 Stop/Start 恢复"),
                                       text("[Thread] 退出采集循环，准备停止"),
                                       text("频谱引擎已停止采集！")}));
    QCOMPARE(session.errors.size(), 0);
    QCOMPARE(session.scene.audio.calls(FakeCall::Stop), 2);
    QVERIFY(session.worker->isRunning()); // set until the next clear
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("stoped")}));
}

void TestCaptureAudioThread::transientPacketSizeErrorIsRetried()
{
    Session session;
    session.scene.audio.push(kIdA, packet(1, QByteArray(8, '\0')));
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_SERVICE_NOT_RUNNING}, 1, 3);
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 1; }));
    QCOMPARE(session.scene.log.count(
                 text("[Thread Error] GetNextPacketSize 失败, hr = ffffffff88890010")),
             3);
    QVERIFY(session.end());
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::transientBufferErrorSkipsThePacket()
{
    Session session;
    session.scene.audio.push(kIdA, packet(1, QByteArray(8, '\0')));
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetBuffer, {AUDCLNT_E_BUFFER_ERROR}, 1, 2);
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 1; }));
    QCOMPARE(session.scene.log.count(
                 text("[Thread Error] GetBuffer 瞬态错误, hr =ffffffff88890018，跳过")),
             2);
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.calls(FakeCall::ReleaseBuffer), 1);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::transientBufferErrorResetsTheEmptyPolls()
{
    // Without the reset the 401st empty poll would come during this test.
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetBuffer, {AUDCLNT_E_BUFFER_ERROR}, 1, 1);
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        const int polls = session.scene.audio.calls(FakeCall::GetNextPacketSize);
        if (polls == 300)
            session.scene.audio.setEndlessFrames(kIdA, 1);
        else if (polls == 301)
            session.scene.audio.setEndlessFrames(kIdA, 0);
    });
    session.start(client, 8);
    QVERIFY(
        waitUntil([&] { return session.scene.audio.calls(FakeCall::GetNextPacketSize) >= 600; }));
    QVERIFY(session.scene.log.contains(text("瞬态错误")));
    QVERIFY(!session.scene.log.contains(text("秒无数据")));
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::clearingTheFlagEndsTheSession()
{
    Session session;
    session.start(session.client(), 8);
    QVERIFY(session.end());
    QVERIFY(
        session.scene.log.inOrder({text("频谱引擎已启动"), text("[Thread] 退出采集循环，准备停止"),
                                   text("频谱引擎已停止采集！")}));
    QCOMPARE(DiagnosticLog::lines(), QStringList({text("采集线程退出循环")}));
    QCOMPARE(session.scene.audio.calls(FakeCall::Stop), 1);
    QTest::qWait(50);
    QCOMPARE(session.stops.size(), 1);
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("stoped")}));
}

void TestCaptureAudioThread::invalidatedWhileAsking()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(session.scene.log.inOrder(
        {text("[Thread Error] GetNextPacketSize 失败, hr = ffffffff88890004"),
         text("[Thread Error] 设备已失效，停止采集"), text("[Thread] 退出采集循环，准备停止")}));
    QCOMPARE(DiagnosticLog::lines(),
             QStringList({text("采集线程: GetNextPacketSize DEVICE_INVALIDATED"),
                          text("采集线程退出循环")}));
    QCOMPARE(session.errors.size(), 0);
    QVERIFY(session.worker->isRunning());
    QCOMPARE(session.scene.audio.calls(FakeCall::GetNextPacketSize), 1);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("stoped")}));
}

void TestCaptureAudioThread::invalidatedWhileReading()
{
    Session session;
    session.scene.audio.setEndlessFrames(kIdA, 1);
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetBuffer, {AUDCLNT_E_DEVICE_INVALIDATED});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(session.scene.log.contains(text("[Thread Error] GetBuffer 设备失效，停止采集")));
    QVERIFY(!session.scene.log.contains(text("瞬态错误")));
    QCOMPARE(
        DiagnosticLog::lines(),
        QStringList({text("采集线程: GetBuffer DEVICE_INVALIDATED"), text("采集线程退出循环")}));
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("stoped")}));
}

void TestCaptureAudioThread::failedApartment()
{
    Session session;
    IAudioClient *client = session.client();
    if (!failCoInitializeEx(E_OUTOFMEMORY))
        QSKIP("this host's CoInitializeEx cannot be made to fail");
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    failCoInitializeEx(S_OK);
    QCOMPARE(session.errors, QList<HRESULT> {E_OUTOFMEMORY});
    QVERIFY(session.scene.log.contains(
        text("[Thread Error] CoInitializeEx 失败, hr = ffffffff8007000e")));
    QVERIFY(!session.scene.log.contains(text("[Thread 2]")));
    QCOMPARE(session.scene.audio.calls(FakeCall::GetService), 0);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("error"), text("stoped")}));
}

void TestCaptureAudioThread::nullClient()
{
    Session session;
    session.start(nullptr, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 1);
    QCOMPARE(session.errors.first(), E_POINTER);
    QVERIFY(session.scene.log.contains(text("[Thread Error] pAudioClient 为空指针")));
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("error"), text("stoped")}));
}

void TestCaptureAudioThread::serviceFails()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetService, {AUDCLNT_E_DEVICE_INVALIDATED});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 1);
    QCOMPARE(session.errors.first(), AUDCLNT_E_DEVICE_INVALIDATED);
    QVERIFY(session.scene.log.inOrder({text("[Thread 3a] IID_IAudioCaptureClient = c8adbd64"),
                                       text("[Thread 4] GetService hr = ffffffff88890004"),
                                       text("GetService 失败，无法获取 IAudioCaptureClient")}));
    QCOMPARE(session.scene.audio.calls(FakeCall::Start), 0);
    QVERIFY(!session.worker->isRunning());
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("error"), text("stoped")}));
}

void TestCaptureAudioThread::serviceWithoutPointerEmitsASuccessCode()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetService, {S_OK, true});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 1);
    QCOMPARE(session.errors.first(), S_OK);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("error"), text("stoped")}));
}

void TestCaptureAudioThread::startFails()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::Start, {E_FAIL});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 1);
    QCOMPARE(session.errors.first(), E_FAIL);
    QVERIFY(session.scene.log.inOrder({text("[Thread 5] 调用 Start"),
                                       text("[Thread 6] Start hr = ffffffff80004005"),
                                       text("Start 失败, hr = ffffffff80004005")}));
    QVERIFY(!session.worker->isRunning());
    QCOMPARE(session.scene.audio.calls(FakeCall::Stop), 0);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("error"), text("stoped")}));
}

void TestCaptureAudioThread::otherApartmentIsTolerated()
{
    // Run on a thread that is in the other kind of apartment already.
    Session session;
    IAudioClient *client = session.client();
    onForeignThread([&] {
        session.scene.audio.enter();
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        std::thread stopper([&] {
            while (!session.worker->isRunning())
                QThread::msleep(1);
            session.worker->clearRunning();
        });
        ++session.starts;
        session.worker->start(client, 8);
        stopper.join();
        CoUninitialize();
    });
    QVERIFY(session.scene.log.inOrder(
        {text("[Thread Error] CoInitializeEx 失败, hr = ffffffff80010106"),
         text("[Thread 2] CoInitialize 完成"), text("频谱引擎已启动")}));
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::secondSessionRunsAfterTheFirst()
{
    Session session;
    IAudioClient *first = session.client();
    IAudioClient *second = session.client();
    session.start(first, 8);
    session.start(second, 8);
    QVERIFY(session.end());
    session.stops.clear();
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.calls(FakeCall::Start), 2);
    QCOMPARE(session.scene.audio.violations(), QStringList());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::retiredSessionNeverBegins()
{
    Session session;
    session.worker->retireSessions(1);
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 0);
    QCOMPARE(session.scene.audio.calls(FakeCall::GetService), 0);
    session.start(session.client(), 8); // number 2 is not retired
    QVERIFY(waitUntil([&] { return session.worker->isRunning(); }));
    session.stops.clear();
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::retiredSessionLeavesItsLoop()
{
    Session session;
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.worker->isRunning(); }));
    session.worker->retireSessions(1);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(!session.worker->isRunning());
    QCOMPARE(session.errors.size(), 0);
    QVERIFY(session.scene.log.contains(text("[Thread] 退出采集循环，准备停止")));
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::retiredSessionThatFailsReportsNoError()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::Start, {AUDCLNT_E_DEVICE_INVALIDATED});
    session.scene.audio.setHook(FakeCall::Start, [&] { session.worker->retireSessions(1); });
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::retirementWinsOverTheFlag()
{
    // Retired and cleared while the client starts: the session must not set the flag for good.
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.setHook(FakeCall::Start, [&] {
        session.worker->retireSessions(1);
        session.worker->clearRunning();
    });
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(!session.worker->isRunning());
    QCOMPARE(session.scene.audio.calls(FakeCall::GetNextPacketSize), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::forceStopWithoutSessionDoesNothing()
{
    Session session;
    session.worker->forceStop();
    QVERIFY(!session.scene.log.contains(text("forceStop")));
    session.start(session.client(), 8); // the thread still lives
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::forceStopEndsTheSession()
{
    Session session;
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.worker->isRunning(); }));
    session.worker->forceStop();
    QVERIFY(session.scene.log.contains(text("[Thread] forceStop 被调用")));
    QVERIFY(!session.scene.log.contains(text("等待超时")));
    QVERIFY(!session.worker->thread()->isRunning());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::forceStopTerminatesAHangingThread()
{
#ifdef TONEWELL_SANITIZED
    QSKIP("a thread that is ended by force leaves its event loop behind, which sanitizers report");
#endif
    Session session;
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.worker->isRunning(); }));
    std::atomic<bool> hanging {false};
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        hanging = true;
        QThread::sleep(60); // ended by force
    });
    QVERIFY(waitUntil([&] { return hanging.load(); }));
    session.worker->forceStop();
    QVERIFY(session.scene.log.contains(text("[Thread] forceStop 等待超时")));
    QVERIFY(!session.worker->thread()->isRunning());
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, {});
}

void TestCaptureAudioThread::errorsPrintAsLongCodes()
{
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetService, {E_NOINTERFACE});
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QVERIFY(session.scene.log.contains(text("GetService hr = ffffffff80004002")));
    VERIFY_NOTHING_LEFT(session);
}

QTEST_GUILESS_MAIN(TestCaptureAudioThread)
#include "tst_captureaudiothread.moc"
