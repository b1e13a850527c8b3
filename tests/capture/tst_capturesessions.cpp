// The life of the worker's sessions, without a worker and without an audio system.
#include "capture/capturesessions.h"

#include <memory>
#include <QtTest>
#include <thread>

namespace {

/// A client that knows nothing but its references, one of which is the test's.
class CountedClient final : public IAudioClient {
public:
    int references() const { return m_references; }

    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++m_references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--m_references); }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE, DWORD, REFERENCE_TIME, REFERENCE_TIME,
                                         const WAVEFORMATEX *, LPCGUID) override
    {
        return unexpected();
    }
    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32 *) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME *) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32 *) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX *,
                                                WAVEFORMATEX **) override
    {
        return unexpected();
    }
    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX **) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME *, REFERENCE_TIME *) override
    {
        return unexpected();
    }
    HRESULT STDMETHODCALLTYPE Start() override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE Stop() override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE Reset() override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE) override { return unexpected(); }
    HRESULT STDMETHODCALLTYPE GetService(REFIID, void **) override { return unexpected(); }

private:
    static HRESULT unexpected()
    {
        qFatal("the sessions only count references");
        return E_FAIL;
    }

    std::atomic<int> m_references {1};
};

/// A worker's run flag and its sessions, and clients for three of them.
struct Worker {
    std::atomic<qint32> running {0};
    CountedClient clients[3];
    CaptureSessions sessions {running};

    /// Who clears the flag from outside, as a stop does.
    void clear() { running = 0; }
};

QList<int> references(const Worker &worker)
{
    return {worker.clients[0].references(), worker.clients[1].references(),
            worker.clients[2].references()};
}

} // namespace

class TestCaptureSessions : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void lifeOfASession();
    void loopThatEndsByItselfLeavesTheFlag();
    void clearEndsTheLoopOfOneSession();
    void retiredBeforeItBegins();
    void retiredWhileItStarts();
    void retiredWhileItRuns();
    void retirementReachesWhatIsQueuedAndNoMore();
    void repeatedRetirementChangesNothing();
    void setThenRetiredThenCleared();
    void retiredThenSetThenCleared();
    void retiredThenClearedThenSet();
    void retiredSessionIsNotSuperseded();
    void stopOfASupersededSessionIsKnown();
    void supersededSessionsAreRetired();
    void nothingToSupersede();
    void sessionThatNeverRan();
    void eachSessionHasAReferenceOfItsOwn();
    void endWithoutAQueuedSessionDoesNothing();
    void retirementIsSeenOnTheWorkersThread();
};

void TestCaptureSessions::lifeOfASession()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QCOMPARE(worker.clients[0].references(), 2);
    QVERIFY(!worker.sessions.mayRun());

    QVERIFY(worker.sessions.begin());
    QVERIFY(!worker.sessions.isRetired());
    QVERIFY(!worker.sessions.mayRun()); // not before the client runs
    QCOMPARE(worker.running.load(), 0);
    worker.sessions.setRunning();
    QCOMPARE(worker.running.load(), 1);
    QVERIFY(worker.sessions.mayRun());

    worker.sessions.leaveLoop();
    QCOMPARE(worker.clients[0].references(), 2);
    worker.sessions.end();
    QCOMPARE(worker.clients[0].references(), 1);
    QVERIFY(!worker.sessions.nextIsSuperseded());
    QVERIFY(!worker.sessions.stopArrived());
}

void TestCaptureSessions::loopThatEndsByItselfLeavesTheFlag()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.setRunning();
    worker.sessions.leaveLoop();
    worker.sessions.end();
    QCOMPARE(worker.running.load(), 1);
}

void TestCaptureSessions::clearEndsTheLoopOfOneSession()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.queue(&worker.clients[1]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.setRunning();
    worker.clear();
    QVERIFY(!worker.sessions.mayRun());
    QVERIFY(!worker.sessions.isRetired());
    worker.sessions.leaveLoop();
    worker.sessions.end();

    QVERIFY(worker.sessions.begin()); // a clear alone does not reach the one that is queued
    worker.sessions.setRunning();
    QVERIFY(worker.sessions.mayRun());
}

