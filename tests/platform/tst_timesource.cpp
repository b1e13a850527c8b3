// Real time, as the product has it: nothing stands between it and the host.
#include "platform/patientmutex.h"
#include "platform/timesource.h"

#include <windows.h>
#include <algorithm>
#include <atomic>
#include <QElapsedTimer>
#include <QtTest>
#include <thread>

class TestTimeSource : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nothingStandsInForRealTime() { QVERIFY(!timeSource()); }

    void clockIsTheHosts()
    {
        const quint64 before = GetTickCount64();
        const quint64 now = tickCountMs();
        QVERIFY(before <= now && now <= GetTickCount64());
    }

    void sleepLastsAsLongAsAskedFor()
    {
        QElapsedTimer clock;
        clock.start();
        sleepMs(30);
        QVERIFY(clock.elapsed() >= 29);
    }

    void threadIsStartedAndWaitedFor()
    {
        std::atomic<bool> mayEnd {false};
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            while (!mayEnd)
                QThread::msleep(1);
        }));
        startThread(*thread);
        QVERIFY(!waitForThread(*thread, 20));
        QVERIFY(thread->isRunning());
        mayEnd = true;
        QVERIFY(waitForThread(*thread, 60000));
        QVERIFY(thread->isFinished());
    }

    void conditionIsWaitedFor()
    {
        std::mutex mutex;
        std::condition_variable condition;
        bool ready = false;
        std::thread other([&] {
            const std::lock_guard<std::mutex> lock(mutex);
            ready = true;
            condition.notify_all();
        });
        std::unique_lock<std::mutex> lock(mutex);
        waitFor(condition, &lock, [&] { return ready; });
        QVERIFY(ready);
        lock.unlock();
        other.join();
    }

    void patientMutexIsRecursiveAndExclusive()
    {
        PatientMutex mutex;
        int inside = 0;
        int most = 0;
        const auto work = [&] {
            for (int i = 0; i < 1000; ++i) {
                const std::lock_guard<PatientMutex> outer(mutex);
                const std::lock_guard<PatientMutex> inner(mutex);
                most = std::max(most, ++inside);
                --inside;
            }
        };
        std::thread other(work);
        work();
        other.join();
        QCOMPARE(most, 1);
    }
};

QTEST_GUILESS_MAIN(TestTimeSource)
#include "tst_timesource.moc"
