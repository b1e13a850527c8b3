#include "messagesource.h"

#include <QUrl>

// Generated from the service's commoninterface.rep.
#include "rep_commoninterface_replica.h"

MessageSource::MessageSource(QObject *parent)
    : QObject(parent)
{
    m_node.connectToNode(QUrl(QStringLiteral("local:tonewell")));
    m_replica.reset(m_node.acquire<CommonInterfaceReplica>(QStringLiteral("Tonewell")));
    connect(m_replica.data(), &CommonInterfaceReplica::sigMessage, this,
            &MessageSource::messageReceived);
    connect(m_replica.data(), &CommonInterfaceReplica::stateChanged, this,
            [this] { Q_EMIT stateChanged(state()); });
}

MessageSource::~MessageSource() = default;

MessageSource::State MessageSource::state() const
{
    switch (m_replica->state()) {
    case QRemoteObjectReplica::Valid:
        return Connected;
    case QRemoteObjectReplica::SignatureMismatch:
        return OtherType;
    default:
        return Missing;
    }
}
