#pragma once

#include <QByteArray>

/// A consumer's connection as plain system calls have it, for any thread. Closes abruptly.
class Connection {
public:
    /// Connects, waiting for as long as the other side's queue is full.
    explicit Connection(const QByteArray &path);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool isOpen() const { return m_socket >= 0; }

    /// Sends all of it, or what the other side takes before it closes.
    void send(const QByteArray &bytes);

    /// Goes on sending the bytes over and over, as far as that needs no waiting, and throws away
    /// what has come.
    void flood(const QByteArray &bytes);

    /// Each waits so many milliseconds at most for each piece that arrives; false if it does not
    /// come to that.
    bool waitForData(int ms) { return receive(ms) > 0; }
    bool waitForEnd(int ms);
    bool waitForPongs(int count, int ms);

private:
    /// Bytes that have come, kept in m_received; 0 at the end, -1 if nothing comes in time.
    int receive(int ms);

    int m_socket;
    int m_flooded = 0; ///< of the bytes that are sent over and over
    QByteArray m_received;
};
