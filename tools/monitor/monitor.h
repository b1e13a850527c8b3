#pragma once

#include "tools/monitor/messagerecorder.h"
#include "tools/monitor/messagesource.h"
#include "tools/monitor/monitormodel.h"
#include "tools/monitor/servicewatch.h"

#include <QObject>

/// Brings the service's messages into the model, and into a recording if there is one; and, when
/// there is nothing to be seen, why.
class Monitor : public QObject {
    Q_OBJECT

public:
    /// recorder: null, or open and living longer than this.
    explicit Monitor(MessageRecorder *recorder, QObject *parent = nullptr);

    MonitorModel *model() { return &m_model; }

    /// Looks at once why the service is not there, instead of after some seconds. `changed` says
    /// that the model knows, or that the service has come meanwhile. Only while it is missing.
    void explain() { m_watch.lookAtOnce(); }

    /// Milliseconds of the clock of the model's times; it never runs backwards.
    static double now();

Q_SIGNALS:
    /// A new reading, or another state of the service.
    void changed();
    /// Once: the first message was understood.
    void started();
    /// Emitted once, when a message could not be recorded. No message is recorded after that.
    void recordingFailed(const QString &error);

private:
    void onMessage(const QString &message);
    void askWhySilent(bool silent);
    void onStateChanged(ServiceState state);

    MessageRecorder *m_recorder;
    MonitorModel m_model;
    MessageSource m_source;
    ServiceWatch m_watch;
    SoundOutput m_output;
    bool m_asked = false; ///< why it is silent
};
