#include "monitor.h"

Monitor::Monitor(TerminalView *view, int interval, QObject *parent)
    : QObject(parent)
    , m_view(view)
{
    m_reading.bars.resize(s_barCount);
    m_clock.start();
    connect(&m_source, &MessageSource::messageReceived, this, &Monitor::onMessage);
    connect(&m_source, &MessageSource::stateChanged, this, &Monitor::onStateChanged);
    connect(&m_timer, &QTimer::timeout, this, &Monitor::showNewest);
    m_timer.start(interval);
}

void Monitor::onMessage(const QString &message)
{
    if (readSpectrumMessage(message, &m_reading))
        m_statistics.addMessage(double(m_clock.nsecsElapsed()) * 1e-6);
    else
        m_statistics.addBadMessage();
}

void Monitor::onStateChanged(MessageSource::State state)
{
    if (state != MessageSource::Connected)
        m_statistics.interrupt();
}

void Monitor::showNewest()
{
    const double now = double(m_clock.nsecsElapsed()) * 1e-6;
    if (now - m_rateTime >= 1000.0) {
        m_rate = double(m_statistics.messages() - m_shown) * 1000.0 / (now - m_rateTime);
        m_shown = m_statistics.messages();
        m_rateTime = now;
    }
    m_view->show(m_reading, status());
}

QString Monitor::status() const
{
    QString text = QStringLiteral("%1 s  ").arg(double(m_clock.elapsed()) / 1000.0, 6, 'f', 1);
    switch (m_source.state()) {
    case MessageSource::Missing:
        text += QStringLiteral("waiting for the service");
        break;
    case MessageSource::OtherType:
        text += QStringLiteral("what answers is of another type");
        break;
    case MessageSource::Connected:
        text += QStringLiteral("%1 a second").arg(m_rate, 5, 'f', 1);
        break;
    }
    if (m_statistics.badMessages() > 0)
        text += QStringLiteral("  bad messages: %1").arg(m_statistics.badMessages());
    return text;
}
