#include "platform/linux/desktop/sessionnotifier.h"

#include "platform/linux/desktop/logind.h"
#include "platform/qtgeneration.h"

#include <windows.h>
#include <algorithm>
#include <atomic>
#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <qpa/qwindowsysteminterface.h>
#include <QPointer>
#include <QThread>
#include <QWindow>
#include <utility>
#include <wtsapi32.h>

namespace {

using Logind::managerInterface;
using Logind::managerPath;
using Logind::propertiesInterface;
using Logind::service;
using Logind::sessionInterface;

constexpr int kFirstPauseMs = 500;
constexpr int kLastPauseMs = 15000;

/// The library keeps a connection under its name, also one that has ended.
QString newConnectionName()
{
    static std::atomic<int> s_number {0};
    return QStringLiteral("tonewell-session-%1").arg(++s_number);
}

QDBusConnection noConnection()
{
    return QDBusConnection(QString());
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
    return SessionNotifier::instance()->addWindow(window) ? TRUE : FALSE;
}

SessionNotifier *SessionNotifier::instance()
{
    static QPointer<SessionNotifier> s_notifier;
    if (!s_notifier)
        s_notifier = new SessionNotifier(QCoreApplication::instance());
    return s_notifier;
}

SessionNotifier::SessionNotifier(QObject *parent)
    : QObject(parent)
    , m_bus(noConnection())
    , m_pauseMs(kFirstPauseMs)
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &SessionNotifier::startAttempt);
}

SessionNotifier::~SessionNotifier()
{
    if (m_attempt) {
        m_attempt->wait();
        QDBusConnection::disconnectFromBus(m_found->bus.name());
    }
    QDBusConnection::disconnectFromBus(m_bus.name());
}

bool SessionNotifier::addWindow(HWND window)
{
    if (!m_windows.contains(window))
        m_windows.append(window);
    if (!m_bus.isConnected())
        onBusGone(); // its end may not have been told yet
    if (!m_logind)
        finishAttempt();
    if (!m_logind)
        take(look(m_bus));
    return m_logind;
}

// On any thread: it changes nothing but the subscriptions.
SessionNotifier::Finding SessionNotifier::look(QDBusConnection bus)
{
    if (!bus.isConnected()) {
        bus = Logind::connectToSystemBus(newConnectionName());
        // A bus that does not answer would hold up a subscription for 25 s.
        if (Logind::isOn(bus).has_value())
            subscribe(bus);
        else
            QDBusConnection::disconnectFromBus(bus.name());
    }
    const std::optional<bool> logind = Logind::isOn(bus);
    if (!logind) {
        QDBusConnection::disconnectFromBus(bus.name());
        return {noConnection(), false, std::nullopt};
    }
    return {bus, *logind, *logind ? Logind::ownSession(bus) : std::nullopt};
}

void SessionNotifier::subscribe(QDBusConnection bus)
{
    bus.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), this,
                SLOT(onBusGone()));
    bus.connect(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"),
                {service()}, QStringLiteral("sss"), this,
                SLOT(onOwnerChanged(QString, QString, QString)));
    bus.connect(service(), managerPath(), managerInterface(), QStringLiteral("SessionNew"), this,
                SLOT(onSessionNew(QDBusMessage)));
    bus.connect(service(), managerPath(), managerInterface(), QStringLiteral("SessionRemoved"),
                this, SLOT(onSessionRemoved(QDBusMessage)));
}

void SessionNotifier::take(const Finding &finding)
{
    const bool outdated = std::exchange(m_outdated, false);
    if (!finding.bus.isConnected()) {
        onBusGone();
        return;
    }
    if (m_bus.isConnected() && m_bus.name() != finding.bus.name()) {
        QDBusConnection::disconnectFromBus(finding.bus.name()); // one is enough
        return;
    }
    m_bus = finding.bus;
    m_logind = finding.logind;
    m_retry.stop();
    if (outdated) {
        startAttempt();
    } else if (m_logind && !finding.session) {
        retry();
    } else {
        m_pauseMs = kFirstPauseMs;
        follow(finding.session.value_or(QString()));
    }
}

void SessionNotifier::startAttempt()
{
    if (m_attempt)
        return;
    m_retry.stop();
    m_attempt.reset(QThread::create([this, bus = m_bus] { m_found = look(bus); }));
    connect(m_attempt.get(), &QThread::finished, this, [this] {
        if (m_attempt && m_attempt->isFinished()) // else it has been waited for
            finishAttempt();
    });
    m_attempt->start();
}

void SessionNotifier::finishAttempt()
{
    if (!m_attempt)
        return;
    m_attempt->wait();
    m_attempt.reset();
    take(*std::exchange(m_found, std::nullopt));
}

void SessionNotifier::retry()
{
    m_retry.start(m_pauseMs);
    m_pauseMs = std::min(2 * m_pauseMs, kLastPauseMs);
}

void SessionNotifier::onBusGone()
{
    if (m_bus.isConnected())
        return; // the end of a connection that is not used
    if (m_logind) // the first news of it
        m_pauseMs = kFirstPauseMs;
    leave();
    m_logind = false;
    QDBusConnection::disconnectFromBus(m_bus.name());
    m_bus = noConnection();
    retry();
}

void SessionNotifier::onOwnerChanged(const QString &, const QString &, const QString &now)
{
    leave();
    m_logind = !now.isEmpty();
    m_pauseMs = kFirstPauseMs;
    if (m_attempt)
        m_outdated = true;
    else if (m_logind)
        startAttempt();
}

void SessionNotifier::follow(const QString &path)
{
    if (path.isEmpty() || path == m_session)
        return;
    leave();
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
    if (m_attempt)
        m_outdated = true; // it may have asked before
    const QString path = message.arguments().at(1).value<QDBusObjectPath>().path();
    auto *const reply =
        new QDBusPendingCallWatcher(m_bus.asyncCall(Logind::propertiesCall(path)), this);
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
    if (!Logind::isOwnAndLocal(session))
        return;
    if (m_session.isEmpty() && Logind::hasSeat(session))
        follow(path);
    notify(path, WTS_SESSION_LOGON);
}

void SessionNotifier::onSessionRemoved(const QDBusMessage &message)
{
    if (m_attempt)
        m_outdated = true;
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
