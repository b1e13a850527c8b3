#include "tools/monitor/monitor.h"

#include <chrono>

Monitor::Monitor(MessageRecorder *recorder, QObject *parent)
    : QObject(parent)
    , m_recorder(recorder)
{
    connect(&m_source, &MessageSource::messageReceived, this, &Monitor::onMessage);
    connect(&m_source, &MessageSource::stateChanged, this, &Monitor::onStateChanged);
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
    if (m_model.statistics().messages() == 1)
        Q_EMIT started();
    Q_EMIT changed();
}

void Monitor::onStateChanged(ServiceState state)
{
    m_model.setState(state);
    Q_EMIT changed();
}
