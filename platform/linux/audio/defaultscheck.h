// Asks a sound server for its defaults over a connection of its own.
#pragma once

#include <functional>
#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/mainloop-api.h>

/// One question at a time, each over a fresh connection, which is closed with the answer. Lives on
/// the loop thread alone and never waits there.
class DefaultsCheck {
public:
    using Handler = std::function<void(const pa_server_info &)>;

    explicit DefaultsCheck(Handler handler)
        : m_handler(std::move(handler))
    {
    }
    ~DefaultsCheck() { cancel(); }
    DefaultsCheck(const DefaultsCheck &) = delete;
    DefaultsCheck &operator=(const DefaultsCheck &) = delete;

    /// Gives up a question that still has no answer. A question that fails gets no answer.
    void start(pa_mainloop_api *loop);
    void cancel();

private:
    void handleStateChange();

    const Handler m_handler;
    pa_context *m_context = nullptr; // while there is no answer
};
