#include "platform/linux/desktop/sessionnotifier.h"

#include "platform/qtgeneration.h"

#include <windows.h>
#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QGuiApplication>
#include <qpa/qwindowsysteminterface.h>
#include <QPointer>
#include <QWindow>
#include <unistd.h>
#include <utility>
#include <wtsapi32.h>

namespace {

constexpr int kTimeoutMs = 1000; // for one answer of logind

QString service()
{
    return QStringLiteral("org.freedesktop.login1");
}
QString managerPath()
{
    return QStringLiteral("/org/freedesktop/login1");
}
QString managerInterface()
{
    return QStringLiteral("org.freedesktop.login1.Manager");
}
QString sessionInterface()
{
    return QStringLiteral("org.freedesktop.login1.Session");
}
QString propertiesInterface()
{
    return QStringLiteral("org.freedesktop.DBus.Properties");
}

QDBusMessage managerCall(const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(service(), managerPath(), managerInterface(), method);
    call.setArguments(arguments);
    return call;
}

/// logind escapes a path element's leading digit and every character beyond letters and digits.
LPARAM sessionNumber(const QString &path)
{
    QString name = path.section(QLatin1Char('/'), -1);
    if (name.startsWith(QLatin1String("_3")) && name.size() > 2)
        name = name.mid(2);
    bool ok = false;
    const uint number = name.toUInt(&ok);
    return ok ? static_cast<LPARAM>(number) : 0;
}

/// Opens a new connection. The bus library reads the variable once in a process; this function
/// reads it at each call.
QDBusConnection connectToSystemBus(const QString &name)
{
    const QString address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS");
    return address.isEmpty() ? QDBusConnection::connectToBus(QDBusConnection::SystemBus, name)
                             : QDBusConnection::connectToBus(address, name);
}

/// QDBusConnectionInterface would ask the same, but wait 25 s for a bus that does not answer.
bool isLogindOn(const QDBusConnection &bus)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    call.setArguments({service()});
    const QDBusReply<bool> reply = bus.call(call, QDBus::Block, kTimeoutMs);
    return reply.isValid() && reply.value();
}

QDBusMessage propertiesCall(const QString &path)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path, propertiesInterface(),
                                                       QStringLiteral("GetAll"));
    call.setArguments({sessionInterface()});
    return call;
}

/// Whether this user sits at the machine itself: neither a remote nor a background session.
bool isOwnAndLocal(const QVariantMap &session)
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

/// Only a session with a seat has a desktop that is locked and unlocked, and connected to the
/// console.
bool hasSeat(const QVariantMap &session)
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

QWindow *windowOf(HWND handle)
{
    const QWindowList windows = QGuiApplication::allWindows();
    for (QWindow *window : windows) {
        // winId() would create the native window where there is none yet.
        if (window->handle() && window->winId() == reinterpret_cast<WId>(handle))
            return window;
    }
    return nullptr;
}

} // namespace

BOOL WTSRegisterSessionNotification(HWND window, DWORD flags)
{
    if (!window || flags != NOTIFY_FOR_THIS_SESSION)
        return FALSE;
    SessionNotifier *const notifier = SessionNotifier::connected();
    if (!notifier)
        return FALSE;
    notifier->addWindow(window);
    return TRUE;
}

SessionNotifier *SessionNotifier::connected()
{
    static QPointer<SessionNotifier> s_notifier;
    if (s_notifier && s_notifier->m_bus.isConnected())
        return s_notifier;
    delete s_notifier;

    const QString name = QStringLiteral("tonewell-session");
    const QDBusConnection bus = connectToSystemBus(name);
    if (!bus.isConnected() || !isLogindOn(bus)) {
        QDBusConnection::disconnectFromBus(name);
        return nullptr;
    }
    s_notifier = new SessionNotifier(bus, QCoreApplication::instance());
    return s_notifier;
}

SessionNotifier::SessionNotifier(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    m_bus.connect(service(), managerPath(), managerInterface(), QStringLiteral("SessionNew"), this,
                  SLOT(onSessionNew(QDBusMessage)));
    m_bus.connect(service(), managerPath(), managerInterface(), QStringLiteral("SessionRemoved"),
                  this, SLOT(onSessionRemoved(QDBusMessage)));
    follow(ownSession());
}

SessionNotifier::~SessionNotifier()
{
    const QString name = m_bus.name();
    leave();
    QDBusConnection::disconnectFromBus(name);
}

void SessionNotifier::addWindow(HWND window)
{
    if (!m_windows.contains(window))
        m_windows.append(window);
}

