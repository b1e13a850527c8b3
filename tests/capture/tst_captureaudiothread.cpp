// The worker's sessions: how they begin, end, fail and are retired.
#include "tests/capture/workersession.h"
#include "tests/support/virtualmain.h"

#include <QElapsedTimer>
#include <QRegularExpression>

class TestCaptureAudioThread : public WorkerTest {
    Q_OBJECT

private Q_SLOTS:
    void metaObjectHasTheSignatures();
    void textsOfASession_data();
    void textsOfASession();
    void clearingTheFlagEndsTheSession();
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
    void aThreadThatIsLateToEndIsLeftInPeace();
    void aThreadThatDoesNotEndIsLeftBehind();
    void aSessionIsNotCutOffOutsideAnAudioCall();
    void forceStopTerminatesAHangingThread(); // from here on: cut-off sessions leave memory behind
    void aSessionThatCannotBeCutOffIsLeftBehind();
};

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
    spin(50);
    QCOMPARE(session.stops.size(), 1);
    QCOMPARE(session.errors.size(), 0);
    VERIFY_NOTHING_LEFT(session);
    QCOMPARE(session.events, QStringList({text("stoped")}));
}

void TestCaptureAudioThread::failedApartment()
{
    Session session;
    IAudioClient *client = session.client();
    failCoInitializeEx(E_OUTOFMEMORY);
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
        VirtualThread stopper([&] {
            while (!session.worker->isRunning())
                sleepMs(1);
            session.worker->clearRunning();
        });
        ++session.starts;
        session.worker->sessions().queue(client);
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
    IAudioClient *client = session.client();
    session.worker->sessions().queue(client);
    session.worker->sessions().retire();
    session.invoke(client, 8);
    QVERIFY(waitUntil([&] { return session.stops.size() == 1; }));
    QCOMPARE(session.errors.size(), 0);
    QCOMPARE(session.scene.audio.calls(FakeCall::GetService), 0);
    session.start(session.client(), 8); // the next one is not retired
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
    session.worker->sessions().retire();
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
    session.scene.audio.setHook(FakeCall::Start, [&] { session.worker->sessions().retire(); });
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
        session.worker->sessions().retire();
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

void TestCaptureAudioThread::forceStopTerminatesAHangingThread()
{
#ifdef TONEWELL_SANITIZED
    QSKIP("a thread that is ended by force leaves its event loop behind, which sanitizers report",
          "");
#endif
    const RealTime realTime; // the thread is ended wherever it is
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

void TestCaptureAudioThread::aThreadThatIsLateToEndIsLeftInPeace()
{
    // Terminated while it ends, the process would abort.
    Session session;
    QObject::connect(
        session.worker->thread(), &QThread::finished, session.worker->thread(),
        [] { sleepMs(1200); }, Qt::DirectConnection);
    session.start(session.client(), 8);
    QVERIFY(session.end());
    const quint64 beforeMs = tickCountMs();
    session.worker.reset();
    QCOMPARE(tickCountMs() - beforeMs, 1200ULL);
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::aThreadThatDoesNotEndIsLeftBehind()
{
    Session session;
    std::atomic<bool> mayEnd {false};
    QThread *const thread = session.worker->thread();
    QObject::connect(
        thread, &QThread::finished, thread,
        [&] {
            while (!mayEnd)
                sleepMs(1);
        },
        Qt::DirectConnection);
    session.start(session.client(), 8);
    QVERIFY(session.end());
    const quint64 beforeMs = tickCountMs();
    session.worker.reset();
    QCOMPARE(tickCountMs() - beforeMs, 1500ULL);
    mayEnd = true;
    QVERIFY(waitForThread(*thread, 20000));
    delete thread;
    VERIFY_NOTHING_LEFT(session);
}

void TestCaptureAudioThread::aSessionIsNotCutOffOutsideAnAudioCall()
{
#ifdef TONEWELL_SANITIZED
    QSKIP("a thread that is ended by force leaves its event loop behind, which sanitizers report",
          "");
#endif
    // Cut off there, in a queue of events or in the heap, the thread could take a lock along.
    const RealTime realTime;
    Session session;
    const QPointer<QThread> thread = session.worker->thread();
    std::atomic<bool> hanging {false};
    std::atomic<bool> mayReturn {false};
    std::atomic<bool> returned {false};
    QObject::connect(
        session.worker.get(), &CaptureAudioThread::notifyData, thread,
        [&] {
            hanging = true;
            while (!mayReturn)
                QThread::msleep(1);
            returned = true;
        },
        Qt::DirectConnection);
    session.scene.audio.setEndlessFrames(kIdA, 1);
    session.start(session.client(), 8);
    QVERIFY(waitUntil([&] { return hanging.load(); }));
    session.worker->sessions().retire();
    session.worker->forceStop();
    QVERIFY(session.scene.log.contains(text("[Thread] forceStop 等待超时")));
    QVERIFY(!thread->isFinished());
    const int calls = session.scene.audio.calls(FakeCall::ReleaseBuffer);
    mayReturn = true;
    QVERIFY(thread->wait(20000));
    QVERIFY(returned);
    QCOMPARE(session.scene.audio.calls(FakeCall::ReleaseBuffer), calls); // the next point
    session.worker.reset();
    QCoreApplication::sendPostedEvents(&session.receiver);
    QCOMPARE(session.stops.size(), 0);
}

void TestCaptureAudioThread::aSessionThatCannotBeCutOffIsLeftBehind()
{
#ifdef TONEWELL_SANITIZED
    QSKIP("a session that is cut off leaves its client behind, which sanitizers report", "");
#endif
    // It holds its thread without waiting for anything, and comes back after the worker has gone.
    const RealTime realTime;
    Session session;
    const QPointer<QThread> thread = session.worker->thread();
    IAudioClient *const client = session.client();
    const auto references = [client] {
        client->AddRef();
        return client->Release();
    };
    session.start(client, 8);
    QVERIFY(waitUntil([&] { return session.worker->isRunning(); }));
    std::atomic<bool> hanging {false};
    std::atomic<bool> mayReturn {false};
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, [&] {
        hanging = true;
        while (!mayReturn)
            std::this_thread::yield();
    });
    QVERIFY(waitUntil([&] { return hanging.load(); }));
    const ULONG before = references();
    QElapsedTimer clock;
    clock.start();
    session.worker->sessions().retire();
    session.worker->forceStop();
    session.worker.reset();
    QVERIFY2(clock.elapsed() < 20000, qPrintable(QString::number(clock.elapsed())));
    if (!thread) { // some hosts end a thread wherever it is
        session.scene.audio.setHook(FakeCall::GetNextPacketSize, {});
        QCoreApplication::sendPostedEvents(&session.receiver);
        QCOMPARE(session.stops.size(), 0);
        return;
    }
    QVERIFY(!thread->isFinished());
    QCOMPARE(references(), before); // it may still need its client
    mayReturn = true;
    QVERIFY(thread->wait(20000));
    delete thread;
    QCoreApplication::sendPostedEvents(&session.receiver);
    QCOMPARE(session.stops.size(), 0); // it ended at once
    session.scene.audio.setHook(FakeCall::GetNextPacketSize, {});
}

VIRTUAL_TIME_MAIN(TestCaptureAudioThread)
#include "tst_captureaudiothread.moc"
