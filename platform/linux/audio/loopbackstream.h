// A record stream on a sink's monitor.
#pragma once

#include "platform/linux/audio/packetring.h"
#include "platform/linux/audio/pulseserver.h"
#include "platform/linux/audio/soundendpoint.h"

#include <condition_variable>
#include <mutex>
#include <pulse/stream.h>

/// Carries what one sink plays, as 32-bit floats at the sink's own rate and in the order of its
/// channel mask, in packets of 10 ms. It records the monitor of this one sink and nothing else: a
/// stream that the server connects or moves elsewhere is lost, and its sound is thrown away.
///
/// Life: open() once; start() and stop() as often as wanted; lost for good when the sink or the
/// server goes. The loop thread fills the ring; one other thread reads it. Only open() waits for
/// the server.
class LoopbackStream {
public:
    /// For an endpoint of the catalogue's connection of that number. The ring takes packets
    /// packets.
    LoopbackStream(PulseServer &server, const SoundEndpoint &sink, std::uint32_t connection,
                   UINT32 packets);
    ~LoopbackStream();

    LoopbackStream(const LoopbackStream &) = delete;
    LoopbackStream &operator=(const LoopbackStream &) = delete;

    static UINT32 packetFrames(const SoundEndpoint &sink);

    /// Makes the stream, stopped. Waits two seconds at most. AUDCLNT_E_DEVICE_INVALIDATED when the
    /// sink is gone, AUDCLNT_E_SERVICE_NOT_RUNNING when the server is, and
    /// AUDCLNT_E_ENDPOINT_CREATE_FAILED when it refuses or does not answer.
    HRESULT open();

    /// AUDCLNT_E_NOT_STOPPED while it runs, AUDCLNT_E_DEVICE_INVALIDATED when it is lost.
    HRESULT start();

    /// S_FALSE when it does not run.
    HRESULT stop();

    /// Throws away what has not been read. AUDCLNT_E_NOT_STOPPED while it runs.
    HRESULT reset();

    PacketRing &ring() { return m_ring; }

    /// Whether the stream has ended, known at once.
    bool lost() const { return m_lostAt != 0; }

    /// Whether readers are to be told so. They are told a little later: listeners for endpoint
    /// notifications hear first why the stream ended, unless they take too long.
    bool invalidated() const;

    /// The loop thread: the sink of that index has gone.
    void handleSinkGone(std::uint32_t index);

private:
    HRESULT connect();
    HRESULT waitUntilReady();
    void handleStateChange();
    void handleMove();
    void handleData();
    void lose();
    bool isOnMonitor() const;
    static void abandon(pa_stream *stream);

    PulseServer &m_server;
    const SoundEndpoint m_sink;
    const std::uint32_t m_connection;
    PacketRing m_ring;
    std::atomic<std::int64_t> m_lostAt {0}; // steady clock, ns; 0 while alive

    // Under the server's Lock.
    pa_stream *m_stream = nullptr;
    bool m_running = false;

    std::mutex m_mutex; // guards m_decided
    std::condition_variable m_changed;
    bool m_decided = false; // the server has made the stream, or it never will
};
