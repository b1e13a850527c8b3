// Watches calls on controllers whose audio system is a fake one.
#pragma once

#include "tests/support/fakeaudio.h"
#include "tests/support/virtualtime.h"

#include <atomic>
#include <list>
#include <mutex>

/// Tells a call that hangs from a call that waits for its turn: for 5 s nothing but the worker's
/// polls has happened in its world. Then it prints what had happened, and aborts. Any thread.
class Watchdog {
public:
    Watchdog();
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    struct Entry {
        FakeAudio *world;
        quint32 seed;
        const char *what;
        qint64 sinceMs;
    };
    std::list<Entry>::iterator enter(FakeAudio *world, quint32 seed, const char *what);
    void leave(std::list<Entry>::iterator entry);

private:
    void watch();

    std::mutex m_mutex;
    std::list<Entry> m_entries;
    std::atomic<bool> m_end {false};
    VirtualThread m_thread;
};
