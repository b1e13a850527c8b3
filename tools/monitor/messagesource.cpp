#include "messagesource.h"

#include <QUrl>

// Generated from the service's commoninterface.rep.
#include "rep_commoninterface_replica.h"

namespace {
constexpr int s_retryInterval = 1000; // ms
} // namespace

MessageSource::MessageSource(QObject *parent)
    : QObject(parent)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &MessageSource::acquire);
    acquire();
}

MessageSource::~MessageSource() = default;

void MessageSource::acquire()
{
    m_replica.reset();
    m_node = std::make_unique<QRemoteObjectNode>();
    m_node->connectToNode(QUrl(QStringLiteral("local:tonewell")));
    m_replica.reset(m_node->acquire<CommonInterfaceReplica>(QStringLiteral("Tonewell")));
    connect(m_replica.get(), &CommonInterfaceReplica::sigMessage, this,
            &MessageSource::messageReceived);
    connect(m_replica.get(), &CommonInterfaceReplica::stateChanged, this,
            &MessageSource::onReplicaState);
}

void MessageSource::onReplicaState()
{
    ServiceState now = ServiceState::Missing;
    switch (m_replica->state()) {
    case QRemoteObjectReplica::Valid:
        now = ServiceState::Connected;
        break;
    case QRemoteObjectReplica::SignatureMismatch:
        // A replica that was refused once stays so: only a new one finds the service in that place.
        now = ServiceState::OtherType;
        m_retry.start(s_retryInterval);
        break;
    default:
        break;
    }
    if (now == m_state)
        return;
    m_state = now;
    Q_EMIT stateChanged(m_state);
}
