// The virtual time of the tests: exact, in a defined order, and never stuck in silence.
#include "platform/patientmutex.h"
#include "tests/support/virtualmain.h"
#include "tests/support/waiting.h"

#include <QTimer>
#include <stdexcept>

namespace {

/// What happened when, as "name ms", by the clock since it was made.
class Diary {
public:
    void note(const char *what)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.append(
            QStringLiteral("%1 %2").arg(QLatin1String(what)).arg(tickCountMs() - m_madeMs));
    }
    QStringList lines() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

private:
    const quint64 m_madeMs = tickCountMs();
    mutable std::mutex m_mutex;
    QStringList m_lines;
};

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QStringLiteral(", "));
}

} // namespace

class TestVirtualTime : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void passingTakesNoTime()
    {
        QElapsedTimer real;
        real.start();
        const quint64 before = tickCountMs();
        spin(3'600'000);
        QCOMPARE(tickCountMs() - before, 3'600'000ULL);
        sleepMs(86'400'000);
        QCOMPARE(tickCountMs() - before, 90'000'000ULL);
        QVERIFY(real.elapsed() < 60'000);
    }

    void timersFireToTheMillisecond()
    {
        bool fired = false;
        QTimer::singleShot(500, this, [&] { fired = true; });
        spin(499);
        QVERIFY(!fired);
        spin(1);
        QVERIFY(fired);
    }

    void repeatedTimersDoNotDrift()
    {
        Diary diary;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] { diary.note("tick"); });
        timer.start(20);
        QCOMPARE(timer.remainingTime(), 20);
        spin(65);
        QCOMPARE(timer.remainingTime(), 15);
        timer.stop();
        spin(100);
        QCOMPARE(diary.lines(), words("tick 20, tick 40, tick 60"));
    }

    void equalTimersFireInTheOrderOfArming()
    {
        Diary diary;
        QTimer::singleShot(10, this, [&] { diary.note("a"); });
        QTimer::singleShot(10, this, [&] { diary.note("b"); });
        QTimer::singleShot(5, this, [&] { QTimer::singleShot(5, this, [&] { diary.note("c"); }); });
        spin(10);
        QCOMPARE(diary.lines(), words("a 10, b 10, c 10"));
    }

    void threadsGoOnInTheOrderOfWaiting()
    {
        for (int run = 0; run < 100; ++run) {
            Diary diary;
            VirtualThread first([&] {
                sleepMs(10);
                diary.note("first");
                sleepMs(5);
                diary.note("first");
            });
            VirtualThread second([&] {
                sleepMs(5);
                diary.note("second");
                sleepMs(5);
                diary.note("second");
                sleepMs(5);
                diary.note("second");
            });
            spin(15);
            QCOMPARE(diary.lines(), words("second 5, first 10, second 10, first 15, second 15"));
            first.join();
            second.join();
        }
    }

    void passEndsAfterAllThatHappensAtItsEnd()
    {
        // A timer, what it posts, and a thread that wakes at the same moment.
        Diary diary;
        VirtualThread thread([&] {
            sleepMs(10);
            diary.note("thread");
        });
        QTimer::singleShot(10, this, [&] {
            QMetaObject::invokeMethod(
                this, [&] { diary.note("posted"); }, Qt::QueuedConnection);
        });
        spin(10);
        QStringList lines = diary.lines();
        lines.sort();
        QCOMPARE(lines, words("posted 10, thread 10"));
        thread.join();
    }

    void conditionIsSeenAtItsMoment()
    {
        std::atomic<bool> done {false};
        const quint64 before = tickCountMs();
        VirtualThread thread([&] {
            sleepMs(123);
            done = true;
            sleepMs(1000);
        });
        QVERIFY(waitUntil([&] { return done.load(); }, 5000));
        QCOMPARE(tickCountMs() - before, 123ULL);
        QVERIFY(!waitUntil([] { return false; }, 77));
        QCOMPARE(tickCountMs() - before, 200ULL);
        thread.join();
        QCOMPARE(tickCountMs() - before, 1123ULL);
    }

    void eventLoopOfAnotherThreadTakesPart()
    {
        Diary diary;
        VirtualThread thread([&] {
            QEventLoop loop;
            QTimer::singleShot(3000, &loop, [&] {
                diary.note("timer");
                loop.quit();
            });
            loop.exec();
            diary.note("left");
        });
        spin(2999);
        QCOMPARE(diary.lines(), QStringList());
        thread.join();
        QCOMPARE(diary.lines(), words("timer 3000, left 3000"));
    }

    void threadOfQtTakesPartToItsEnd()
    {
        Diary diary;
        QThread thread;
        QObject inside;
        inside.moveToThread(&thread);
        startThread(thread);
        QMetaObject::invokeMethod(
            &inside,
            [&] {
                sleepMs(700);
                diary.note("slept");
            },
            Qt::QueuedConnection);
        spin(0);
        thread.quit();
        QVERIFY(!waitForThread(thread, 699));
        QVERIFY(waitForThread(thread, 1));
        QVERIFY(thread.isFinished());
        QCOMPARE(diary.lines(), words("slept 700"));
    }

    void mutexIsWaitedForInVirtualTime()
    {
        Diary diary;
        PatientMutex mutex;
        VirtualThread owner([&] {
            const std::lock_guard<PatientMutex> outer(mutex);
            const std::lock_guard<PatientMutex> inner(mutex);
            sleepMs(300);
        });
        spin(100);
        {
            const std::lock_guard<PatientMutex> lock(mutex);
            diary.note("locked");
        }
        QCOMPARE(diary.lines(), words("locked 300"));
        owner.join();
    }

    void deadlockSaysWhoWaitsForWhat()
    {
        auto *const time = VirtualTime::ofThread();
        QString who;
        time->setDeadlockHandler([&](const QString &text) {
            who = text;
            throw std::runtime_error("nobody goes on");
        });
        PatientMutex mutex;
        std::atomic<bool> mayEnd {false};
        VirtualThread owner([&] {
            const std::lock_guard<PatientMutex> lock(mutex);
            VirtualTime::ofThread()->waitUntil("the end of this test", TimeSource::kNeverMs,
                                               [&] { return mayEnd.load(); });
        });
        spin(1);
        QVERIFY_EXCEPTION_THROWN(mutex.lock(), std::runtime_error);
        QCOMPARE(who,
                 QStringLiteral("the main thread waits for a mutex, another thread waits for the "
                                "end of this test"));
        mayEnd = true;
        owner.join();
        time->setDeadlockHandler({});
    }

    void realTimeComesBackWhileItIsAskedFor()
    {
        const RealTime realTime;
        QVERIFY(!timeSource());
        QElapsedTimer clock;
        clock.start();
        sleepMs(20);
        QVERIFY(clock.elapsed() >= 19);
        bool posted = false;
        std::thread other([&] {
            QMetaObject::invokeMethod(
                this, [&] { posted = true; }, Qt::QueuedConnection);
        });
        QVERIFY(waitUntil([&] { return posted; }));
        other.join();
    }
};

VIRTUAL_TIME_MAIN(TestVirtualTime)
#include "tst_virtualtime.moc"
