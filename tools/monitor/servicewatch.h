#pragma once

#include "tools/monitor/serviceprobe.h"
#include "tools/monitor/waitreason.h"

#include <QObject>
#include <QTimer>

/// Finds out why the service is not there, for as long as it is waited for: first after 3 s, since
/// a service that just starts needs no explanation, and then again and again.
class ServiceWatch : public QObject {
    Q_OBJECT

public:
    static constexpr int kFirstMs = 3000;
    static constexpr int kAgainMs = 2000;

    explicit ServiceWatch(QObject *parent = nullptr);

    void setWaiting(bool waiting);

Q_SIGNALS:
    void explained(const WaitReason &reason);

private:
    QTimer m_timer;
    ServiceProbe m_probe;
    bool m_waiting = false;
};
