#include "platform/linux/audio/pulseintrospector.h"

#include <algorithm>
#include <cstring>
#include <pulse/def.h>
#include <pulse/operation.h>
#include <pulse/rtclock.h>
#include <pulse/timeval.h>

namespace {

// PipeWire does not always tell a connection of a new default. It compares the default with the one
// that it told last, and that one can be out of date when devices have just come and gone. And it
// keeps a change from a connection if it happens at the very moment at which another client comes.
// So the introspector asks now and then. After devices have changed a fresh connection asks as
// well, because the server tells the truth to a new connection.
constexpr pa_usec_t kAskingIntervalUs = 500 * PA_USEC_PER_MSEC;
constexpr int kTicksToFirstCheck = 2; // after the last event, in asking intervals
constexpr int kTicksToNextCheck = 4; // while the answers differ or tell of no present sink

// Whether nothing is plugged into any port. A server switches to another port of the device by
// itself, so one port without a plug says nothing yet.
template <class Info> bool isUnplugged(const Info &info)
{
    return info.n_ports > 0
        && std::all_of(info.ports, info.ports + info.n_ports,
                       [](const auto *port) { return port->available == PA_PORT_AVAILABLE_NO; });
}

template <class Info> SoundEndpoint endpointFrom(EDataFlow flow, const Info &info)
{
    SoundEndpoint endpoint;
    endpoint.flow = flow;
    endpoint.index = info.index;
    endpoint.id = wideText(info.name);
    endpoint.name = wideText(info.description);
    endpoint.description = info.active_port && info.active_port->description
        ? wideText(info.active_port->description)
        : endpoint.name;
    endpoint.state = isUnplugged(info) ? DEVICE_STATE_UNPLUGGED : DEVICE_STATE_ACTIVE;
    endpoint.rate = info.sample_spec.rate;
    endpoint.channels = info.channel_map;
    endpoint.channelMask = orderChannels(&endpoint.channels);
    return endpoint;
}

// Nobody waits for the operation itself; its answer comes to the callback.
void letRun(pa_operation *operation)
{
    if (operation)
        pa_operation_unref(operation);
}

} // namespace

void PulseIntrospector::start(pa_context *context, pa_mainloop_api *loop)
{
    m_context = context;
    m_loop = loop;
    m_catalogue->begin();
    m_missing = Sinks | Sources | Defaults;

    pa_context_set_subscribe_callback(
        context,
        [](pa_context *, pa_subscription_event_type_t event, std::uint32_t index, void *self) {
            static_cast<PulseIntrospector *>(self)->handleEvent(event, index);
        },
        this);
    const auto mask = static_cast<pa_subscription_mask_t>(
        PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER);
    letRun(pa_context_subscribe(context, mask, nullptr, nullptr));

    letRun(pa_context_get_sink_info_list(
        context,
        [](pa_context *c, const pa_sink_info *info, int end, void *self) {
            answerWithSink(c, info, end, self);
            if (end)
                static_cast<PulseIntrospector *>(self)->finish(Sinks);
        },
        this));
    letRun(pa_context_get_source_info_list(
        context,
        [](pa_context *c, const pa_source_info *info, int end, void *self) {
            answerWithSource(c, info, end, self);
            if (end)
                static_cast<PulseIntrospector *>(self)->finish(Sources);
        },
        this));
    m_asking = false;
    m_told.reset();
    m_checks = false;
    m_ticksToCheck = 0;
    askForDefaults();
    m_timer = pa_context_rttime_new(
        context, pa_rtclock_now() + kAskingIntervalUs,
        [](pa_mainloop_api *, pa_time_event *, const timeval *, void *self) {
            static_cast<PulseIntrospector *>(self)->handleTimer();
        },
        this);
}

void PulseIntrospector::stop()
{
    m_context = nullptr;
    m_check.cancel();
    if (m_timer)
        m_loop->time_free(m_timer);
    m_timer = nullptr;
}

