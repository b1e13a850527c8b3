#pragma once

#include <QObject>
#include <QRemoteObjectNode>
#include <QTimer>

#include <memory>

class CommonInterfaceReplica;

/// The service, as seen from here: a replica that finds the service whenever it is there.
class MessageSource : public QObject {
    Q_OBJECT

public:
    enum State {
        Missing, ///< not there, or gone; the search goes on by itself
        OtherType, ///< what answered last is of another type; the search goes on here, too
        Connected
    };
    Q_ENUM(State)

    explicit MessageSource(QObject *parent = nullptr);
    ~MessageSource() override;

    State state() const { return m_state; }

Q_SIGNALS:
    void stateChanged(MessageSource::State state);
    void messageReceived(const QString &message);

private:
    void acquire();
    void onReplicaState();

    // The replica goes before its node.
    std::unique_ptr<QRemoteObjectNode> m_node;
    std::unique_ptr<CommonInterfaceReplica> m_replica;
    QTimer m_retry;
    State m_state = Missing;
};
