#include "platform/linux/audio/loopbackstream.h"

#include <algorithm>
#include <chrono>
#include <pulse/error.h>
#include <pulse/operation.h>
#include <pulse/proplist.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr UINT32 kPacketsPerSecond = 100;
constexpr auto kOpenTime = 2s;

// A server ends the streams of a sink a moment before it tells that the sink has gone. The news
// arrives within the first time; the second is enough for listeners to act on it.
constexpr auto kNewsTime = 50ms;
constexpr auto kListenerTime = 500ms;

std::int64_t nanoseconds()
{
    return std::chrono::nanoseconds {Clock::now().time_since_epoch()}.count();
}

template <void (LoopbackStream::*method)()> void callback(pa_stream *, void *self)
{
    (static_cast<LoopbackStream *>(self)->*method)();
}

} // namespace

UINT32 LoopbackStream::packetFrames(const SoundEndpoint &sink)
{
    return std::max(sink.rate / kPacketsPerSecond, 1U);
}

LoopbackStream::LoopbackStream(PulseServer &server, const SoundEndpoint &sink,
                               std::uint32_t connection, UINT32 packets)
    : m_server(server)
    , m_sink(sink)
    , m_connection(connection)
    , m_ring(packetFrames(sink), static_cast<UINT32>(sink.channels.channels * sizeof(float)),
             packets)
{
}

LoopbackStream::~LoopbackStream()
{
    const PulseServer::Lock lock(m_server);
    m_server.detach(this);
    if (m_stream)
        abandon(m_stream);
}

// Ends a stream without waiting for the server. A stream that is still being made can end only
// after the server has answered; until then its callback keeps it alive.
void LoopbackStream::abandon(pa_stream *stream)
{
    pa_stream_set_read_callback(stream, nullptr, nullptr);
    pa_stream_set_moved_callback(stream, nullptr, nullptr);
    pa_stream_set_state_callback(stream, nullptr, nullptr);
    if (pa_stream_get_state(stream) != PA_STREAM_CREATING) {
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        return;
    }
    pa_stream_set_state_callback(
        stream,
        [](pa_stream *s, void *) {
            if (pa_stream_get_state(s) == PA_STREAM_CREATING)
                return;
            pa_stream_set_state_callback(s, nullptr, nullptr);
            pa_stream_disconnect(s);
            pa_stream_unref(s);
        },
        nullptr);
}

HRESULT LoopbackStream::open()
{
    const HRESULT hr = connect();
    return FAILED(hr) ? hr : waitUntilReady();
}

HRESULT LoopbackStream::connect()
{
    const PulseServer::Lock lock(m_server);
    pa_context *const context = m_server.context();
    if (!context)
        return AUDCLNT_E_SERVICE_NOT_RUNNING;
    const auto snapshot = m_server.catalogue().snapshot();
    const SoundEndpoint *const now = snapshot->findPresent(m_sink.id);
    if (snapshot->connection != m_connection || !now || now->index != m_sink.index)
        return AUDCLNT_E_DEVICE_INVALIDATED;

    const pa_sample_spec spec {PA_SAMPLE_FLOAT32NE, m_sink.rate, m_sink.channels.channels};
    m_stream = pa_stream_new(context, "Loopback", &spec, &m_sink.channels);
    if (!m_stream)
        return AUDCLNT_E_UNSUPPORTED_FORMAT;
    pa_stream_set_state_callback(m_stream, &callback<&LoopbackStream::handleStateChange>, this);
    pa_stream_set_moved_callback(m_stream, &callback<&LoopbackStream::handleMove>, this);
    pa_stream_set_read_callback(
        m_stream,
        [](pa_stream *, std::size_t, void *self) {
            static_cast<LoopbackStream *>(self)->handleData();
        },
        this);

    pa_buffer_attr attributes {};
    attributes.maxlength = static_cast<std::uint32_t>(-1);
    attributes.fragsize = static_cast<std::uint32_t>(sizeof(float) * m_ring.packetFrames()
                                                     * m_sink.channels.channels);
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_DONT_MOVE
                                                      | PA_STREAM_ADJUST_LATENCY);
    m_server.attach(this);
    if (pa_stream_connect_record(m_stream, m_sink.monitor.c_str(), &attributes, flags) < 0)
        return AUDCLNT_E_ENDPOINT_CREATE_FAILED;
    return S_OK;
}

