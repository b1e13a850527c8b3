#include "tools/monitor/serviceprobe.h"

#include <QDataStream>

namespace {
constexpr int kMostBytes = 1000; // the packet has 32
} // namespace

ServiceProbe::ServiceProbe(QObject *parent)
    : QObject(parent)
{
    m_patience.setSingleShot(true);
    connect(&m_patience, &QTimer::timeout, this, [this] {
        finish({m_socket.state() == QLocalSocket::ConnectedState, {}, false});
    });
    connect(&m_socket, &QLocalSocket::readyRead, this, &ServiceProbe::read);
    connect(&m_socket, &QLocalSocket::disconnected, this, [this] { finish({true, {}, true}); });
    connect(&m_socket, &QLocalSocket::errorOccurred, this,
            [this](QLocalSocket::LocalSocketError error) {
                const bool hungUp = error == QLocalSocket::PeerClosedError;
                finish({hungUp, {}, hungUp});
            });
}

void ServiceProbe::start()
{
    if (m_running)
        return;
    m_running = true;
    m_received.clear();
    m_patience.start(kPatienceMs);
    m_socket.connectToServer(QStringLiteral("tonewell"), QIODevice::ReadOnly);
}

void ServiceProbe::stop()
{
    m_running = false;
    m_patience.stop();
    m_socket.abort();
}

void ServiceProbe::finish(const ProbeResult &result)
{
    if (!m_running)
        return;
    stop();
    Q_EMIT finished(result);
}

void ServiceProbe::read()
{
    m_received += m_socket.read(kMostBytes - m_received.size());
    const QString protocol = protocolOf(m_received);
    if (!protocol.isEmpty())
        finish({true, protocol, false});
    else if (m_received.size() >= kMostBytes)
        finish({true, {}, false});
}

QString ServiceProbe::protocolOf(const QByteArray &packet)
{
    // Qt 5 writes its numbers in one order, Qt 6 in the other.
    for (const auto order : {QDataStream::BigEndian, QDataStream::LittleEndian}) {
        QDataStream stream(packet);
        stream.setByteOrder(order);
        quint32 size = 0;
        quint16 kind = 0;
        QString name;
        stream >> size >> kind >> name;
        if (stream.status() == QDataStream::Ok && name.startsWith(QLatin1String("QtRO ")))
            return name;
    }
    return {};
}
