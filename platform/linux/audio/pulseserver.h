// The process's connection to the sound server.
#pragma once

#include "platform/linux/audio/endpointcatalogue.h"
#include "platform/linux/audio/endpointnotifier.h"
#include "platform/linux/audio/pulseintrospector.h"

#include <pulse/context.h>
#include <pulse/mainloop-api.h>
#include <pulse/thread-mainloop.h>
#include <set>

class LoopbackStream;

/// One connection, one loop thread and one notification thread for the whole process. libpulse
/// finds the server by the environment and its configuration, and never starts one. After a
/// connection has failed or ended, a new attempt follows for ever, at first after 100 ms, in the
/// end every 250 ms: an attempt that is refused costs next to nothing, and nobody should wait long
/// for a server that is back.
///
/// Made by the first use and never destroyed: objects of the audio API may outlive main(), and a
/// destructor at exit could only wait for a server that may not answer. The operating system
/// closes the connection.
class PulseServer {
public:
    static PulseServer &instance();

    EndpointCatalogue &catalogue() { return m_catalogue; }
    EndpointNotifier &notifier() { return m_notifier; }

    /// Keeps the loop thread from running callbacks. Held only for calls that do not wait. Never
    /// taken with another lock of this folder held, and never on the loop thread. A thread that is
    /// terminated meanwhile (libpulse wakes its loop by a write, where that takes effect) gives the
    /// lock back first: the library would be left in the middle of a change.
    class Lock {
    public:
        explicit Lock(PulseServer &server);
        ~Lock();
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        pa_threaded_mainloop *const m_loop;
        int m_cancelState = 0; // as it was before
    };

    // Under the Lock.

    /// The connection if it can carry streams now, else null.
    pa_context *context() const;

    /// Streams that are told when their sink goes. A stream detaches itself before it ends.
    void attach(LoopbackStream *stream) { m_streams.insert(stream); }
    void detach(LoopbackStream *stream) { m_streams.erase(stream); }

private:
    PulseServer();
    ~PulseServer() = delete;

    void waitForFirstCatalogue();
    void connect();
    void handleStateChange();
    void handleEnd();
    void handleSinkGone(std::uint32_t index);

    EndpointCatalogue m_catalogue;
    EndpointNotifier m_notifier {&m_catalogue};
    PulseIntrospector m_introspector {&m_catalogue};
    pa_threaded_mainloop *const m_loop;
    pa_context *m_context = nullptr;
    pa_time_event *m_retry = nullptr; // set between the end of a connection and the next attempt
    unsigned m_delay; // milliseconds until the next attempt
    std::set<LoopbackStream *> m_streams;
};
