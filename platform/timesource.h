// The clock, the pauses and the waits of capture, of session changes and of notifications.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <QtGlobal>
#include <QThread>
#include <thread>

/// Stands in for real time in a test, so that nobody waits for it; see
/// tests/support/virtualtime.h. The product has none and then calls the host itself.
///
/// Timers and event loops are Qt's own, here and there: they go by the event dispatcher of their
/// thread, which adopt() may choose. So whoever waits does so in an event loop or by the functions
/// below, and the thread that it runs on is no other than without a stand-in.
class TimeSource {
public:
    static constexpr quint64 kNeverMs = ~Q_UINT64_C(0);

    virtual ~TimeSource() = default;
    virtual quint64 nowMs() = 0;
    virtual void sleepMs(quint64 ms) = 0;
    /// Waits until ready() holds; false when the clock comes to untilMs before. Any thread may call
    /// ready(), while the caller waits.
    virtual bool waitUntil(const char *what, quint64 untilMs,
                           const std::function<bool()> &ready) = 0;
    /// Is told of a thread before it is started.
    virtual void adopt(QThread &thread) = 0;
    /// QThread::wait.
    virtual bool waitForEnd(QThread &thread, quint64 ms) = 0;
    /// std::thread and its join().
    virtual std::thread startThread(std::function<void()> function) = 0;
    virtual void join(std::thread &thread) = 0;
};

namespace detail {
inline std::atomic<TimeSource *> s_timeSource {nullptr};
}

/// Null in real time. Any thread.
inline TimeSource *timeSource()
{
    return detail::s_timeSource.load(std::memory_order_acquire);
}

/// Replaces real time for the whole process; null brings it back. Meant for tests, before other
/// threads run.
inline void setTimeSource(TimeSource *source)
{
    detail::s_timeSource.store(source, std::memory_order_release);
}

/// GetTickCount64: milliseconds since the system was started.
quint64 tickCountMs();

/// Blocks the calling thread.
inline void sleepMs(quint64 ms)
{
    if (TimeSource *const time = timeSource())
        time->sleepMs(ms);
    else
        QThread::msleep(static_cast<unsigned long>(ms));
}

/// Starts a thread whose waits a stand-in for real time knows of.
inline void startThread(QThread &thread)
{
    if (TimeSource *const time = timeSource())
        time->adopt(thread);
    thread.start();
}

/// Waits for a thread to end; false when it has not done so in time.
inline bool waitForThread(QThread &thread, quint64 ms)
{
    if (TimeSource *const time = timeSource())
        return time->waitForEnd(thread, ms);
    return thread.wait(static_cast<unsigned long>(ms));
}

/// The same for a thread that Qt knows nothing of. Throws as std::thread does.
inline std::thread startThread(std::function<void()> function)
{
    if (TimeSource *const time = timeSource())
        return time->startThread(std::move(function));
    return std::thread(std::move(function));
}

/// Waits for such a thread to end.
inline void joinThread(std::thread &thread)
{
    if (TimeSource *const time = timeSource())
        time->join(thread);
    else
        thread.join();
}

using SteadyTime = std::chrono::steady_clock::time_point;

/// std::chrono::steady_clock::now(); another clock than tickCountMs().
inline SteadyTime steadyNow()
{
    if (TimeSource *const time = timeSource())
        return SteadyTime(std::chrono::milliseconds(time->nowMs()));
    return std::chrono::steady_clock::now();
}

/// condition.wait_until(*lock, deadline, ready), without an end when the deadline is the last time
/// there is. Who makes it ready notifies the condition.
template <typename Ready>
bool waitUntil(std::condition_variable &condition, std::unique_lock<std::mutex> *lock,
               SteadyTime deadline, Ready ready)
{
    const bool endless = deadline == SteadyTime::max();
    if (TimeSource *const time = timeSource()) {
        std::mutex *const mutex = lock->mutex();
        const auto untilMs =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline.time_since_epoch());
        lock->unlock();
        const bool came = time->waitUntil(
            "a condition", endless ? TimeSource::kNeverMs : static_cast<quint64>(untilMs.count()),
            [mutex, &ready] {
                const std::lock_guard<std::mutex> guard(*mutex);
                return ready();
            });
        lock->lock();
        return came;
    }
    if (!endless)
        return condition.wait_until(*lock, deadline, ready);
    condition.wait(*lock, ready);
    return true;
}

/// condition.wait(*lock, ready).
template <typename Ready>
void waitFor(std::condition_variable &condition, std::unique_lock<std::mutex> *lock, Ready ready)
{
    waitUntil(condition, lock, SteadyTime::max(), ready);
}
