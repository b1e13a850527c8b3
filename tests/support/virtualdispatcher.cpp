#include "tests/support/virtualdispatcher.h"

#include <algorithm>
#include <QCoreApplication>
#include <QTimerEvent>
#include <tuple>

VirtualDispatcher::VirtualDispatcher(VirtualTime *time, Of of)
    : m_time(time)
    , m_of(of)
{
}

void VirtualDispatcher::closingDown()
{
    if (m_of == Of::QtThread)
        m_time->leave();
}

bool VirtualDispatcher::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    m_interrupted = false;
    Q_EMIT awake();
    const bool posted = m_woken.exchange(false);
    QCoreApplication::sendPostedEvents();
    if (flags.testFlag(QEventLoop::WaitForMoreEvents) && !isWoken()) {
        Q_EMIT aboutToBlock();
        m_time->waitUntil("events", dueMs(), [this] { return isWoken(); });
        Q_EMIT awake();
    }
    return fireDueTimers() || posted;
}

void VirtualDispatcher::registerTimer(int id, TimerIntervalMs intervalMs, Qt::TimerType type,
                                      QObject *object)
{
    const quint64 due = m_time->nowMs() + static_cast<quint64>(intervalMs);
    m_timers.push_back({id, intervalMs, type, object, due, ++m_armed});
}

bool VirtualDispatcher::unregisterTimer(int id)
{
    const auto end = std::remove_if(m_timers.begin(), m_timers.end(),
                                    [id](const Timer &timer) { return timer.id == id; });
    const bool found = end != m_timers.end();
    m_timers.erase(end, m_timers.end());
    return found;
}

bool VirtualDispatcher::unregisterTimers(QObject *object)
{
    const auto end = std::remove_if(m_timers.begin(), m_timers.end(), [object](const Timer &timer) {
        return timer.object == object;
    });
    const bool found = end != m_timers.end();
    m_timers.erase(end, m_timers.end());
    return found;
}

QList<QAbstractEventDispatcher::TimerInfo>
VirtualDispatcher::registeredTimers(QObject *object) const
{
    QList<TimerInfo> result;
    for (const Timer &timer : m_timers) {
        if (timer.object == object)
            result.append(TimerInfo(timer.id, static_cast<int>(timer.intervalMs), timer.type));
    }
    return result;
}

int VirtualDispatcher::remainingTime(int id)
{
    for (const Timer &timer : m_timers) {
        if (timer.id == id)
            return static_cast<int>(timer.dueMs - std::min(timer.dueMs, m_time->nowMs()));
    }
    return -1;
}

quint64 VirtualDispatcher::dueMs() const
{
    quint64 due = TimeSource::kNeverMs;
    for (const Timer &timer : m_timers)
        due = std::min(due, timer.dueMs);
    return due;
}

bool VirtualDispatcher::fireDueTimers()
{
    const quint64 now = m_time->nowMs();
    std::vector<Timer> due;
    std::copy_if(m_timers.begin(), m_timers.end(), std::back_inserter(due),
                 [now](const Timer &timer) { return timer.dueMs <= now; });
    std::sort(due.begin(), due.end(), [](const Timer &a, const Timer &b) {
        return std::tie(a.dueMs, a.armed) < std::tie(b.dueMs, b.armed);
    });
    for (const Timer &each : due) {
        const auto timer =
            std::find_if(m_timers.begin(), m_timers.end(), [&](const Timer &candidate) {
                return candidate.id == each.id && candidate.armed == each.armed;
            });
        if (timer == m_timers.end())
            continue; // one that fired before has stopped it
        timer->dueMs += static_cast<quint64>(timer->intervalMs);
        timer->armed = ++m_armed;
        QTimerEvent event(each.id);
        QCoreApplication::sendEvent(each.object, &event);
    }
    return !due.empty();
}