HRESULT LoopbackStream::waitUntilReady()
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_changed.wait_until(lock, Clock::now() + kOpenTime, [this] { return m_decided; }))
            return AUDCLNT_E_ENDPOINT_CREATE_FAILED;
    }
    const PulseServer::Lock lock(m_server);
    pa_context *const context = m_server.context();
    if (!context)
        return AUDCLNT_E_SERVICE_NOT_RUNNING;
    if (!lost())
        return S_OK;
    const int error = pa_context_errno(context);
    const bool gone = error == PA_OK || error == PA_ERR_NOENTITY || error == PA_ERR_KILLED;
    return gone ? AUDCLNT_E_DEVICE_INVALIDATED : AUDCLNT_E_ENDPOINT_CREATE_FAILED;
}

void LoopbackStream::handleStateChange()
{
    const pa_stream_state_t state = pa_stream_get_state(m_stream);
    if (state == PA_STREAM_CREATING)
        return;
    if (state != PA_STREAM_READY || !isOnMonitor())
        lose();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_decided = true;
    m_changed.notify_all();
}

void LoopbackStream::handleMove()
{
    if (!isOnMonitor())
        lose();
}

void LoopbackStream::handleSinkGone(std::uint32_t index)
{
    if (index == m_sink.index)
        lose();
}

// open() asks for a monitor, but what counts is the source that the server has connected.
bool LoopbackStream::isOnMonitor() const
{
    const char *const device = pa_stream_get_device_name(m_stream);
    return device && m_sink.monitor == device;
}

void LoopbackStream::lose()
{
    if (lost())
        return;
    m_lostAt = std::max<std::int64_t>(nanoseconds(), 1);
    if (pa_stream_get_state(m_stream) == PA_STREAM_READY)
        pa_stream_disconnect(m_stream);
}

void LoopbackStream::handleData()
{
    const UINT32 frameBytes = static_cast<UINT32>(m_sink.channels.channels * sizeof(float));
    while (pa_stream_readable_size(m_stream) > 0) {
        const void *data = nullptr;
        std::size_t bytes = 0;
        if (pa_stream_peek(m_stream, &data, &bytes) < 0 || bytes == 0)
            return;
        if (m_running && !lost()) {
            m_ring.write(data, static_cast<UINT32>(bytes / frameBytes),
                         static_cast<UINT64>(nanoseconds() / 100));
        }
        pa_stream_drop(m_stream);
    }
}

HRESULT LoopbackStream::start()
{
    const PulseServer::Lock lock(m_server);
    if (lost())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    if (m_running)
        return AUDCLNT_E_NOT_STOPPED;
    if (pa_operation *const operation = pa_stream_cork(m_stream, 0, nullptr, nullptr))
        pa_operation_unref(operation);
    m_ring.interrupt();
    m_running = true;
    return S_OK;
}

HRESULT LoopbackStream::stop()
{
    const PulseServer::Lock lock(m_server);
    if (!m_running)
        return S_FALSE;
    m_running = false;
    if (lost())
        return S_OK;
    if (pa_operation *const operation = pa_stream_cork(m_stream, 1, nullptr, nullptr))
        pa_operation_unref(operation);
    return S_OK;
}

HRESULT LoopbackStream::reset()
{
    const PulseServer::Lock lock(m_server);
    if (m_running)
        return AUDCLNT_E_NOT_STOPPED;
    m_ring.clear();
    return S_OK;
}

bool LoopbackStream::invalidated() const
{
    const std::int64_t lostAt = m_lostAt;
    if (!lostAt)
        return false;
    const std::chrono::nanoseconds passed(nanoseconds() - lostAt);
    return passed >= kListenerTime || (passed >= kNewsTime && m_server.notifier().delivered());
}
