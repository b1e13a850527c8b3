// Steps on the worker's thread, ordered by means that ThreadSanitizer sees.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <QMetaObject>
#include <QObject>

/// Stops the thread of an object until open() is called.
class Gate {
public:
    explicit Gate(QObject *object)
    {
        const std::shared_future<void> opened = m_opened->get_future().share();
        QMetaObject::invokeMethod(
            object, [opened] { opened.wait(); }, Qt::QueuedConnection);
    }
    void open() { m_opened->set_value(); }

private:
    std::shared_ptr<std::promise<void>> m_opened = std::make_shared<std::promise<void>>();
};

/// Runs `action` on the thread of `object`, after what has been sent there before, to its end.
inline void runThere(QObject *object, const std::function<void()> &action)
{
    const auto done = std::make_shared<std::promise<void>>();
    const std::future<void> end = done->get_future();
    // The gate holds the function back until the call that posts it has dropped its copy.
    Gate gate(object);
    QMetaObject::invokeMethod(
        object,
        [action, done] {
            action();
            done->set_value();
        },
        Qt::QueuedConnection);
    gate.open();
    end.wait();
}
