#pragma once

#include <optional>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <QVector>
#include <windef.h>

class QDBusPendingCallWatcher;

/// The user's session as logind tells of it on the system bus, handed to the registered windows as
/// the window message WM_WTSSESSION_CHANGE through Qt's native-event path.
///
/// What is told, and the code that a window gets:
/// - the session's Active property: WTS_CONSOLE_CONNECT, WTS_CONSOLE_DISCONNECT;
/// - its Lock and Unlock signals, or its LockedHint where a screen locker sets only that:
///   WTS_SESSION_LOCK, WTS_SESSION_UNLOCK. A hint that says what was said before is no news;
/// - a new session of the same user at the machine itself, neither remote nor one of the system's
///   background ones: WTS_SESSION_LOGON.
///
/// The session is the one of XDG_SESSION_ID, else the one this process belongs to, else (a service
/// of the user belongs to none) the user's desktop: the first session at the machine itself that
/// has a seat; else the next such one that begins. When the session ends, the next desktop that
/// begins takes its place.
///
/// The notifications end with the bus and are not renewed: once the system bus has been restarted,
/// no window hears anything more until one registers again.
///
/// Lives on the GUI thread with the application object as parent. lParam is the session's number, 0
/// for one whose name is no number.
class SessionNotifier : public QObject {
    Q_OBJECT

public:
    /// The one notifier, connected to the system bus, or to the bus that
    /// DBUS_SYSTEM_BUS_ADDRESS names; null, promptly, without a bus or without logind on it. Only a
    /// bus that takes connections and never greets holds the call up, for as long as the bus
    /// library waits (25 s).
    static SessionNotifier *connected();
    ~SessionNotifier() override;

    void addWindow(HWND window);

private Q_SLOTS:
    void onLock();
    void onUnlock();
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed);
    void onSessionNew(const QDBusMessage &message);
    void onSessionRemoved(const QDBusMessage &message);

private:
    explicit SessionNotifier(const QDBusConnection &bus, QObject *parent);

    QString ownSession() const;
    QString sessionOfUser() const;
    void follow(const QString &path);
    void leave();
    void sessionDescribed(const QString &path, QDBusPendingCallWatcher *reply);
    void setLocked(bool locked);
    void notify(const QString &path, UINT code);

    QDBusConnection m_bus;
    QVector<HWND> m_windows;
    QString m_session; ///< object path; empty while there is none
    std::optional<bool> m_active; ///< as last told
    std::optional<bool> m_locked; ///< as last told
};
