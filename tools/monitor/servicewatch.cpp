#include "tools/monitor/servicewatch.h"

ServiceWatch::ServiceWatch(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, &m_probe, &ServiceProbe::start);
    connect(&m_probe, &ServiceProbe::finished, this, [this](const ProbeResult &result) {
        m_timer.start(kAgainMs);
        Q_EMIT explained(WaitReason::explain(lookForService(), result));
    });
}

void ServiceWatch::setWaiting(bool waiting)
{
    if (waiting == m_waiting)
        return;
    m_waiting = waiting;
    if (waiting) {
        m_timer.start(kFirstMs);
    } else {
        m_timer.stop();
        m_probe.stop();
    }
}
