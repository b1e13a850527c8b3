#pragma once

#include <atomic>
#include <QString>
#include <QTemporaryDir>
#include <thread>

/// A message bus that greets one program, as it must to be connected to, and answers nothing more.
class MuteBus {
public:
    MuteBus();
    ~MuteBus();
    MuteBus(const MuteBus &) = delete;
    MuteBus &operator=(const MuteBus &) = delete;

    /// For DBUS_SYSTEM_BUS_ADDRESS.
    QString address() const;

    /// Whether the program has been greeted and waits.
    bool isWaitedFor() const { return m_waitedFor; }

private:
    void serve();
    static void greet(int connection);

    QTemporaryDir m_folder;
    int m_listener = -1;
    std::atomic<bool> m_waitedFor {false};
    std::thread m_thread;
};
