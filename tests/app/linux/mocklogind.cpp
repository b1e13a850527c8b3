#include "tests/app/linux/mocklogind.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QThread>

namespace {

constexpr int kPatienceMs = 20000;

QString service()
{
    return QStringLiteral("org.freedesktop.login1");
}
QString managerPath()
{
    return QStringLiteral("/org/freedesktop/login1");
}
QString mockInterface()
{
    return QStringLiteral("org.freedesktop.DBus.Mock");
}
QString sessionInterface()
{
    return QStringLiteral("org.freedesktop.login1.Session");
}

QDBusMessage methodCall(const QString &path, const QString &interface, const char *method,
                        const QVariantList &arguments)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(service(), path, interface, QLatin1String(method));
    message.setArguments(arguments);
    return message;
}

void end(QProcess *process)
{
    if (process->state() == QProcess::NotRunning)
        return;
    process->terminate();
    if (!process->waitForFinished(kPatienceMs))
        process->kill();
}

} // namespace

MockLogind::MockLogind(bool withLogind)
{
    m_valid = startBus() && (!withLogind || startLogind());
}

MockLogind::~MockLogind()
{
    QDBusConnection::disconnectFromBus(m_connectionName);
    end(&m_logind);
    end(&m_bus);
}

bool MockLogind::startBus()
{
    static int s_number = 0;
    m_connectionName = QStringLiteral("mocklogind-%1").arg(++s_number);
    m_bus.setProcessChannelMode(QProcess::SeparateChannels);
    m_bus.start(QStringLiteral("dbus-daemon"),
                {QStringLiteral("--session"), QStringLiteral("--nofork"),
                 QStringLiteral("--print-address"), QStringLiteral("--address"),
                 QStringLiteral("unix:path=%1/bus").arg(m_folder.path())});
    if (!m_bus.waitForReadyRead(kPatienceMs))
        return false;
    // Without the "guid" that it prints: the next bus there has another one.
    m_bus.readLine();
    m_address = QStringLiteral("unix:path=%1/bus").arg(m_folder.path());
    return QDBusConnection::connectToBus(m_address, m_connectionName).isConnected();
}

bool MockLogind::startLogind()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), m_address);
    m_logind.setProcessEnvironment(environment);
    m_logind.setStandardOutputFile(QProcess::nullDevice());
    m_logind.setProcessChannelMode(QProcess::SeparateChannels);
    m_logind.start(QStringLiteral(TONEWELL_PYTHON),
                   {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--template"),
                    QStringLiteral("logind")});
    const QDeadlineTimer deadline(kPatienceMs);
    while (!answers() && !deadline.hasExpired())
        QThread::msleep(20);
    return answers();
}

void MockLogind::endLogind()
{
    end(&m_logind);
}

void MockLogind::killBus()
{
    QDBusConnection::disconnectFromBus(m_connectionName);
    m_bus.kill();
    m_bus.waitForFinished(kPatienceMs);
    end(&m_logind);
}

// The template's methods come after the name.
bool MockLogind::answers() const
{
    const QDBusConnection connection(m_connectionName);
    return connection.interface()->isServiceRegistered(service()).value()
        && connection
               .call(methodCall(managerPath(), QStringLiteral("org.freedesktop.login1.Manager"),
                                "ListSessions", {}))
               .type()
        == QDBusMessage::ReplyMessage;
}

QString MockLogind::path(const QString &id)
{
    return QStringLiteral("/org/freedesktop/login1/session/%1").arg(id);
}

QString MockLogind::addSession(const QString &id, uint user, bool remote,
                               const QString &sessionClass) const
{
    const QDBusConnection connection(m_connectionName);
    const QDBusReply<QString> reply = connection.call(
        methodCall(managerPath(), mockInterface(), "AddSession",
                   {id, QStringLiteral("seat0"), user, QStringLiteral("user%1").arg(user), true}));
    if (!reply.isValid())
        return {};
    QVariantMap changes;
    if (remote)
        changes.insert(QStringLiteral("Remote"), true);
    if (!sessionClass.isEmpty())
        changes.insert(QStringLiteral("Class"), sessionClass);
    if (!changes.isEmpty()
        && connection
                .call(methodCall(path(id), mockInterface(), "UpdateProperties",
                                 {sessionInterface(), changes}))
                .type()
            != QDBusMessage::ReplyMessage)
        return {};
    return reply.value();
}

bool MockLogind::unseat(const QString &id) const
{
    QDBusArgument none;
    none.beginStructure();
    none << QString() << QDBusObjectPath(QStringLiteral("/"));
    none.endStructure();
    return QDBusConnection(m_connectionName)
               .call(methodCall(path(id), QStringLiteral("org.freedesktop.DBus.Properties"), "Set",
                                {sessionInterface(), QStringLiteral("Seat"),
                                 QVariant::fromValue(QDBusVariant(QVariant::fromValue(none)))}))
               .type()
        == QDBusMessage::ReplyMessage;
}

bool MockLogind::emitManagerSignal(const char *name, const QString &id) const
{
    const QVariantList arguments {
        QVariant::fromValue(QDBusVariant(id)),
        QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusObjectPath(path(id)))))};
    return QDBusConnection(m_connectionName)
               .call(methodCall(managerPath(), mockInterface(), "EmitSignal",
                                {QStringLiteral("org.freedesktop.login1.Manager"),
                                 QLatin1String(name), QStringLiteral("so"), arguments}))
               .type()
        == QDBusMessage::ReplyMessage;
}

bool MockLogind::callSession(const QString &id, const char *method) const
{
    return QDBusConnection(m_connectionName)
               .call(methodCall(path(id), sessionInterface(), method, {}))
               .type()
        == QDBusMessage::ReplyMessage;
}

bool MockLogind::changeProperty(const QString &id, const char *name, bool value) const
{
    const QVariantMap changes {{QLatin1String(name), value}};
    return QDBusConnection(m_connectionName)
               .call(methodCall(path(id), mockInterface(), "UpdateProperties",
                                {sessionInterface(), changes}))
               .type()
        == QDBusMessage::ReplyMessage;
}
