#include "tests/app/linux/mutebus.h"

#include <cstring>
#include <QFile>
#include <QtEndian>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

void send(int connection, const QByteArray &bytes)
{
    // A program that has gone meanwhile is noticed by the next read.
    [[maybe_unused]] const ssize_t sent =
        ::send(connection, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
}

QByteArray number(quint32 value)
{
    QByteArray bytes(4, '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

/// The answer to the first call: the program's name on the bus, ":1.1".
QByteArray helloReply(quint32 serial)
{
    const QByteArray body = number(4) + QByteArray(":1.1", 5);
    const QByteArray fields =
        QByteArray("\x05\x01u\0", 4) + number(serial) + QByteArray("\x08\x01g\0\x01s\0", 7);
    return QByteArray("l\x02\0\x01", 4) + number(static_cast<quint32>(body.size())) + number(1)
        + number(static_cast<quint32>(fields.size())) + fields + '\0' + body;
}

} // namespace

MuteBus::MuteBus()
{
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(m_folder.filePath(QStringLiteral("bus")));
    std::memcpy(name.sun_path, path.constData(),
                static_cast<size_t>(qMin(path.size(), static_cast<int>(sizeof name.sun_path) - 1)));
    if (bind(m_listener, reinterpret_cast<const sockaddr *>(&name), sizeof name) == 0
        && listen(m_listener, 1) == 0)
        m_thread = std::thread([this] { serve(); });
}

MuteBus::~MuteBus()
{
    shutdown(m_listener, SHUT_RDWR);
    if (m_thread.joinable())
        m_thread.join();
    close(m_listener);
}

QString MuteBus::address() const
{
    return QStringLiteral("unix:path=") + m_folder.filePath(QStringLiteral("bus"));
}

void MuteBus::serve()
{
    const int connection = accept(m_listener, nullptr, nullptr);
    if (connection < 0)
        return;
    greet(connection);
    m_waitedFor = true;
    char unread[256];
    while (read(connection, unread, sizeof unread) > 0) { }
    m_waitedFor = false;
    close(connection);
}

void MuteBus::greet(int connection)
{
    QByteArray line;
    char byte = 0;
    while (line != "BEGIN\r\n") {
        if (line.endsWith('\n')) {
            send(connection,
                 line.contains("AUTH EXTERNAL")
                     ? QByteArray("OK 0123456789abcdef0123456789abcdef\r\n")
                     : QByteArray("ERROR\r\n"));
            line.clear();
        }
        if (read(connection, &byte, 1) != 1)
            return;
        line.append(byte);
    }
    char hello[12]; // up to the serial
    if (recv(connection, hello, sizeof hello, MSG_WAITALL) != static_cast<ssize_t>(sizeof hello))
        return;
    send(connection, helloReply(qFromLittleEndian<quint32>(hello + 8)));
}
