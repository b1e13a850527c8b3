#include "tools/monitor/servicewatch.h"

ServiceWatch::ServiceWatch(QObject *parent)
    : QObject(parent)
{
    m_clock.start();
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &ServiceWatch::look);
    connect(&m_probe, &ServiceProbe::finished, this, &ServiceWatch::onFound);
}

void ServiceWatch::setWaiting(bool waiting)
{
    if (waiting == m_waiting)
        return;
    m_waiting = waiting;
    m_found.clear();
    m_said.clear();
    if (waiting) {
        m_timer.start(kFirstMs);
    } else {
        m_timer.stop();
        m_probe.stop();
    }
}

void ServiceWatch::lookAtOnce()
{
    if (!m_waiting)
        return;
    m_atOnce = true;
    m_timer.stop();
    look();
}

void ServiceWatch::look()
{
    m_lookStart = m_clock.elapsed();
    m_probe.start();
}

void ServiceWatch::onFound(const ProbeResult &result)
{
    m_timer.start(kAgainMs);
    const ServiceLookup lookup = lookForService();
    WaitReason reason = WaitReason::explain(lookup, result);
    if (reason.text() != m_found) {
        m_found = reason.text();
        m_foundSince = m_lookStart;
    }
    const bool settled = m_clock.elapsed() - m_foundSince >= kPatienceMs;
    if (!settled)
        reason = m_atOnce ? WaitReason::explain(lookup, result, false) : WaitReason();
    if (reason.text() == m_said && !m_atOnce)
        return;
    m_atOnce = false;
    m_said = reason.text();
    Q_EMIT explained(reason);
}
