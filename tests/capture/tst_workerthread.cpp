// Where force ends a worker's thread, and where it does not.
#include "capture/workerthread.h"
#include "tests/support/waiting.h"

#include <functional>
#include <QtTest>
#include <thread>

namespace {

constexpr unsigned long kEndMs = 20000; // far more than a thread needs to end

/// A worker's thread with a body of the test's.
class Runner : public WorkerThread {
public:
    explicit Runner(std::function<void()> body)
        : m_body(std::move(body))
    {
        start();
    }
    ~Runner() override { wait(); }

protected:
    void run() override { m_body(); }

private:
    const std::function<void()> m_body;
};

} // namespace

class TestWorkerThread : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aCallGivesItsCode();
    void aHangingCallIsCutOff();
    void aCallThatReturnsIsTheLast();
    void elsewhereItGoesOnToTheNextPoint_data();
    void elsewhereItGoesOnToTheNextPoint();
    void aThreadWithoutRequestPassesAllPoints();
    void otherThreadsAreNotConcerned();
};

void TestWorkerThread::aCallGivesItsCode()
{
    HRESULT hr = S_OK;
    Runner thread([&] { hr = WorkerThread::terminable([] { return E_OUTOFMEMORY; }); });
    QVERIFY(thread.wait(kEndMs));
    QCOMPARE(hr, E_OUTOFMEMORY);
}

void TestWorkerThread::aHangingCallIsCutOff()
{
    std::atomic<bool> calling {false};
    std::atomic<bool> after {false};
    Runner thread([&] {
        WorkerThread::terminable([&] {
            calling = true;
            QThread::sleep(3600);
            return S_OK;
        });
        after = true;
    });
    QVERIFY(waitUntil([&] { return calling.load(); }));
    thread.terminateAtAPoint();
    thread.terminateAtAPoint(); // a second request changes nothing
    QVERIFY(thread.wait(kEndMs));
    QVERIFY(!after);
}

void TestWorkerThread::aCallThatReturnsIsTheLast()
{
    // Nothing in the call lets force take effect, on hosts where that needs such a place.
    std::atomic<bool> calling {false};
    std::atomic<bool> mayReturn {false};
    std::atomic<bool> after {false};
    Runner thread([&] {
        WorkerThread::terminable([&] {
            calling = true;
            while (!mayReturn)
                std::this_thread::yield();
            return S_OK;
        });
        after = true;
    });
    QVERIFY(waitUntil([&] { return calling.load(); }));
    thread.terminateAtAPoint();
    mayReturn = true;
    QVERIFY(thread.wait(kEndMs));
    QVERIFY(!after);
}

void TestWorkerThread::elsewhereItGoesOnToTheNextPoint_data()
{
    QTest::addColumn<bool>("call");
    QTest::newRow("a call") << true;
    QTest::newRow("between two steps") << false;
}

void TestWorkerThread::elsewhereItGoesOnToTheNextPoint()
{
    QFETCH(bool, call);
    std::atomic<bool> waiting {false};
    std::atomic<bool> mayGoOn {false};
    std::atomic<bool> wentOn {false};
    std::atomic<bool> after {false};
    Runner thread([&] {
        WorkerThread::terminable([] { return S_OK; });
        waiting = true;
        while (!mayGoOn)
            QThread::msleep(1); // where a terminated thread is cut off
        wentOn = true;
        if (call)
            WorkerThread::terminable([&] {
                after = true;
                return S_OK;
            });
        else
            WorkerThread::endIfTerminated();
        after = true;
    });
    QVERIFY(waitUntil([&] { return waiting.load(); }));
    thread.terminateAtAPoint();
    thread.terminateAtAPoint();
    QVERIFY(!thread.wait(50));
    mayGoOn = true;
    QVERIFY(thread.wait(kEndMs));
    QVERIFY(wentOn);
    QVERIFY(!after);
}

void TestWorkerThread::aThreadWithoutRequestPassesAllPoints()
{
    int calls = 0;
    Runner thread([&] {
        for (int i = 0; i < 1000; ++i) {
            WorkerThread::endIfTerminated();
            WorkerThread::terminable([&] {
                ++calls;
                return S_OK;
            });
        }
    });
    QVERIFY(thread.wait(kEndMs));
    QCOMPARE(calls, 1000);
}

void TestWorkerThread::otherThreadsAreNotConcerned()
{
    HRESULT hr = E_FAIL;
    std::thread thread([&] {
        WorkerThread::endIfTerminated();
        hr = WorkerThread::terminable([] { return S_FALSE; });
    });
    thread.join();
    QCOMPARE(hr, S_FALSE);
}

QTEST_GUILESS_MAIN(TestWorkerThread)
#include "tst_workerthread.moc"
