#include "platform/linux/audio/defaultscheck.h"

#include <pulse/def.h>
#include <pulse/operation.h>

void DefaultsCheck::start(pa_mainloop_api *loop)
{
    cancel();
    m_context = pa_context_new(loop, "TonewellDetection");
    if (!m_context)
        return;
    pa_context_set_state_callback(
        m_context,
        [](pa_context *, void *self) { static_cast<DefaultsCheck *>(self)->handleStateChange(); },
        this);
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        cancel();
}

void DefaultsCheck::cancel()
{
    pa_context *const context = m_context;
    m_context = nullptr;
    if (!context)
        return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_disconnect(context); // its questions end unanswered
    pa_context_unref(context);
}

void DefaultsCheck::handleStateChange()
{
    const pa_context_state_t state = pa_context_get_state(m_context);
    if (!PA_CONTEXT_IS_GOOD(state)) {
        cancel();
        return;
    }
    if (state != PA_CONTEXT_READY)
        return;
    pa_operation *const question = pa_context_get_server_info(
        m_context,
        [](pa_context *, const pa_server_info *info, void *userdata) {
            auto *const self = static_cast<DefaultsCheck *>(userdata);
            if (info)
                self->m_handler(*info);
            self->cancel();
        },
        this);
    if (question)
        pa_operation_unref(question);
    else
        cancel();
}
