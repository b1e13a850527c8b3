// The sound server that plays behind the endpoints of a Wine session, see tools/windows/session.
#pragma once

#include <memory>
#include <QByteArray>
#include <QTcpSocket>
#include <QTemporaryDir>

/// Commands it over the session's loopback. Where Windows itself runs there is none, and
/// isThere() is false. What was added or played ends with the object. For one thread.
class OutsideServer {
public:
    OutsideServer();
    ~OutsideServer();
    OutsideServer(const OutsideServer &) = delete;
    OutsideServer &operator=(const OutsideServer &) = delete;

    bool isThere() const { return m_socket.state() == QAbstractSocket::ConnectedState; }

    /// Adds a sink that goes nowhere; true when the server shows it.
    bool addSink(const QByteArray &name, const QByteArray &description);
    bool removeSink(const QByteArray &name);

    /// Plays a minute of two sines of 48 kHz to a sink, one a channel, with these amplitudes, 0 to
    /// 1; true once the server plays.
    bool playTones(const QByteArray &sink, double left, double leftAmplitude, double right,
                   double rightAmplitude);
    void stopTones();

    /// What the server answers to a command.
    QByteArray command(const QByteArray &line);

private:
    QTcpSocket m_socket;
    std::unique_ptr<QTemporaryDir> m_folder; // where the server can read, too
    QList<QByteArray> m_sinks;
};