void PulseIntrospector::handleTimer()
{
    pa_context_rttime_restart(m_context, m_timer, pa_rtclock_now() + kAskingIntervalUs);
    if (!m_asking)
        askForDefaults();
    if (m_checks && m_ticksToCheck > 0 && --m_ticksToCheck == 0) {
        m_ticksToCheck = kTicksToNextCheck; // unless this check finds that all is well
        m_check.start(m_loop);
    }
}

void PulseIntrospector::finish(unsigned part)
{
    if (!m_context || !(m_missing & part))
        return;
    m_missing &= ~part;
    if (!m_missing)
        m_catalogue->complete();
}

void PulseIntrospector::handleEvent(pa_subscription_event_type_t event, std::uint32_t index)
{
    if (!m_context)
        return;
    const unsigned facility = event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const bool gone = (event & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_REMOVE;
    if (facility == PA_SUBSCRIPTION_EVENT_SINK) {
        if (gone) {
            m_catalogue->remove(eRender, index);
            m_sinkGone(index);
        } else {
            letRun(pa_context_get_sink_info_by_index(m_context, index, &answerWithSink, this));
        }
    } else if (facility == PA_SUBSCRIPTION_EVENT_SOURCE) {
        if (gone)
            m_catalogue->remove(eCapture, index);
        else
            letRun(pa_context_get_source_info_by_index(m_context, index, &answerWithSource, this));
    }
    m_ticksToCheck = kTicksToFirstCheck;
    askForDefaults();
}

void PulseIntrospector::askForDefaults()
{
    if (m_asking) {
        m_askAgain = true;
        return;
    }
    m_asking = true;
    m_askAgain = false;
    letRun(pa_context_get_server_info(
        m_context,
        [](pa_context *, const pa_server_info *info, void *userdata) {
            auto *const self = static_cast<PulseIntrospector *>(userdata);
            if (self->m_context && info)
                self->readDefaults(*info);
            self->finish(Defaults);
            self->m_asking = false;
            if (self->m_askAgain && self->m_context)
                self->askForDefaults();
        },
        this));
}

void PulseIntrospector::answerWithSink(pa_context *, const pa_sink_info *info, int end, void *self)
{
    // A negative end: the sink went before the question was read. Its removal is an event too.
    if (end == 0)
        static_cast<PulseIntrospector *>(self)->readSink(*info);
}

void PulseIntrospector::answerWithSource(pa_context *, const pa_source_info *info, int end,
                                         void *self)
{
    if (end == 0)
        static_cast<PulseIntrospector *>(self)->readSource(*info);
}

void PulseIntrospector::readSink(const pa_sink_info &info)
{
    if (!m_context)
        return;
    SoundEndpoint endpoint = endpointFrom(eRender, info);
    if (info.monitor_source_name)
        endpoint.monitor = info.monitor_source_name;
    m_catalogue->update(std::move(endpoint));
}

void PulseIntrospector::readSource(const pa_source_info &info)
{
    if (m_context && info.monitor_of_sink == PA_INVALID_INDEX)
        m_catalogue->update(endpointFrom(eCapture, info));
}

PulseIntrospector::DefaultIds::DefaultIds(const pa_server_info &info)
    : render(wideText(info.default_sink_name))
    , capture(wideText(info.default_source_name))
{
}

void PulseIntrospector::readDefaults(const pa_server_info &info)
{
    m_checks = info.server_name && std::strstr(info.server_name, "PipeWire");
    DefaultIds told(info);
    if (!m_catalogue->isPresent(eRender, told.render) && m_ticksToCheck == 0)
        m_ticksToCheck = kTicksToNextCheck;
    if (m_told && told == *m_told)
        return; // a check may have found a newer default since
    m_catalogue->setDefaults(told.render, told.capture);
    m_told = std::move(told);
}

void PulseIntrospector::readCheckedDefaults(const pa_server_info &info)
{
    const DefaultIds checked(info);
    const bool agree = m_told && checked == *m_told;
    m_ticksToCheck =
        agree && m_catalogue->isPresent(eRender, checked.render) ? 0 : kTicksToNextCheck;
    m_catalogue->setDefaults(checked.render, checked.capture);
}
