#include "remote/consumer.h"

#include <algorithm>
#include <QLocalSocket>

Consumer::Consumer(QLocalSocket *socket, const QString &objectName, QObject *parent)
    : QIODevice(parent)
    , m_socket(socket)
    , m_frames(objectName)
{
    m_socket->setParent(this);
    m_socket->setReadBufferSize(kTurnBytes);
    m_turn.setSingleShot(true);
    m_turn.setInterval(kTurnMs);
    connect(m_socket, &QLocalSocket::readyRead, this, &Consumer::takeTurn);
    connect(&m_turn, &QTimer::timeout, this, &Consumer::takeTurn);
    connect(m_socket, &QLocalSocket::bytesWritten, this, &Consumer::noteProgress);
    connect(m_socket, &QLocalSocket::disconnected, this, &Consumer::leave);
    open(ReadWrite | Unbuffered);
}

Consumer::~Consumer()
{
    // A host that is not told would go on writing.
    Q_EMIT disconnected();
}

qint64 Consumer::bytesAvailable() const
{
    return m_checked.size() + QIODevice::bytesAvailable();
}

qint64 Consumer::readData(char *data, qint64 maxSize)
{
    const int size = static_cast<int>(std::min<qint64>(maxSize, m_checked.size()));
    std::copy_n(m_checked.constData(), size, data);
    m_checked.remove(0, size);
    return size;
}

qint64 Consumer::writeData(const char *data, qint64 size)
{
    if (m_socket->state() != QLocalSocket::ConnectedState)
        return size;
    m_socket->write(data, size);
    m_isBehind = m_isBehind || m_socket->bytesToWrite() > kBehindBytes;
    // abort(), unlike close(), does not wait until the consumer has read everything.
    if (m_socket->bytesToWrite() > kMostUnreadBytes)
        m_socket->abort();
    return size;
}

void Consumer::takeTurn()
{
    if (m_turn.isActive() || m_socket->bytesAvailable() == 0)
        return;
    m_turn.start();
    m_received += m_socket->read(kTurnBytes);

    const std::string_view bytes(m_received.constData(),
                                 static_cast<std::size_t>(m_received.size()));
    int end = 0;
    int frame = 0;
    do {
        end += frame;
        frame = m_frames.receive(bytes.substr(static_cast<std::size_t>(end)));
    } while (frame > 0);
    if (frame == ConsumerFrames::kWrong) {
        m_socket->abort();
        return;
    }
    m_checked += m_received.left(end);
    m_received.remove(0, end);
    if (!m_checked.isEmpty())
        Q_EMIT readyRead();
}

void Consumer::noteProgress()
{
    if (!m_isBehind || m_socket->bytesToWrite() > 0)
        return;
    m_isBehind = false;
    Q_EMIT caughtUp();
}

void Consumer::leave()
{
    // What it sent before it left still counts.
    m_turn.stop();
    takeTurn();
    // Not at once: the connection can end while the host goes through its consumers.
    deleteLater();
}
