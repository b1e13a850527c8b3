#pragma once

#include <QObject>
#include <QRemoteObjectNode>
#include <QScopedPointer>

class CommonInterfaceReplica;

/// The service, as seen from here: a replica that finds the service whenever it is there.
class MessageSource : public QObject {
    Q_OBJECT

public:
    enum State {
        Missing, ///< not there, or gone; the search goes on by itself
        OtherType, ///< something answers that is of another type; final
        Connected
    };
    Q_ENUM(State)

    explicit MessageSource(QObject *parent = nullptr);
    ~MessageSource() override;

    State state() const;

Q_SIGNALS:
    void stateChanged(MessageSource::State state);
    void messageReceived(const QString &message);

private:
    QRemoteObjectNode m_node;
    QScopedPointer<CommonInterfaceReplica> m_replica;
};
