#pragma once

#include <memory>
#include <QDBusConnection>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/// A system bus of the test's own, with a mocked logind on it. Both can be ended and started again;
/// the bus keeps its address, logind forgets its sessions.
class MockLogind {
public:
    /// Starts the bus, and logind if wanted. valid() says whether all of it is there.
    explicit MockLogind(bool withLogind = true);
    ~MockLogind();
    MockLogind(const MockLogind &) = delete;
    MockLogind &operator=(const MockLogind &) = delete;

    bool valid() const { return m_valid; }

    // False when that fails.
    bool startBus();
    bool startLogind();
    /// Ends logind: its name has no owner any more.
    void endLogind();
    /// Ends the bus and with it logind, without a word to anybody.
    void killBus();

    /// For DBUS_SYSTEM_BUS_ADDRESS.
    QString address() const { return m_address; }

    /// Adds a session of the user; its object path, empty on failure. With an
    /// empty class, or remote false, the session has logind's values for a graphical session.
    QString addSession(const QString &id, uint user, bool remote = false,
                       const QString &sessionClass = {}) const;
    /// Takes the session's seat away, as if it had never had one.
    bool unseat(const QString &id) const;
    /// Tells that the session is new, or gone.
    bool emitManagerSignal(const char *name, const QString &id) const;
    /// Calls a method of the session's own: "Lock", "Unlock".
    bool callSession(const QString &id, const char *method) const;
    /// Changes a property of the session and tells it.
    bool changeProperty(const QString &id, const char *name, bool value) const;

private:
    static QString path(const QString &id);
    bool answers() const;

    QTemporaryDir m_folder;
    QProcess m_bus;
    QProcess m_logind;
    QString m_address;
    QString m_connectionName;
    bool m_valid = false;
};
