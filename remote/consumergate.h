#pragma once

#include <memory>
#include <QObject>
#include <QString>
#include <QTimer>

class QLocalServer;
class QRemoteObjectHost;
class QUrl;

/// The one way to the remote-objects host: listens in its stead, and hands on only what a consumer
/// may send, so that no consumer can become the program's or another consumer's trouble.
///
/// - Only the user who runs the program can connect.
/// - A newcomer is dropped at once when kMostConsumers are there, or fewer than kSpareDescriptors
///   could still be opened: the program needs some itself to reach the sound server again. Who is
///   alone stays all the same: one descriptor is not what the program lacks.
/// - What a consumer sends, and how much may wait for it, is checked by Consumer.
/// - A listener that was lost (descriptors ran out while it accepted), or could not be had at
///   first, is tried again every kListenAgainMs. The signals tell of a loss that lasts.
/// - The allocator keeps the memory in which messages have waited for a consumer: kTidyMs after one
///   has left or caught up, all that is free goes back to the host.
///
/// What is dropped may connect again. Lives on the host's thread, as the host's child.
class ConsumerGate : public QObject {
    Q_OBJECT

public:
    static constexpr int kMostConsumers = 128;
    static constexpr int kSpareDescriptors = 16;
    static constexpr int kListenAgainMs = 500;
    static constexpr int kMostAttempts = 30; ///< without success, before the gate gives up
    static constexpr int kTidyMs = 1000;

    /// Listens at the url (`local:NAME`) from now on, for consumers of the object of that name. The
    /// host must have no URL yet; it can enable remoting afterwards. A name that another process
    /// listens at is taken from it, so make sure first that this is not another copy of the
    /// program.
    ConsumerGate(QRemoteObjectHost *host, const QUrl &url, const QString &objectName);
    ~ConsumerGate() override;

Q_SIGNALS:
    /// The second attempt to listen has failed too; `why` is for a person.
    void listeningFails(const QString &why);
    /// So have all kMostAttempts: nobody can connect. It goes on trying.
    void gaveUp();

private:
    void listen();
    void admit();
    bool isFull() const;
    void tidySoon();

    QRemoteObjectHost *m_host;
    const QString m_objectName;
    const QString m_name; ///< of the local server
    std::unique_ptr<QLocalServer> m_server; ///< null before the first attempt
    int m_failures = 0; ///< attempts to listen since the last success
    QTimer m_tidy; ///< active once a consumer has left or caught up
};
