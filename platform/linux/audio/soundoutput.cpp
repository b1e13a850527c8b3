#include "platform/soundoutput.h"

#include <pulse/context.h>
#include <pulse/def.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
#include <pulse/rtclock.h>
#include <pulse/subscribe.h>
#include <pulse/thread-mainloop.h>
#include <pulse/timeval.h>
#include <QByteArray>
#include <QMetaObject>

namespace {

constexpr pa_usec_t kRetryMs = 1000;

/// What servers without a device make, so that programs can play on.
constexpr char kPlaceholderSink[] = "auto_null";

/// The reply is asked for and its operation forgotten.
void forget(pa_operation *operation)
{
    if (operation)
        pa_operation_unref(operation);
}

} // namespace

/// A connection on a loop thread of its own. Its callbacks only ask the next question and post the
/// answer: server, default sink, what plays to it. An event of the server begins this row of
/// questions, or has it asked once more when it is under way.
class SoundOutput::Connection {
public:
    explicit Connection(SoundOutput *owner)
        : m_owner(owner)
        , m_loop(pa_threaded_mainloop_new())
    {
        if (!m_loop)
            return; // no descriptors: nothing is known
        connect();
        pa_threaded_mainloop_start(m_loop);
    }

    ~Connection()
    {
        if (!m_loop)
            return;
        pa_threaded_mainloop_stop(m_loop);
        if (m_retry)
            api()->time_free(m_retry);
        if (m_context)
            end();
        pa_threaded_mainloop_free(m_loop);
    }

    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

private:
    // On the loop thread, or while it does not run.

    pa_mainloop_api *api() const { return pa_threaded_mainloop_get_api(m_loop); }

    void connect()
    {
        m_asking = false;
        m_context = pa_context_new(api(), "tonewell-monitor");
        if (!m_context)
            return;
        pa_context_set_state_callback(
            m_context, [](pa_context *, void *self) { asThis(self)->onState(); }, this);
        if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
            onEnd();
    }

    void end()
    {
        pa_context_set_state_callback(m_context, nullptr, nullptr);
        pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
        m_context = nullptr;
    }

    void onState()
    {
        switch (pa_context_get_state(m_context)) {
        case PA_CONTEXT_READY: {
            pa_context_set_subscribe_callback(
                m_context,
                [](pa_context *, pa_subscription_event_type_t, std::uint32_t, void *self) {
                    asThis(self)->ask();
                },
                this);
            constexpr int events = PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK
                | PA_SUBSCRIPTION_MASK_SINK_INPUT;
            forget(pa_context_subscribe(m_context, static_cast<pa_subscription_mask_t>(events),
                                        nullptr, nullptr));
            ask();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            onEnd();
            break;
        default:
            break;
        }
    }

    void onEnd()
    {
        if (m_retry)
            return; // the state change and the failed call report the same end
        post({SoundOutputState::NoServer, {}});
        m_retry = pa_context_rttime_new(
            m_context, pa_rtclock_now() + kRetryMs * PA_USEC_PER_MSEC,
            [](pa_mainloop_api *loop, pa_time_event *event, const timeval *, void *userdata) {
                Connection *const self = asThis(userdata);
                loop->time_free(event);
                self->m_retry = nullptr;
                self->end();
                self->connect();
            },
            this);
    }

    void ask()
    {
        m_again = m_asking;
        if (m_asking)
            return;
        m_asking = true;
        forget(pa_context_get_server_info(
            m_context,
            [](pa_context *, const pa_server_info *server, void *self) {
                asThis(self)->onServer(server);
            },
            this));
    }

    void onServer(const pa_server_info *server)
    {
        if (!server || !server->default_sink_name || !*server->default_sink_name
            || QByteArray(server->default_sink_name) == kPlaceholderSink) {
            answer({SoundOutputState::NoDevice, {}});
            return;
        }
        forget(pa_context_get_sink_info_by_name(
            m_context, server->default_sink_name,
            [](pa_context *, const pa_sink_info *sink, int last, void *self) {
                asThis(self)->onSink(sink, last);
            },
            this));
    }

    void onSink(const pa_sink_info *sink, int last)
    {
        if (last != 0) {
            if (last < 0) // the server may name a default that is not there
                answer({SoundOutputState::NoDevice, {}});
            return;
        }
        m_sink = sink->index;
        m_found = {SoundOutputState::Idle,
                   QString::fromUtf8(sink->description ? sink->description : sink->name)};
        forget(pa_context_get_sink_input_info_list(
            m_context,
            [](pa_context *, const pa_sink_input_info *input, int end, void *self) {
                asThis(self)->onInput(input, end);
            },
            this));
    }

    void onInput(const pa_sink_input_info *input, int last)
    {
        if (last != 0)
            answer(m_found);
        else if (input->sink == m_sink && !input->corked)
            m_found.kind = SoundOutputState::Playing;
    }

    void answer(const SoundOutputState &state)
    {
        post(state);
        m_asking = false;
        if (m_again)
            ask();
    }

    void post(const SoundOutputState &state)
    {
        // Dropped with the owner; and the owner takes nothing from a connection that it has ended.
        QMetaObject::invokeMethod(
            m_owner,
            [owner = m_owner, state, self = this] {
                if (owner->m_connection.get() == self)
                    owner->setState(state);
            },
            Qt::QueuedConnection);
    }

    static Connection *asThis(void *self) { return static_cast<Connection *>(self); }

    SoundOutput *const m_owner;
    pa_threaded_mainloop *const m_loop;
    pa_context *m_context = nullptr;
    pa_time_event *m_retry = nullptr; ///< set between the end of a connection and the next attempt
    std::uint32_t m_sink = PA_INVALID_INDEX;
    bool m_asking = false;
    bool m_again = false; ///< something changed meanwhile
    SoundOutputState m_found; ///< of the row of questions that runs
};

SoundOutput::SoundOutput(QObject *parent)
    : QObject(parent)
{
}

SoundOutput::~SoundOutput() = default;

void SoundOutput::setActive(bool active)
{
    if (active == (m_connection != nullptr))
        return;
    m_connection = active ? std::make_unique<Connection>(this) : nullptr;
    if (!active)
        setState({});
}

void SoundOutput::setState(const SoundOutputState &state)
{
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT changed(m_state);
}
