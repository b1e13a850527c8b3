#pragma once

#include <QObject>

class QRemoteObjectHostBase;

/// Protects the program and its other consumers from a consumer that misbehaves.
///
/// - A consumer that stops reading is dropped within a second of more than kLimitBytes waiting
///   for it. Messages wait in memory, one copy a consumer, so without this they pile up for good.
/// - A consumer that announces more than kLimitBytes in one piece is dropped too. The program never
///   keeps more than kLimitBytes of its input.
/// - A consumer that comes when fewer than kReserve descriptors are free is dropped at once. A
///   local server that runs out of descriptors while accepting stops listening for good, and the
///   program needs some itself to reach the sound server again.
///
/// A consumer that was dropped may connect again. Lives on the host's thread; looks at the host's
/// sockets once a second and whenever one is added, so it costs nothing on the way of a message.
class ConsumerGuard : public QObject {
    Q_OBJECT

public:
    static constexpr qint64 kLimitBytes = 1024LL * 1024;
    static constexpr int kReserve = 16;

    /// Watches every consumer of the host from now on. Create it when the host's URL is set; it is
    /// the host's child.
    explicit ConsumerGuard(QRemoteObjectHostBase *host);

private Q_SLOTS:
    void admitNewest();
    void dropSlowOnes();
};
