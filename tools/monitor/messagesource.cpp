#include "tools/monitor/messagesource.h"

#include <QUrl>

// Generated from the service's commoninterface.rep.
#include "rep_commoninterface_replica.h"

namespace {
constexpr int kRetryIntervalMs = 1000;
} // namespace

MessageSource::MessageSource(QObject *parent)
    : QObject(parent)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &MessageSource::retry);
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

void MessageSource::retry()
{
    if (m_unanswered) { // the source that did not fit is gone; this replica goes on looking
        m_unanswered = false;
        setState(ServiceState::Missing);
        return;
    }
    acquire();
    m_unanswered = true;
    m_retry.start(kRetryIntervalMs);
}

void MessageSource::onReplicaState()
{
    m_unanswered = false;
    m_retry.stop();
    ServiceState now = ServiceState::Missing;
    switch (m_replica->state()) {
    case QRemoteObjectReplica::Valid:
        now = ServiceState::Connected;
        break;
    case QRemoteObjectReplica::SignatureMismatch:
        // A replica that met another type stays useless: only a new one finds the service there.
        now = ServiceState::OtherType;
        m_retry.start(kRetryIntervalMs);
        break;
    default:
        break;
    }
    setState(now);
}

void MessageSource::setState(ServiceState state)
{
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT stateChanged(m_state);
}
