// A thread that is ended by force while it holds the sound library's lock.
#include "platform/linux/audio/pulseserver.h"

#include <atomic>
#include <pthread.h>
#include <QtTest>

namespace {

/// Runs a function on a thread that can be cancelled, and waits for its end. Returns whether the
/// thread was cancelled.
bool endsByCancellation(void (*body)())
{
    pthread_t thread {};
    void *result = nullptr;
    const bool ran = pthread_create(
                         &thread, nullptr,
                         [](void *function) -> void * {
                             reinterpret_cast<void (*)()>(function)();
                             return nullptr;
                         },
                         reinterpret_cast<void *>(body))
            == 0
        && pthread_join(thread, &result) == 0;
    return ran && result == PTHREAD_CANCELED;
}

std::atomic<bool> s_changed {false}; // what is done under the lock was done
std::atomic<bool> s_after {false}; // what follows the lock was reached

} // namespace

class TestPulseLock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void theLockIsGivenBackFirst();
    void aThreadThatIsNotToBeEndedStaysSo();
};

void TestPulseLock::initTestCase()
{
    qputenv("PULSE_SERVER", "unix:/nonexistent/pulse");
}

void TestPulseLock::init()
{
    s_changed = false;
    s_after = false;
}

void TestPulseLock::theLockIsGivenBackFirst()
{
    QVERIFY(endsByCancellation([] {
        {
            const PulseServer::Lock lock(PulseServer::instance());
            pthread_cancel(pthread_self());
            pthread_testcancel(); // as libpulse's writes do
            s_changed = true;
        }
        pthread_testcancel();
        s_after = true;
    }));
    QVERIFY(s_changed);
    QVERIFY(!s_after);
    // Who comes next gets the lock.
    QVERIFY(!endsByCancellation([] {
        const PulseServer::Lock lock(PulseServer::instance());
        s_after = true;
    }));
    QVERIFY(s_after);
}

void TestPulseLock::aThreadThatIsNotToBeEndedStaysSo()
{
    QVERIFY(!endsByCancellation([] {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        pthread_cancel(pthread_self());
        {
            const PulseServer::Lock lock(PulseServer::instance());
        }
        pthread_testcancel();
        s_after = true;
    }));
    QVERIFY(s_after);
}

QTEST_GUILESS_MAIN(TestPulseLock)
#include "tst_pulselock.moc"
