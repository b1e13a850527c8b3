#pragma once

#include "tools/monitor/serviceprobe.h"
#include "tools/monitor/waitreason.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

/// Finds out why the service is not there, for as long as it is waited for. It looks again and
/// again, but says only what has been so for 3 s: a service that just starts, be it for the second
/// time, needs no explanation.
class ServiceWatch : public QObject {
    Q_OBJECT

public:
    static constexpr int kPatienceMs = 3000;
    static constexpr int kFirstMs = 200;
    static constexpr int kAgainMs = 1000;

    explicit ServiceWatch(QObject *parent = nullptr);

    void setWaiting(bool waiting);

    /// Looks once more and says what it finds at once, as long as it is waited for.
    void lookAtOnce();

Q_SIGNALS:
    /// Another reason than before; an empty one when what was said is so no more.
    void explained(const WaitReason &reason);

private:
    void look();
    void onFound(const ProbeResult &result);

    QElapsedTimer m_clock;
    QTimer m_timer;
    ServiceProbe m_probe;
    QString m_found; ///< the reason that the last look found
    QString m_said;
    qint64 m_lookStart = 0; ///< on the clock
    qint64 m_foundSince = 0;
    bool m_waiting = false;
    bool m_atOnce = false;
};
