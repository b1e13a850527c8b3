// Waiting for what must happen, while events are handled.
#pragma once

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
