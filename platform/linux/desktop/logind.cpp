#include "platform/linux/desktop/logind.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QStringList>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kTimeoutMs = 1000; // for one answer

QDBusMessage managerCall(const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage call = QDBusMessage::createMethodCall(Logind::service(), Logind::managerPath(),
                                                       Logind::managerInterface(), method);
    call.setArguments(arguments);
    return call;
}

/// The user's desktop; empty and nothing as ownSession() has them.
std::optional<QString> sessionOfUser(const QDBusConnection &bus)
{
    const QDBusMessage reply =
        bus.call(managerCall(QStringLiteral("ListSessions")), QDBus::Block, kTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage
        || reply.signature() != QLatin1String("a(susso)"))
        return std::nullopt;
    QStringList seated;
    const QDBusArgument list = reply.arguments().constFirst().value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        QString id;
        uint user = 0;
        QString userName;
        QString seat;
        QDBusObjectPath path;
        list.beginStructure();
        list >> id >> user >> userName >> seat >> path;
        list.endStructure();
        if (user == getuid() && !seat.isEmpty())
            seated.append(path.path());
    }
    list.endArray();
    for (const QString &path : std::as_const(seated)) {
        const QDBusReply<QVariantMap> session =
            bus.call(Logind::propertiesCall(path), QDBus::Block, kTimeoutMs);
        if (session.isValid() && Logind::isOwnAndLocal(session.value()))
            return path;
    }
    return QString();
}

} // namespace

QString Logind::service()
{
    return QStringLiteral("org.freedesktop.login1");
}

QString Logind::managerPath()
{
    return QStringLiteral("/org/freedesktop/login1");
}

QString Logind::managerInterface()
{
    return QStringLiteral("org.freedesktop.login1.Manager");
}

QString Logind::sessionInterface()
{
    return QStringLiteral("org.freedesktop.login1.Session");
}

QString Logind::propertiesInterface()
{
    return QStringLiteral("org.freedesktop.DBus.Properties");
}

// The bus library reads the variable once in a process; this function reads it at each call.
QDBusConnection Logind::connectToSystemBus(const QString &name)
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    return address.isEmpty() ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, name)
                             : QDBusConnection::connectToBus(address, name);
}

// QDBusConnectionInterface would ask the same, but wait 25 s for a bus that does not answer.
std::optional<bool> Logind::isOn(const QDBusConnection &bus)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    call.setArguments({service()});
    const QDBusReply<bool> reply = bus.call(call, QDBus::Block, kTimeoutMs);
    return reply.isValid() ? std::optional<bool>(reply.value()) : std::nullopt;
}

std::optional<QString> Logind::ownSession(const QDBusConnection &bus)
{
    const QString id = qEnvironmentVariable("XDG_SESSION_ID");
    if (!id.isEmpty()) {
        const QDBusReply<QDBusObjectPath> reply =
            bus.call(managerCall(QStringLiteral("GetSession"), {id}), QDBus::Block, kTimeoutMs);
        if (reply.isValid())
            return reply.value().path();
    }
    const QDBusReply<QDBusObjectPath> reply =
        bus.call(managerCall(QStringLiteral("GetSessionByPID"), {static_cast<uint>(getpid())}),
                 QDBus::Block, kTimeoutMs);
    return reply.isValid() ? reply.value().path() : sessionOfUser(bus);
}

QDBusMessage Logind::propertiesCall(const QString &path)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path, propertiesInterface(),
                                                       QStringLiteral("GetAll"));
    call.setArguments({sessionInterface()});
    return call;
}

bool Logind::isOwnAndLocal(const QVariantMap &session)
{
    const QDBusArgument user = session.value(QStringLiteral("User")).value<QDBusArgument>();
    if (user.currentSignature() != QLatin1String("(uo)"))
        return false;
    uint id = 0;
    QDBusObjectPath userPath;
    user.beginStructure();
    user >> id >> userPath;
    user.endStructure();
    return id == getuid() && !session.value(QStringLiteral("Remote")).toBool()
        && session.value(QStringLiteral("Class")).toString() == QLatin1String("user");
}

bool Logind::hasSeat(const QVariantMap &session)
{
    const QDBusArgument seat = session.value(QStringLiteral("Seat")).value<QDBusArgument>();
    if (seat.currentSignature() != QLatin1String("(so)"))
        return false;
    QString id;
    QDBusObjectPath path;
    seat.beginStructure();
    seat >> id >> path;
    seat.endStructure();
    return !id.isEmpty();
}
