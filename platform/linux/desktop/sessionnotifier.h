#pragma once

#include <memory>
#include <optional>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>
#include <QVector>
#include <windef.h>

class QDBusPendingCallWatcher;
class QThread;

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
/// The session is the one that Logind::ownSession() finds. Where there is none, it is the user's
/// next desktop that begins; when the session ends, the next one takes its place.
///
/// A bus or a logind that comes late, goes away or returns is subscribed to again, for all windows
/// that ever asked. What happened meanwhile is not told. The attempts run on a thread of their own,
/// the first one in a registration excepted, since they wait for answers. After one that failed the
/// next follows in half a second, then after twice the time, in the end every 15 s: against 200
/// polls a second that capture makes that costs nothing, and who comes back to a desktop has seldom
/// seen the bus return less than 15 s ago.
///
/// Lives on the GUI thread with the application object as parent. lParam is the session's number, 0
/// for one whose name is no number.
class SessionNotifier : public QObject {
    Q_OBJECT

public:
    /// The one notifier; made by the first call.
    static SessionNotifier *instance();
    /// Waits for an attempt that is under way.
    ~SessionNotifier() override;

    /// The window is told from now on. Whether logind is there; without it this call looks for it,
    /// as long as Logind's functions take.
    bool addWindow(HWND window);

private Q_SLOTS:
    void onBusGone();
    void onOwnerChanged(const QString &name, const QString &before, const QString &now);
    void onLock();
    void onUnlock();
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed);
    void onSessionNew(const QDBusMessage &message);
    void onSessionRemoved(const QDBusMessage &message);

private:
    /// What an attempt found.
    struct Finding {
        QDBusConnection bus; ///< not connected when there is none that answers
        bool logind = false;
        std::optional<QString> session; ///< as of Logind::ownSession()
    };

    explicit SessionNotifier(QObject *parent);

    Finding look(QDBusConnection bus);
    void subscribe(QDBusConnection bus);
    void take(const Finding &finding);
    void startAttempt();
    void finishAttempt();
    void retry();
    void follow(const QString &path);
    void leave();
    void sessionDescribed(const QString &path, QDBusPendingCallWatcher *reply);
    void setLocked(bool locked);
    void notify(const QString &path, UINT code);

    QDBusConnection m_bus; ///< with the subscriptions; not connected while there is none
    bool m_logind = false; ///< logind is on the bus
    std::unique_ptr<QThread> m_attempt; ///< while an attempt is under way
    std::optional<Finding> m_found; ///< what it found, once it has finished
    bool m_outdated = false; ///< what it finds is old
    QTimer m_retry;
    int m_pauseMs; ///< until the next attempt
    QVector<HWND> m_windows;
    QString m_session; ///< object path; empty while there is none
    std::optional<bool> m_active; ///< as last told
    std::optional<bool> m_locked; ///< as last told
};
