// A mutex that its owner keeps while it pauses.
#pragma once

#include "platform/timesource.h"

#include <QMutex>

/// A recursive mutex. Who holds it may sleep or run an event loop meanwhile, so whoever waits for
/// it may wait for long: a wait that a stand-in for real time has to know of. For std::lock_guard.
class PatientMutex {
public:
    void lock()
    {
        if (TimeSource *const time = timeSource()) {
            while (!m_mutex.tryLock())
                time->waitUntil("a mutex", TimeSource::kNeverMs,
                                [this] { return m_depth.load() == 0; });
        } else {
            m_mutex.lock();
        }
        ++m_depth;
    }
    void unlock()
    {
        --m_depth;
        m_mutex.unlock();
    }

private:
    QRecursiveMutex m_mutex;
    std::atomic<int> m_depth {0}; ///< how often its owner holds it
};