void TestCaptureSessions::retiredBeforeItBegins()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.retire();
    QVERIFY(!worker.sessions.begin());
    QVERIFY(worker.sessions.isRetired());
    worker.sessions.end();
    QCOMPARE(worker.clients[0].references(), 1);
    QCOMPARE(worker.running.load(), 0);
}

void TestCaptureSessions::retiredWhileItStarts()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.retire();
    QVERIFY(worker.sessions.isRetired()); // reports no error when it fails to start
    worker.sessions.setRunning();
    QCOMPARE(worker.running.load(), 0);
    QVERIFY(!worker.sessions.mayRun());
}

void TestCaptureSessions::retiredWhileItRuns()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.setRunning();
    worker.sessions.retire();
    QCOMPARE(worker.running.load(), 1); // the session itself clears it
    QVERIFY(!worker.sessions.mayRun());
    worker.sessions.leaveLoop();
    QCOMPARE(worker.running.load(), 0);
}

void TestCaptureSessions::retirementReachesWhatIsQueuedAndNoMore()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.queue(&worker.clients[1]);
    worker.sessions.retire();
    worker.sessions.queue(&worker.clients[2]);
    for (const bool begins : {false, false, true}) {
        QCOMPARE(worker.sessions.begin(), begins);
        QCOMPARE(worker.sessions.isRetired(), !begins);
        if (!begins)
            worker.sessions.end();
    }
    worker.sessions.setRunning();
    QVERIFY(worker.sessions.mayRun());
    QCOMPARE(references(worker), QList<int>({1, 1, 2}));
}

void TestCaptureSessions::repeatedRetirementChangesNothing()
{
    Worker worker;
    worker.sessions.retire(); // nothing is queued
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.retire();
    worker.sessions.retire();
    worker.sessions.end();
    worker.sessions.queue(&worker.clients[1]);
    QVERIFY(worker.sessions.begin());
}

void TestCaptureSessions::setThenRetiredThenCleared()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.setRunning();
    worker.sessions.retire();
    worker.clear();
    QVERIFY(!worker.sessions.mayRun());
    worker.sessions.leaveLoop();
    QCOMPARE(worker.running.load(), 0);
}

void TestCaptureSessions::retiredThenSetThenCleared()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.retire();
    worker.sessions.setRunning();
    QCOMPARE(worker.running.load(), 0); // the session sees itself retired
    worker.clear();
    QVERIFY(!worker.sessions.mayRun());
    worker.sessions.leaveLoop();
    QCOMPARE(worker.running.load(), 0);
}

void TestCaptureSessions::retiredThenClearedThenSet()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.retire();
    worker.clear();
    worker.sessions.setRunning();
    QCOMPARE(worker.running.load(), 0); // at once, for who asks whether capture runs
    QVERIFY(!worker.sessions.mayRun());
    worker.sessions.leaveLoop();
    QCOMPARE(worker.running.load(), 0);
}

void TestCaptureSessions::retiredSessionIsNotSuperseded()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.retire();
    QVERIFY(!worker.sessions.nextIsSuperseded());
    QVERIFY(!worker.sessions.stopArrived());
}

void TestCaptureSessions::stopOfASupersededSessionIsKnown()
{
    // Two are taken over, and their stops arrive only when the third is queued.
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.queue(&worker.clients[1]);
    worker.sessions.supersede();
    worker.sessions.queue(&worker.clients[2]);
    for (int i = 0; i < 2; ++i) {
        QVERIFY(worker.sessions.nextIsSuperseded());
        QVERIFY(worker.sessions.nextIsSuperseded()); // asking counts nothing
        QVERIFY(worker.sessions.stopArrived());
    }
    QVERIFY(!worker.sessions.nextIsSuperseded());
    QVERIFY(!worker.sessions.stopArrived());
}

