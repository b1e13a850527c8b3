// Time that passes when everybody waits.
#pragma once

#include "platform/timesource.h"

#include <list>
#include <mutex>
#include <QString>
#include <thread>

/// Replaces real time for the process while it lives. The threads that take part are the one that
/// made it, every thread that the product starts (startThread) and every VirtualThread. The others
/// live in real time and nobody waits for them.
///
/// One of them runs at a time, until it waits: in sleepMs, in waitUntil, for a thread's end, or in
/// an event loop, which is a VirtualDispatcher's. Then the next one goes on:
///
///  1. who can go on at the present moment: what it waits for has come, or its time is over. Of
///     several, who has waited longest;
///  2. else whoever asked to be the last one of the moment, which is how a test lets time pass;
///  3. else the clock jumps to the next moment at which somebody is due, and so on from 1.
///
/// Within one thread, timers that are due at the same moment fire in the order in which they were
/// armed. So the order of everything is the same in every run, and a duration is exact to the
/// millisecond, however slow the machine is.
///
/// When everybody waits and nobody is ever due, it says who waits for what and ends the program.
///
/// Why the product keeps Qt's timers and event loops instead of a timer class of this project: what
/// is tested is then what runs, with the context objects, queued calls and nested loops that Qt
/// gives it. Only the dispatcher under them is another one.
class VirtualTime final : public TimeSource {
public:
    static constexpr quint64 kStartMs = 1'000'000'000;

    /// On the main thread, before there is an application object.
    VirtualTime();
    ~VirtualTime() override;
    VirtualTime(const VirtualTime &) = delete;
    VirtualTime &operator=(const VirtualTime &) = delete;

    /// The one that there is, if the calling thread takes part in it; else null.
    static VirtualTime *ofThread();

    /// Lets so much time pass and has `handle` handle the calling thread's events (see waiting.h).
    /// When it returns, all that happens until that moment, and at it, has happened.
    void pass(quint64 ms, const std::function<void()> &handle);
    /// The same until the condition holds, which is asked at every moment, after all that happens
    /// at it; false when it does not hold at the last one.
    bool passUntil(const std::function<bool()> &condition, quint64 limitMs,
                   const std::function<void()> &handle);

    quint64 nowMs() override { return m_nowMs.load(); }
    void sleepMs(quint64 ms) override;
    bool waitUntil(const char *what, quint64 untilMs, const std::function<bool()> &ready) override;
    void adopt(QThread &thread) override;
    bool waitForEnd(QThread &thread, quint64 ms) override;
    std::thread startThread(std::function<void()> function) override;
    void join(std::thread &thread) override;

    /// Called instead of ending the program, with who waits for what; may throw.
    void setDeadlockHandler(std::function<void(const QString &)> handler);

    /// The calling thread takes no part any more. For VirtualDispatcher, at the thread's end.
    void leave();

    struct Member;

private:
    struct Wait {
        const char *what = "";
        quint64 dueMs = kNeverMs;
        const std::function<bool()> *ready = nullptr;
        quint64 lastMs = kNeverMs; ///< goes on as the last one of that moment
        bool everyMoment = false; ///< as the last one of every moment after the present one
    };
    enum class Reason { Ready, Due, Last };

    /// A thread that is about to start: the others go on only when it waits or has left.
    Member *expect(const QString &name, const QThread *thread = nullptr);
    /// On that thread: waits for its turn.
    void enter(Member *member);
    bool passUntil(const std::function<bool()> *condition, quint64 limitMs,
                   const std::function<void()> &handle);
    Reason wait(const Wait &wait);
    void handOver(std::unique_lock<std::mutex> *lock);
    Member *next();
    Member *nextOfThisMoment();
    quint64 nextMoment() const;
    QString whoWaits() const;
    void deadlocked(const QString &who) const;

    std::mutex m_mutex; ///< guards all that follows, but for the clock
    std::list<Member> m_members;
    std::list<Member> m_left;
    quint64 m_waits = 0; ///< so far: their order
    std::atomic<quint64> m_nowMs {kStartMs};
    std::function<void(const QString &)> m_deadlock;
};

/// Real time again for the main thread, and for those that are started meanwhile, while it lives.
/// No other thread takes part in the virtual time then.
class RealTime {
public:
    RealTime();
    ~RealTime();
    RealTime(const RealTime &) = delete;
    RealTime &operator=(const RealTime &) = delete;

private:
    TimeSource *const m_before;
};

/// A std::thread that takes part, with an event dispatcher that follows the virtual time. In real
/// time just a thread.
class VirtualThread {
public:
    VirtualThread() = default;
    explicit VirtualThread(std::function<void()> function)
        : m_thread(startThread(std::move(function)))
    {
    }
    void join() { joinThread(m_thread); }
    bool joinable() const { return m_thread.joinable(); }

private:
    std::thread m_thread;
};
