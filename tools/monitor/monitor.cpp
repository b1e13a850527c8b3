#include "tools/monitor/monitor.h"

#include <chrono>

Monitor::Monitor(MessageRecorder *recorder, QObject *parent)
    : QObject(parent)
    , m_recorder(recorder)
{
    connect(&m_source, &MessageSource::messageReceived, this, &Monitor::onMessage);
    connect(&m_source, &MessageSource::stateChanged, this, &Monitor::onStateChanged);
    connect(&m_watch, &ServiceWatch::explained, this, [this](const WaitReason &reason) {
        m_model.setWaitReason(reason);
        Q_EMIT changed();
    });
    connect(&m_output, &SoundOutput::changed, this, [this](const SoundOutputState &state) {
        m_model.setSoundOutput(state);
        Q_EMIT changed();
    });
    m_watch.setWaiting(true);
}

double Monitor::now()
{
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(time).count();
}

void Monitor::onMessage(const QString &message)
{
    const double time = now();
    if (!m_model.addMessage(message, time))
        return;
    if (m_recorder && !m_recorder->write(m_model.reading(), time)) {
        const QString error = m_recorder->errorText();
        m_recorder = nullptr;
        Q_EMIT recordingFailed(error);
    }
    askWhySilent(m_model.isSilent(time));
    if (m_model.statistics().messages() == 1)
        Q_EMIT started();
    Q_EMIT changed();
}

void Monitor::onStateChanged(ServiceState state)
{
    m_model.setState(state);
    m_watch.setWaiting(state == ServiceState::Missing);
    if (state != ServiceState::Connected)
        askWhySilent(false);
    Q_EMIT changed();
}

void Monitor::askWhySilent(bool silent)
{
    if (silent == m_asked)
        return;
    m_asked = silent;
    if (silent)
        m_model.setServiceHearsElsewhere(lookForService().hearsElsewhere);
    m_output.setActive(silent);
}
