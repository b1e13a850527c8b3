#pragma once

#include "platform/servicelookup.h"
#include "tools/monitor/serviceprobe.h"

#include <QCoreApplication>

/// Why the service is not there, as far as it can be known.
class WaitReason {
    Q_DECLARE_TR_FUNCTIONS(WaitReason)

public:
    /// Nothing is known.
    WaitReason() = default;

    /// From what the host knows and what was found at the socket. settled: false while this may
    /// just be how it starts. qtGeneration: of this program, 5 or 6.
    static WaitReason explain(const ServiceLookup &lookup, const ProbeResult &probe,
                              bool settled = true, int qtGeneration = QT_VERSION_MAJOR);

    /// One sentence for a person, without a full stop; empty if nothing is known.
    const QString &text() const { return m_text; }

    /// What would start the service: a program and its arguments; empty if that is not what lacks.
    const QStringList &startCommand() const { return m_startCommand; }

private:
    explicit WaitReason(const QString &text, const QStringList &startCommand = {})
        : m_text(text)
        , m_startCommand(startCommand)
    {
    }

    QString m_text;
    QStringList m_startCommand;
};