QString SessionNotifier::ownSession() const
{
    const QString id = qEnvironmentVariable("XDG_SESSION_ID");
    if (!id.isEmpty()) {
        const QDBusReply<QDBusObjectPath> reply =
            m_bus.call(managerCall(QStringLiteral("GetSession"), {id}), QDBus::Block, kTimeoutMs);
        if (reply.isValid())
            return reply.value().path();
    }
    const QDBusReply<QDBusObjectPath> reply =
        m_bus.call(managerCall(QStringLiteral("GetSessionByPID"), {static_cast<uint>(getpid())}),
                   QDBus::Block, kTimeoutMs);
    return reply.isValid() ? reply.value().path() : sessionOfUser();
}

QString SessionNotifier::sessionOfUser() const
{
    const QDBusMessage reply =
        m_bus.call(managerCall(QStringLiteral("ListSessions")), QDBus::Block, kTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage
        || reply.signature() != QLatin1String("a(susso)"))
        return {};
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
            m_bus.call(propertiesCall(path), QDBus::Block, kTimeoutMs);
        if (session.isValid() && isOwnAndLocal(session.value()))
            return path;
    }
    return {};
}

void SessionNotifier::follow(const QString &path)
{
    if (path.isEmpty())
        return;
    m_session = path;
    m_bus.connect(service(), m_session, sessionInterface(), QStringLiteral("Lock"), this,
                  SLOT(onLock()));
    m_bus.connect(service(), m_session, sessionInterface(), QStringLiteral("Unlock"), this,
                  SLOT(onUnlock()));
    m_bus.connect(service(), m_session, propertiesInterface(), QStringLiteral("PropertiesChanged"),
                  this, SLOT(onPropertiesChanged(QString, QVariantMap)));
}

void SessionNotifier::leave()
{
    if (m_session.isEmpty())
        return;
    m_bus.disconnect(service(), m_session, sessionInterface(), QStringLiteral("Lock"), this,
                     SLOT(onLock()));
    m_bus.disconnect(service(), m_session, sessionInterface(), QStringLiteral("Unlock"), this,
                     SLOT(onUnlock()));
    m_bus.disconnect(service(), m_session, propertiesInterface(),
                     QStringLiteral("PropertiesChanged"), this,
                     SLOT(onPropertiesChanged(QString, QVariantMap)));
    m_session.clear();
    m_active.reset();
    m_locked.reset();
}

void SessionNotifier::onLock()
{
    setLocked(true);
}

void SessionNotifier::onUnlock()
{
    setLocked(false);
}

void SessionNotifier::setLocked(bool locked)
{
    m_locked = locked;
    notify(m_session, locked ? WTS_SESSION_LOCK : WTS_SESSION_UNLOCK);
}

void SessionNotifier::onPropertiesChanged(const QString &interface, const QVariantMap &changed)
{
    if (interface != sessionInterface())
        return;
    const auto active = changed.constFind(QStringLiteral("Active"));
    if (active != changed.constEnd() && m_active != active->toBool()) {
        m_active = active->toBool();
        notify(m_session, *m_active ? WTS_CONSOLE_CONNECT : WTS_CONSOLE_DISCONNECT);
    }
    const auto locked = changed.constFind(QStringLiteral("LockedHint"));
    if (locked != changed.constEnd() && m_locked != locked->toBool())
        setLocked(locked->toBool());
}

void SessionNotifier::onSessionNew(const QDBusMessage &message)
{
    if (message.signature() != QLatin1String("so"))
        return;
    const QString path = message.arguments().at(1).value<QDBusObjectPath>().path();
    auto *const reply = new QDBusPendingCallWatcher(m_bus.asyncCall(propertiesCall(path)), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this,
            [this, path](QDBusPendingCallWatcher *finished) { sessionDescribed(path, finished); });
}

void SessionNotifier::sessionDescribed(const QString &path, QDBusPendingCallWatcher *reply)
{
    reply->deleteLater();
    const QDBusPendingReply<QVariantMap> properties = *reply;
    if (properties.isError())
        return;
    const QVariantMap session = properties.value();
    if (!isOwnAndLocal(session))
        return;
    if (m_session.isEmpty() && hasSeat(session))
        follow(path);
    notify(path, WTS_SESSION_LOGON);
}

void SessionNotifier::onSessionRemoved(const QDBusMessage &message)
{
    if (message.signature() == QLatin1String("so")
        && message.arguments().at(1).value<QDBusObjectPath>().path() == m_session)
        leave();
}

void SessionNotifier::notify(const QString &path, UINT code)
{
    for (const HWND handle : std::as_const(m_windows)) {
        QWindow *const window = windowOf(handle);
        if (!window)
            continue;
        MSG message = {};
        message.hwnd = handle;
        message.message = WM_WTSSESSION_CHANGE;
        message.wParam = code;
        message.lParam = sessionNumber(path);
        message.time = static_cast<DWORD>(GetTickCount64());
        NativeEventResult result = 0;
        QWindowSystemInterface::handleNativeEvent(window, QByteArrayLiteral("windows_generic_MSG"),
                                                  &message, &result);
    }
}
