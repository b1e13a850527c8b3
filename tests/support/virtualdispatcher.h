// An event dispatcher whose timers go by virtual time.
#pragma once

#include "platform/qtgeneration.h"
#include "tests/support/virtualtime.h"

#include <atomic>
#include <vector>

/// Posted events and timers. Nothing is heard from sockets or from a window system: what comes from
/// outside has no place in virtual time.
class VirtualDispatcher final : public BareEventDispatcher {
public:
    /// Of a thread of Qt: with its end, the thread leaves the virtual time.
    enum class Of { QtThread, OtherThread };
    VirtualDispatcher(VirtualTime *time, Of of);

    bool processEvents(QEventLoop::ProcessEventsFlags flags) override;
    void registerSocketNotifier(QSocketNotifier *) override { }
    void unregisterSocketNotifier(QSocketNotifier *) override { }
    void registerTimer(int id, TimerIntervalMs intervalMs, Qt::TimerType type,
                       QObject *object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject *object) override;
    QList<TimerInfo> registeredTimers(QObject *object) const override;
    int remainingTime(int id) override;
    void wakeUp() override { m_woken = true; }
    void interrupt() override { m_interrupted = true; }
    void closingDown() override;

    /// When the first of the timers is due.
    quint64 dueMs() const;
    /// Whether an event loop would have something to do but for the timers.
    bool isWoken() const { return m_woken.load() || m_interrupted.load(); }

private:
    struct Timer {
        int id;
        TimerIntervalMs intervalMs;
        Qt::TimerType type;
        QObject *object;
        quint64 dueMs;
        quint64 armed; ///< their order
    };
    bool fireDueTimers();

    VirtualTime *const m_time;
    const Of m_of;
    std::vector<Timer> m_timers;
    quint64 m_armed = 0;
    std::atomic<bool> m_woken {false};
    std::atomic<bool> m_interrupted {false};
};
