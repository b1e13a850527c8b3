#include "tests/remote/linux/connection.h"

#include "tests/remote/frames.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

Connection::Connection(const QByteArray &path)
    : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    if (::connect(m_socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        ::close(m_socket);
        m_socket = -1;
    }
}

Connection::~Connection()
{
    ::close(m_socket);
}

void Connection::send(const QByteArray &bytes)
{
    for (int sent = 0; sent < bytes.size();) {
        const ssize_t now = ::send(m_socket, bytes.constData() + sent,
                                   static_cast<std::size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (now < 0)
            return;
        sent += static_cast<int>(now);
    }
}

void Connection::flood(const QByteArray &bytes)
{
    const ssize_t sent =
        ::send(m_socket, bytes.constData() + m_flooded,
               static_cast<std::size_t>(bytes.size() - m_flooded), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0)
        m_flooded = (m_flooded + static_cast<int>(sent)) % bytes.size();
    char received[65536];
    while (::recv(m_socket, received, sizeof received, MSG_DONTWAIT) > 0) { }
}

int Connection::receive(int ms)
{
    pollfd waiting = {m_socket, POLLIN, 0};
    if (::poll(&waiting, 1, ms) <= 0)
        return -1;
    char bytes[4096];
    const ssize_t size = ::recv(m_socket, bytes, sizeof bytes, 0);
    if (size < 0)
        return errno == ECONNRESET ? 0 : -1;
    m_received.append(bytes, static_cast<int>(size));
    return static_cast<int>(size);
}

bool Connection::waitForEnd(int ms)
{
    int size = 0;
    do {
        size = receive(ms);
    } while (size > 0);
    return size == 0;
}

bool Connection::waitForPongs(int count, int ms)
{
    while (m_received.count(frames::pong()) < count) {
        if (receive(ms) <= 0)
            return false;
    }
    return true;
}
