#pragma once

#include "tools/monitor/servicestate.h"

#include <memory>
#include <QObject>
#include <QRemoteObjectNode>
#include <QTimer>

class CommonInterfaceReplica;

/// The replica of the service. Finds the service whenever it is there, even after a source of
/// another type has been in its place.
class MessageSource : public QObject {
    Q_OBJECT

public:
    explicit MessageSource(QObject *parent = nullptr);
    ~MessageSource() override;

    ServiceState state() const { return m_state; }

Q_SIGNALS:
    void stateChanged(ServiceState state);
    void messageReceived(const QString &message);

private:
    void acquire();
    void retry();
    void onReplicaState();
    void setState(ServiceState state);

    // The replica goes before its node.
    std::unique_ptr<QRemoteObjectNode> m_node;
    std::unique_ptr<CommonInterfaceReplica> m_replica;
    QTimer m_retry;
    bool m_unanswered = false; ///< a replica that came after a refused one has heard nothing yet
    ServiceState m_state = ServiceState::Missing;
};
