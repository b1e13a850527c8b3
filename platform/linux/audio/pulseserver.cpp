#include "platform/linux/audio/pulseserver.h"

#include "platform/linux/audio/loopbackstream.h"
#include "platform/linux/process/threadstack.h"

#include <algorithm>
#include <cstdlib>
#include <pthread.h>
#include <pulse/def.h>
#include <pulse/rtclock.h>
#include <pulse/timeval.h>

namespace {

constexpr unsigned kFirstDelayMs = 100;
constexpr unsigned kLastDelayMs = 250;

// How long the first use waits for the server. A running server answers within milliseconds, a
// missing one refuses at once. Only a server that hangs takes the whole time.
constexpr std::chrono::milliseconds kFirstWait {1500};

} // namespace

PulseServer::Lock::Lock(PulseServer &server)
    : m_loop(server.m_loop)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    pa_threaded_mainloop_lock(m_loop);
}

PulseServer::Lock::~Lock()
{
    pa_threaded_mainloop_unlock(m_loop);
    pthread_setcancelstate(m_cancelState, nullptr);
}

PulseServer &PulseServer::instance()
{
    static PulseServer *const server = [] {
        auto *const made = new PulseServer;
        made->waitForFirstCatalogue();
        return made;
    }();
    return *server;
}

PulseServer::PulseServer()
    : m_loop(pa_threaded_mainloop_new())
    , m_delay(kFirstDelayMs)
{
    if (!m_loop)
        std::abort(); // no descriptors or memory for a loop: nothing can go on
    m_introspector.setSinkGoneHandler([this](std::uint32_t index) { handleSinkGone(index); });
    pa_threaded_mainloop_set_name(m_loop, "sound-server");
    // The loop's thread blocks every signal when it begins; a fault in a callback has to be seen.
    pa_mainloop_api_once(
        pa_threaded_mainloop_get_api(m_loop),
        [](pa_mainloop_api *, void *) { unblockFaultSignals(); }, nullptr);
    connect();
    if (pa_threaded_mainloop_start(m_loop) < 0)
        std::abort();
}

void PulseServer::waitForFirstCatalogue()
{
    m_catalogue.waitForChange(0, EndpointCatalogue::Clock::now() + kFirstWait);
}

pa_context *PulseServer::context() const
{
    return m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY ? m_context : nullptr;
}

void PulseServer::connect()
{
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "TonewellDetection");
    if (!m_context)
        std::abort();
    pa_context_set_state_callback(
        m_context,
        [](pa_context *, void *self) { static_cast<PulseServer *>(self)->handleStateChange(); },
        this);
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        handleEnd();
}

void PulseServer::handleStateChange()
{
    switch (pa_context_get_state(m_context)) {
    case PA_CONTEXT_READY:
        m_delay = kFirstDelayMs;
        m_introspector.start(m_context, pa_threaded_mainloop_get_api(m_loop));
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        handleEnd();
        break;
    default:
        break;
    }
}

void PulseServer::handleEnd()
{
    if (m_retry)
        return; // the state change and the failed call report the same end
    m_introspector.stop();
    m_catalogue.disconnect();
    m_retry = pa_context_rttime_new(
        m_context, pa_rtclock_now() + m_delay * PA_USEC_PER_MSEC,
        [](pa_mainloop_api *api, pa_time_event *event, const timeval *, void *userdata) {
            auto *const self = static_cast<PulseServer *>(userdata);
            api->time_free(event);
            self->m_retry = nullptr;
            pa_context_set_state_callback(self->m_context, nullptr, nullptr);
            pa_context_unref(self->m_context);
            self->connect();
        },
        this);
    m_delay = std::min(m_delay * 2, kLastDelayMs);
}

void PulseServer::handleSinkGone(std::uint32_t index)
{
    for (LoopbackStream *const stream : m_streams)
        stream->handleSinkGone(index);
}
