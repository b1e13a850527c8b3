// Waiting for what must happen, while events are handled. In virtual time where the thread takes
// part in it (virtualtime.h), which is then exact and costs nothing; else in real time.
#pragma once

#include "tests/support/virtualtime.h"

#include <functional>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QThread>

/// Handles the calling thread's events and deletes the objects that wait for it.
inline void handleEvents()
{
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// Handles events for a while.
inline void spin(int ms, const std::function<void()> &handle = handleEvents)
{
    if (VirtualTime *const time = VirtualTime::ofThread()) {
        time->pass(static_cast<quint64>(ms), handle);
        return;
    }
    QElapsedTimer clock;
    clock.start();
    do {
        handle();
        QThread::msleep(2);
    } while (clock.elapsed() < ms);
    handle();
}

/// Handles events until the condition holds; false after the time-out.
inline bool waitUntil(const std::function<bool()> &condition, int timeoutMs = 8000,
                      const std::function<void()> &handle = handleEvents)
{
    if (VirtualTime *const time = VirtualTime::ofThread())
        return time->passUntil(condition, static_cast<quint64>(timeoutMs), handle);
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        handle();
        QThread::msleep(2);
    }
    return true;
}
