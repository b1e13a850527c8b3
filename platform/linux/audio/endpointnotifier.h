// The thread on which endpoint notifications are delivered.
#pragma once

#include "platform/linux/audio/endpointannouncer.h"
#include "platform/linux/audio/endpointcatalogue.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

/// Follows a catalogue and calls every registered IMMNotificationClient, one at a time, on a
/// thread of its own. No lock is held during a call, so a client may use the whole device API in
/// it and may take as long as it likes; the sound library's thread never waits for it.
///
/// A new default is told once for each role, in the order console, multimedia, communications. A
/// listener tells one change from three by the time between the calls. So a listener that takes
/// long over the first call hears the other two meanwhile, on a second thread, or afterwards where
/// the system gives no thread.
class EndpointNotifier {
public:
    /// The catalogue outlives the notifier.
    explicit EndpointNotifier(EndpointCatalogue *catalogue);

    /// Waits for a call that is under way. Not callable from within one.
    ~EndpointNotifier();

    EndpointNotifier(const EndpointNotifier &) = delete;
    EndpointNotifier &operator=(const EndpointNotifier &) = delete;

    /// Takes a reference to the client. owner tells registrations of different makers apart.
    void add(const void *owner, IMMNotificationClient *client);

    /// Ends one registration of the client and gives its reference back; false if there is none.
    /// When it returns, no call to the client is under way and none will follow, except that a
    /// client that does this from within a call is still in that call.
    bool remove(const void *owner, IMMNotificationClient *client);

    /// remove() for everything that the owner has registered.
    void removeAll(const void *owner);

    /// Whether everything known of the endpoints has been announced and listened to.
    bool delivered() const { return m_deliveredSerial == m_catalogue->serial(); }

private:
    struct Registration {
        std::uint64_t number;
        const void *owner;
        IMMNotificationClient *client;
    };

    void run();
    void deliver(const EndpointAnnouncement &announcement);
    void call(IMMNotificationClient *client, const EndpointAnnouncement &announcement);
    void callForEveryRole(IMMNotificationClient *client, EDataFlow flow, LPCWSTR id);
    void finishRemoval(std::unique_lock<std::mutex> *lock, const Registration &registration);

    EndpointCatalogue *const m_catalogue;
    EndpointAnnouncer m_announcer; // the thread's own
    std::atomic<std::uint64_t> m_deliveredSerial {0};
    std::atomic<bool> m_stop {false};

    std::mutex m_mutex; // guards the three below
    std::vector<Registration> m_registrations;
    std::uint64_t m_lastNumber = 0;
    std::uint64_t m_calling = 0; // the registration whose client is being called, or 0
    std::condition_variable m_called;
    std::thread m_thread;
};
