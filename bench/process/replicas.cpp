// Consumers: acquires the published object COUNT times, each through a node of its own, and prints
// for each how many messages a second it received over SECONDS, once all of them had one.
// usage: replicas COUNT SECONDS
#include <chrono>
#include <cstdio>
#include <memory>
#include <QCoreApplication>
#include <QRemoteObjectDynamicReplica>
#include <QRemoteObjectNode>
#include <QTimer>
#include <QUrl>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// Counts what one replica receives.
class Consumer : public QObject {
    Q_OBJECT

public:
    Consumer()
    {
        m_node.connectToNode(QUrl(QStringLiteral("local:tonewell")));
        m_replica.reset(m_node.acquireDynamic(QStringLiteral("Tonewell")));
        connect(m_replica.get(), &QRemoteObjectDynamicReplica::initialized, this, [this] {
            connect(m_replica.get(), SIGNAL(sigMessage(QString)), SLOT(receive(QString)));
        });
    }

    bool hasMessages() const { return m_count > 0; }
    void restart()
    {
        m_count = 0;
        m_first = m_last = Clock::time_point();
    }
    /// Messages a second between the first and the last one.
    double rate() const
    {
        const double seconds = std::chrono::duration<double>(m_last - m_first).count();
        return seconds > 0.0 ? (m_count - 1) / seconds : 0.0;
    }

private Q_SLOTS:
    void receive(const QString &)
    {
        m_last = Clock::now();
        if (m_count++ == 0)
            m_first = m_last;
    }

private:
    QRemoteObjectNode m_node;
    std::unique_ptr<QRemoteObjectDynamicReplica> m_replica;
    int m_count = 0;
    Clock::time_point m_first;
    Clock::time_point m_last;
};

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: replicas COUNT SECONDS\n");
        return 2;
    }
    const int seconds = QByteArray(argv[2]).toInt();
    std::vector<std::unique_ptr<Consumer>> consumers;
    for (int i = 0; i < QByteArray(argv[1]).toInt(); ++i)
        consumers.push_back(std::make_unique<Consumer>());

    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &poll, [&] {
        for (const auto &consumer : consumers) {
            if (!consumer->hasMessages())
                return;
        }
        poll.stop();
        for (const auto &consumer : consumers)
            consumer->restart();
        std::puts("begin");
        std::fflush(stdout);
        QTimer::singleShot(seconds * 1000, &poll, [&] {
            for (const auto &consumer : consumers)
                std::printf("%.3f\n", consumer->rate());
            QCoreApplication::quit();
        });
    });
    poll.start(50);
    return QCoreApplication::exec();
}

#include "replicas.moc"