void TestCaptureSessions::supersededSessionsAreRetired()
{
    Worker worker;
    worker.sessions.queue(&worker.clients[0]);
    worker.sessions.queue(&worker.clients[1]);
    QVERIFY(worker.sessions.begin());
    worker.sessions.setRunning();
    worker.sessions.supersede();
    QVERIFY(!worker.sessions.mayRun());
    worker.sessions.leaveLoop();
    QCOMPARE(worker.running.load(), 0);
    worker.sessions.end();
    QVERIFY(!worker.sessions.begin());
}

void TestCaptureSessions::nothingToSupersede()
{
    // The first start of all, and one whose old session's stop has arrived already.
    Worker worker;
    worker.sessions.supersede();
    worker.sessions.queue(&worker.clients[0]);
    QVERIFY(!worker.sessions.nextIsSuperseded());
    QVERIFY(worker.sessions.begin());
    worker.sessions.end();
    QVERIFY(!worker.sessions.stopArrived());
    worker.sessions.supersede();
    worker.sessions.queue(&worker.clients[1]);
    QVERIFY(worker.sessions.begin());
    QVERIFY(!worker.sessions.nextIsSuperseded());
    QVERIFY(!worker.sessions.stopArrived());
}

void TestCaptureSessions::sessionThatNeverRan()
{
    std::atomic<qint32> running {0};
    CountedClient ran;
    CountedClient cutOff;
    CountedClient queued;
    {
        CaptureSessions sessions(running);
        for (CountedClient *client : {&ran, &cutOff, &queued})
            sessions.queue(client);
        sessions.begin();
        sessions.end();
        sessions.begin(); // and the worker's thread is terminated
        QCOMPARE(ran.references(), 1);
        QCOMPARE(cutOff.references(), 2);
        QCOMPARE(queued.references(), 2);
    }
    QCOMPARE(ran.references(), 1);
    QCOMPARE(cutOff.references(), 1);
    QCOMPARE(queued.references(), 1);
}

void TestCaptureSessions::eachSessionHasAReferenceOfItsOwn()
{
    // In the order of the queue, also when two sessions share a client.
    Worker worker;
    for (const int client : {0, 0, 1})
        worker.sessions.queue(&worker.clients[client]);
    QCOMPARE(references(worker), QList<int>({3, 2, 1}));
    for (const QList<int> &left :
         {QList<int>({2, 2, 1}), QList<int>({1, 2, 1}), QList<int>({1, 1, 1})}) {
        worker.sessions.begin();
        worker.sessions.end();
        QCOMPARE(references(worker), left);
    }
}

void TestCaptureSessions::endWithoutAQueuedSessionDoesNothing()
{
    Worker worker;
    worker.sessions.end();
    worker.sessions.queue(&worker.clients[0]);
    QCOMPARE(worker.clients[0].references(), 2);
}

void TestCaptureSessions::retirementIsSeenOnTheWorkersThread()
{
    // Many sessions in a loop each, stopped from another thread: each ends, and the last clear
    // wins.
    constexpr int kSessions = 2000;
    Worker worker;
    std::atomic<int> ended {0};
    std::atomic<int> asked {0};
    std::thread thread([&] {
        for (int i = 0; i < kSessions; ++i) {
            while (asked.load() <= i)
                std::this_thread::yield();
            if (worker.sessions.begin()) {
                worker.sessions.setRunning();
                while (worker.sessions.mayRun())
                    std::this_thread::yield();
                worker.sessions.leaveLoop();
            }
            worker.sessions.end();
            ++ended;
        }
    });
    int stillSet = 0;
    for (int i = 0; i < kSessions; ++i) {
        worker.sessions.queue(&worker.clients[0]);
        ++asked;
        worker.sessions.retire(); // somewhere between the queue and the loop
        worker.clear();
        while (ended.load() <= i)
            std::this_thread::yield();
        stillSet += worker.running.load() != 0 ? 1 : 0;
    }
    thread.join();
    QCOMPARE(stillSet, 0);
    QCOMPARE(worker.clients[0].references(), 1);
}

QTEST_GUILESS_MAIN(TestCaptureSessions)
#include "tst_capturesessions.moc"
