#include "remote/consumerguard.h"

#include "platform/descriptors.h"

#include <QLocalSocket>
#include <QRemoteObjectHostBase>
#include <QTimer>

namespace {

constexpr int kIntervalMs = 1000;

/// The host's listener; null for a host without one. Its type is private to the library.
QObject *listenerOf(QObject *host)
{
    const auto children = host->findChildren<QObject *>();
    for (QObject *child : children) {
        if (child->inherits("QConnectionAbstractServer"))
            return child;
    }
    return nullptr;
}

} // namespace

ConsumerGuard::ConsumerGuard(QRemoteObjectHostBase *host)
    : QObject(host)
{
    // This slot runs after the host's own, which takes the connection in.
    if (QObject *const listener = listenerOf(host))
        connect(listener, SIGNAL(newConnection()), this, SLOT(admitNewest()));
    auto *const timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &ConsumerGuard::dropSlowOnes);
    timer->start(kIntervalMs);
}

void ConsumerGuard::admitNewest()
{
    const auto sockets = parent()->findChildren<QLocalSocket *>();
    for (QLocalSocket *socket : sockets) {
        if (socket->readBufferSize() != 0)
            continue;
        socket->setReadBufferSize(kLimitBytes);
        if (freeDescriptors() < kReserve)
            socket->abort();
    }
}

void ConsumerGuard::dropSlowOnes()
{
    const auto sockets = parent()->findChildren<QLocalSocket *>();
    for (QLocalSocket *socket : sockets) {
        // abort(), unlike close(), does not wait until the consumer has read everything.
        if (socket->bytesToWrite() > kLimitBytes || socket->bytesAvailable() >= kLimitBytes)
            socket->abort();
    }
}
