// What is asked of logind, and of the bus that it is on.
#pragma once

#include <optional>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QVariantMap>

/// The functions that ask wait for the answer, 1 s at most for each question, and may be called on
/// any thread.
namespace Logind {

QString service();
QString managerPath();
QString managerInterface();
QString sessionInterface();
QString propertiesInterface();

/// Opens a new connection of that name to the system bus, or to the bus that
/// DBUS_SYSTEM_BUS_ADDRESS names; one that is not connected, promptly, where there is none. Only a
/// bus that takes connections and never greets holds the call up, for as long as the bus library
/// waits (25 s).
QDBusConnection connectToSystemBus(const QString &name);

/// Whether logind is on the bus; nothing when the bus does not answer.
std::optional<bool> isOn(const QDBusConnection &bus);

/// The object path of the session to follow: the one of XDG_SESSION_ID, else the one this process
/// belongs to, else (a service of the user belongs to none) the user's desktop, the first session
/// at the machine itself that has a seat. Empty when there is none, nothing when logind does not
/// answer.
std::optional<QString> ownSession(const QDBusConnection &bus);

/// The call whose answer, a QVariantMap, describes the session of that path.
QDBusMessage propertiesCall(const QString &path);

/// Of a described session: whether this user sits at the machine itself, in neither a remote nor a
/// background session.
bool isOwnAndLocal(const QVariantMap &session);

/// Of a described session: whether it has a seat. Only such a one has a desktop that is locked and
/// unlocked, and connected to the console.
bool hasSeat(const QVariantMap &session);

} // namespace Logind
