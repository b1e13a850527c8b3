// How the worker reads: packets, blocks, empty polls, lost devices.
#include "tests/capture/workersession.h"
#include "tests/support/virtualmain.h"

namespace {

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

} // namespace

class TestCaptureAudioThreadReading : public WorkerTest {
    Q_OBJECT

private Q_SLOTS:
    void blocksAreEmittedBeforeTheBufferIsReturned_data();
    void blocksAreEmittedBeforeTheBufferIsReturned();
    void blockAlignFourPassesPacketsThrough();
    void monoFloatIsPassedThroughToo();
    void sixChannelFloatKeepsTheFirstTwo();
    void extensibleCountsAsFloatWhateverItsSubFormat();
    void packetIsOneBlock();
    void onePacketAPass();
    void unreadableMixFormatMeansStereo16();
    void silentFlagIsNotExamined();
    void nullPacketGivesZeros();
    void packetWithoutFramesGivesAnEmptyBlock();
    void fourHundredEmptyPollsCauseNoRecovery();
    void recoveryAfterFourHundredAndOne();
    void failedRecoveryEndsTheSession();
    void transientPacketSizeErrorIsRetried();
    void packetSizeErrorLeavesTheEmptyPolls();
    void transientBufferErrorSkipsThePacket();
    void transientBufferErrorResetsTheEmptyPolls();
    void invalidatedWhileAsking();
    void invalidatedWhileReading();
};

void TestCaptureAudioThreadReading::blocksAreEmittedBeforeTheBufferIsReturned_data()
{
    QTest::addColumn<int>("blockAlign");
    QTest::addColumn<int>("frames");
    QTest::newRow("converted") << 8 << 3;
    QTest::newRow("passed through") << 4 << 3;
    QTest::newRow("empty") << 8 << 0;
}

