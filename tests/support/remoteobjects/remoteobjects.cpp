// A stand-in for the part of Qt Remote Objects that the window uses, for builds that have only the
// headers of it: a host that listens nowhere. What the window does beside publishing can be tested
// with it; what is published, and how, cannot.
#include <QRemoteObjectHost>
#include <QRemoteObjectRegistryHost>

class QRemoteObjectNodePrivate { };
class QRemoteObjectHostBasePrivate : public QRemoteObjectNodePrivate { };
class QRemoteObjectHostPrivate : public QRemoteObjectHostBasePrivate { };

namespace {
QRemoteObjectHostPrivate s_private; // without content, and so for all
} // namespace

QRemoteObjectNode::QRemoteObjectNode(QRemoteObjectNodePrivate &, QObject *parent)
    : QObject(parent)
{
}
QRemoteObjectNode::~QRemoteObjectNode() = default;
bool QRemoteObjectNode::connectToNode(const QUrl &)
{
    return false;
}
void QRemoteObjectNode::setName(const QString &) { }
QUrl QRemoteObjectNode::registryUrl() const
{
    return {};
}
bool QRemoteObjectNode::setRegistryUrl(const QUrl &)
{
    return false;
}
QRemoteObjectAbstractPersistedStore *QRemoteObjectNode::persistedStore() const
{
    return nullptr;
}
void QRemoteObjectNode::setPersistedStore(QRemoteObjectAbstractPersistedStore *) { }
int QRemoteObjectNode::heartbeatInterval() const
{
    return 0;
}
void QRemoteObjectNode::setHeartbeatInterval(int) { }
void QRemoteObjectNode::timerEvent(QTimerEvent *) { }

QRemoteObjectHostBase::QRemoteObjectHostBase(QRemoteObjectHostBasePrivate &, QObject *parent)
    : QRemoteObjectNode(s_private, parent)
{
}
QRemoteObjectHostBase::~QRemoteObjectHostBase() = default;
void QRemoteObjectHostBase::setName(const QString &) { }
bool QRemoteObjectHostBase::enableRemoting(QObject *object, const QString &name)
{
    return object && !name.isEmpty();
}
bool QRemoteObjectHostBase::disableRemoting(QObject *)
{
    return false;
}
void QRemoteObjectHostBase::addHostSideConnection(QIODevice *) { }
QUrl QRemoteObjectHostBase::hostUrl() const
{
    return {};
}
bool QRemoteObjectHostBase::setHostUrl(const QUrl &, AllowedSchemas)
{
    return false;
}

QRemoteObjectHost::QRemoteObjectHost(QObject *parent)
    : QRemoteObjectHostBase(s_private, parent)
{
}
QRemoteObjectHost::~QRemoteObjectHost() = default;
QUrl QRemoteObjectHost::hostUrl() const
{
    return property("standInUrl").toUrl();
}
bool QRemoteObjectHost::setHostUrl(const QUrl &url, AllowedSchemas)
{
    return setProperty("standInUrl", url) || url.isValid();
}

QRemoteObjectRegistryHost::~QRemoteObjectRegistryHost() = default;
bool QRemoteObjectRegistryHost::setRegistryUrl(const QUrl &)
{
    return false;
}

QRemoteObjectAbstractPersistedStore::~QRemoteObjectAbstractPersistedStore() = default;
