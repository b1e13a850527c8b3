#pragma once

#include <QLocalSocket>
#include <QTimer>

/// What somebody who only connects and listens finds at the service's socket.
struct ProbeResult {
    bool accepted = false; ///< a process has the socket open
    QString protocol; ///< with which it introduced itself, "QtRO 1.3"; empty if it did not
    bool hungUp = false; ///< it ended the connection before it said anything
};

/// Connects to the service's socket, listens for what a host of Qt Remote Objects says first, and
/// leaves. Does not wait: the result is a signal.
class ServiceProbe : public QObject {
    Q_OBJECT

public:
    static constexpr int kPatienceMs = 2000; ///< for a host to say something

    explicit ServiceProbe(QObject *parent = nullptr);

    /// Begins, unless it has already.
    void start();
    /// Leaves without a result.
    void stop();

    /// The protocol that the first packet of a connection names; empty if it names none.
    static QString protocolOf(const QByteArray &packet);

Q_SIGNALS:
    void finished(const ProbeResult &result);

private:
    void finish(const ProbeResult &result);
    void read();

    QLocalSocket m_socket;
    QTimer m_patience;
    QByteArray m_received;
    bool m_running = false;
};
