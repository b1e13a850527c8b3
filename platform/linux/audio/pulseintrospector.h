// Keeps a catalogue of the endpoints of a connected sound server up to date.
#pragma once

#include "platform/linux/audio/defaultscheck.h"
#include "platform/linux/audio/endpointcatalogue.h"

#include <functional>
#include <optional>
#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop-api.h>
#include <pulse/subscribe.h>
#include <string>

/// Subscribes to the server's events and asks for what they are about. Lives on the loop thread
/// alone and never waits there.
class PulseIntrospector {
public:
    explicit PulseIntrospector(EndpointCatalogue *catalogue)
        : m_catalogue(catalogue)
    {
    }

    /// Called with the index of each sink that vanishes.
    void setSinkGoneHandler(std::function<void(std::uint32_t)> handler)
    {
        m_sinkGone = std::move(handler);
    }

    /// For a connection that has become ready. Once everything has been asked for and answered,
    /// the catalogue is complete.
    void start(pa_context *context, pa_mainloop_api *loop);

    /// The connection has ended; answers that are still to come are ignored.
    void stop();

private:
    enum Part : unsigned { Sinks = 1, Sources = 2, Defaults = 4 };

    void handleEvent(pa_subscription_event_type_t event, std::uint32_t index);
    void handleTimer();
    void askForDefaults();
    void readSink(const pa_sink_info &info);
    void readSource(const pa_source_info &info);
    void readDefaults(const pa_server_info &info);
    void readCheckedDefaults(const pa_server_info &info);
    void finish(unsigned part);
    static void answerWithSink(pa_context *, const pa_sink_info *info, int end, void *self);
    static void answerWithSource(pa_context *, const pa_source_info *info, int end, void *self);

    struct DefaultIds {
        explicit DefaultIds(const pa_server_info &info);
        bool operator==(const DefaultIds &other) const
        {
            return render == other.render && capture == other.capture;
        }

        std::wstring render;
        std::wstring capture;
    };

    EndpointCatalogue *const m_catalogue;
    std::function<void(std::uint32_t)> m_sinkGone;
    pa_context *m_context = nullptr;
    pa_mainloop_api *m_loop = nullptr;
    pa_time_event *m_timer = nullptr; // while there is a connection
    bool m_asking = false; // a question for the defaults has no answer yet
    bool m_askAgain = false; // something happened since it was asked
    std::optional<DefaultIds> m_told; // over the connection
    DefaultsCheck m_check {[this](const pa_server_info &info) { readCheckedDefaults(info); }};
    bool m_checks = false; // whether this server needs them
    int m_ticksToCheck = 0; // asking intervals to the next one; 0: no check is due
    unsigned m_missing = 0; // the parts whose answers the first complete catalogue still waits for
};
