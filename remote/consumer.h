#pragma once

#include "remote/consumerframes.h"

#include <QByteArray>
#include <QIODevice>
#include <QTimer>

class QLocalSocket;

/// One consumer's connection as the remote-objects host sees it: a device from which only whole
/// frames that a consumer may send can be read, and to which messages are written.
///
/// The consumer is dropped, with all that it sent and did not read, as soon as
/// - it sends a wrong frame (what came with it in one piece is not handed on either),
/// - more than kMostUnreadBytes wait for it.
///
/// However fast it sends, no more than kTurnBytes of it are looked at in kTurnMs: the rest waits
/// where the system keeps it, and its sender with it.
///
/// Lives on the host's thread. Nothing is emitted from within a read or a write.
class Consumer : public QIODevice {
    Q_OBJECT

public:
    static constexpr qint64 kMostUnreadBytes = 1024LL * 1024;
    static constexpr qint64 kBehindBytes = 64LL * 1024;
    static constexpr int kTurnBytes = 1024;
    static constexpr int kTurnMs = 40;

    /// Takes the connected socket over. Open from the beginning.
    Consumer(QLocalSocket *socket, const QString &objectName, QObject *parent);
    ~Consumer() override;

    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;

Q_SIGNALS:
    /// The last word: the connection is gone, whoever ended it, and so will be the device, which
    /// deletes itself then.
    void disconnected();
    /// More than kBehindBytes waited for it, and now nothing does.
    void caughtUp();

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    /// What is written once the connection is gone is lost.
    qint64 writeData(const char *data, qint64 size) override;

private:
    void takeTurn();
    void noteProgress();
    void leave();

    QLocalSocket *m_socket;
    ConsumerFrames m_frames;
    QByteArray m_received; ///< the beginning of a frame
    QByteArray m_checked; ///< whole frames, for the host
    bool m_isBehind = false;
    QTimer m_turn; ///< active while the consumer has had its turn
};