void TestCaptureAudioThreadReading::blocksAreEmittedBeforeTheBufferIsReturned()
{
    QFETCH(int, blockAlign);
    QFETCH(int, frames);
    Session session;
    for (int i = 0; i < 3; ++i)
        session.scene.audio.push(kIdA,
                                 packet(static_cast<UINT32>(frames), QByteArray(frames * 8, '\0')));
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

void TestCaptureAudioThreadReading::blockAlignFourPassesPacketsThrough()
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

void TestCaptureAudioThreadReading::monoFloatIsPassedThroughToo()
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

void TestCaptureAudioThreadReading::sixChannelFloatKeepsTheFirstTwo()
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

void TestCaptureAudioThreadReading::extensibleCountsAsFloatWhateverItsSubFormat()
{
    Session session;
    WAVEFORMATEXTENSIBLE integers = FakeAudio::floatFormat();
    integers.SubFormat.Data1 = WAVE_FORMAT_PCM;
    session.scene.audio.setFormat(kIdA, integers);
    session.scene.audio.push(kIdA, packet(1, floats({1.0F, -0.5F})));
    session.start(session.client(), 8);
    QCOMPARE(session.block(0), QByteArray("\xff\x7f\x01\xc0", 4)); // 32767 and -16383
    QVERIFY(session.end());
    QVERIFY(session.scene.log.contains(text("[Thread] 需要格式转换: 2ch/32bit/float=true")));
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::packetIsOneBlock()
{
    Session session;
    for (const UINT32 frames : {7U, 480U, 1U})
        session.scene.audio.push(kIdA,
                                 packet(frames, QByteArray(static_cast<int>(frames) * 8, '\0')));
    session.start(session.client(), 8);
    QCOMPARE(session.block(0).size(), 28);
    QCOMPARE(session.block(1).size(), 1920);
    QCOMPARE(session.block(2).size(), 4);
    QVERIFY(session.end());
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::onePacketAPass()
{
    // Packets that wait are taken one by one, each after a sleep and a question of its own.
    Session session;
    for (int i = 0; i < 5; ++i)
        session.scene.audio.push(kIdA, packet(1, QByteArray(8, '\0')));
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.blocks.size() == 5; }));
    QVERIFY(session.end());
    const auto reads = session.scene.audio.records(FakeCall::GetBuffer);
    QCOMPARE(reads.size(), 5);
    for (int i = 1; i < reads.size(); ++i)
        QCOMPARE(reads.at(i).atMs - reads.at(i - 1).atMs, 5LL);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::unreadableMixFormatMeansStereo16()
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

void TestCaptureAudioThreadReading::silentFlagIsNotExamined()
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

void TestCaptureAudioThreadReading::nullPacketGivesZeros()
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

void TestCaptureAudioThreadReading::packetWithoutFramesGivesAnEmptyBlock()
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

void TestCaptureAudioThreadReading::fourHundredEmptyPollsCauseNoRecovery()
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
    QCOMPARE(session.scene.audio.calls(FakeCall::GetNextPacketSize), 401);
    QVERIFY(!session.scene.log.contains(text("秒无数据")));
    QVERIFY(session.end());
    QCOMPARE(session.scene.audio.calls(FakeCall::Stop), 1); // the end's
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::recoveryAfterFourHundredAndOne()
{
    Session session;
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return session.scene.log.count(text("恢复成功")) == 2; }));
    QVERIFY(session.end());
    QVERIFY(session.scene.log.inOrder({text("[Thread] 2秒无数据(2秒)，尝试 Stop/Start 恢复"),
                                       text("[Thread] Stop/Start 恢复成功")}));
    QList<FakeCallRecord> calls = session.scene.audio.records();
    while (calls.first().call != FakeCall::Start)
        calls.removeFirst();
    for (int recovery = 0; recovery < 2; ++recovery) { // the second one counts anew
        int polls = 0;
        qint64 lastMs = calls.takeFirst().atMs;
        while (calls.first().call != FakeCall::Stop) {
            const FakeCallRecord call = calls.takeFirst();
            if (call.call != FakeCall::GetNextPacketSize)
                continue;
            QCOMPARE(call.atMs - lastMs, 5LL);
            lastMs = call.atMs;
            ++polls;
        }
        QCOMPARE(polls, 401);
        QCOMPARE(static_cast<int>(calls.at(0).call), static_cast<int>(FakeCall::Stop));
        QCOMPARE(calls.at(0).atMs - lastMs, 0LL);
        QCOMPARE(static_cast<int>(calls.at(1).call), static_cast<int>(FakeCall::Start));
        QCOMPARE(calls.at(1).atMs - calls.at(0).atMs, 20LL);
        calls.removeFirst();
    }
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::failedRecoveryEndsTheSession()
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

void TestCaptureAudioThreadReading::transientPacketSizeErrorIsRetried()
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

void TestCaptureAudioThreadReading::packetSizeErrorLeavesTheEmptyPolls()
{
    // Three questions fail in the middle: they are no empty polls, and they end no row of them.
    Session session;
    IAudioClient *client = session.client();
    session.scene.audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_SERVICE_NOT_RUNNING}, 200, 3);
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.scene.log.contains(text("恢复成功")); }));
    QVERIFY(session.end());
    QList<FakeCallRecord> calls = session.scene.audio.records();
    int polls = 0;
    while (calls.first().call != FakeCall::Stop)
        polls += calls.takeFirst().call == FakeCall::GetNextPacketSize ? 1 : 0;
    QCOMPARE(polls, 404);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThreadReading::transientBufferErrorSkipsThePacket()
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

void TestCaptureAudioThreadReading::transientBufferErrorResetsTheEmptyPolls()
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

void TestCaptureAudioThreadReading::invalidatedWhileAsking()
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

void TestCaptureAudioThreadReading::invalidatedWhileReading()
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

VIRTUAL_TIME_MAIN(TestCaptureAudioThreadReading)
#include "tst_captureaudiothread_reading.moc"
