#include "remote/consumergate.h"

#include "platform/descriptors.h"
#include "platform/heap.h"
#include "remote/consumer.h"
#include "remote/listenfailure.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QRemoteObjectHost>
#include <QTimer>
#include <QUrl>

ConsumerGate::ConsumerGate(QRemoteObjectHost *host, const QUrl &url, const QString &objectName)
    : QObject(host)
    , m_host(host)
    , m_objectName(objectName)
    , m_name(url.path())
{
    // A scheme that the host does not know: it then leaves the listening to others.
    host->setHostUrl(QUrl(QStringLiteral("gate:")), QRemoteObjectHost::AllowExternalRegistration);
    m_tidy.setSingleShot(true);
    m_tidy.setInterval(kTidyMs);
    connect(&m_tidy, &QTimer::timeout, this, &returnFreeMemory);
    listen();
    auto *const timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &ConsumerGate::listen);
    timer->start(kListenAgainMs);
}

ConsumerGate::~ConsumerGate() = default;

void ConsumerGate::listen()
{
    // One that fails to accept closes itself and goes on saying that it listens.
    if (m_server && m_server->errorString().isEmpty())
        return;
    m_server = std::make_unique<QLocalServer>();
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    connect(m_server.get(), &QLocalServer::newConnection, this, &ConsumerGate::admit);
    if (m_server->listen(m_name)) {
        m_failures = 0;
        return;
    }
    ++m_failures;
    if (m_failures == 2)
        Q_EMIT listeningFails(listenFailure(m_name, m_server->errorString()));
    if (m_failures == kMostAttempts)
        Q_EMIT gaveUp();
}

void ConsumerGate::admit()
{
    QLocalSocket *const socket = m_server->nextPendingConnection();
    if (isFull()) {
        delete socket;
        return;
    }
    auto *const consumer = new Consumer(socket, m_objectName, this);
    connect(consumer, &Consumer::caughtUp, this, &ConsumerGate::tidySoon);
    connect(consumer, &QObject::destroyed, this, &ConsumerGate::tidySoon);
    m_host->addHostSideConnection(consumer);
    // The device that the host has just made for it does not notice by itself that it is gone.
    QObject *const device = m_host->children().constLast();
    connect(consumer, SIGNAL(disconnected()), device, SIGNAL(disconnected()), Qt::UniqueConnection);
}

bool ConsumerGate::isFull() const
{
    const auto others = findChildren<Consumer *>(QString(), Qt::FindDirectChildrenOnly).size();
    return others >= kMostConsumers || (others > 0 && freeDescriptors() < kSpareDescriptors);
}

void ConsumerGate::tidySoon()
{
    // Not put off by the next one: they may leave one after the other for hours.
    if (!m_tidy.isActive())
        m_tidy.start();
}
