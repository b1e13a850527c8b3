// What is known of the sound server's endpoints.
#pragma once

#include "platform/linux/audio/soundendpoint.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

/// The sound library's loop thread reports changes; every other thread asks for the latest
/// snapshot, which never waits for the server. Each change is published at once, except between
/// begin() and complete(), while the first answers of a new connection come in.
class EndpointCatalogue {
public:
    using Clock = std::chrono::steady_clock;

    EndpointCatalogue();

    // The loop thread.

    void begin(); ///< a connection is there; nothing is known of it yet
    void complete(); ///< every endpoint and default of the new connection has been reported
    void disconnect(); ///< there is no server: everything known is gone
    void update(SoundEndpoint endpoint); ///< new or changed
    void remove(EDataFlow flow, std::uint32_t index);
    void setDefaults(std::wstring render, std::wstring capture);
    bool isPresent(EDataFlow flow, const std::wstring &id) const;

    // Any thread.

    std::shared_ptr<const EndpointSnapshot> snapshot() const;
    std::uint64_t serial() const { return m_serial; }

    /// Waits for a snapshot newer than serial, until the deadline or a wakeUp; returns the latest
    /// one in any case.
    std::shared_ptr<const EndpointSnapshot> waitForChange(std::uint64_t serial,
                                                          Clock::time_point deadline) const;

    /// Ends every waitForChange, now and later.
    void wakeUp();

private:
    void publish();

    // The loop thread's own.
    std::map<std::uint32_t, SoundEndpoint> m_endpoints[2];
    std::array<std::wstring, 2> m_defaultId;
    std::uint32_t m_connection = 0;
    bool m_connected = false;
    bool m_filling = false;

    mutable std::mutex m_mutex; // guards the two below
    std::shared_ptr<const EndpointSnapshot> m_snapshot;
    bool m_awake = false;
    mutable std::condition_variable m_changed;
    std::atomic<std::uint64_t> m_serial {0};
};
