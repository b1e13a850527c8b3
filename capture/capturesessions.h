// The audio clients of the sessions that the worker still has before it.
#pragma once

#include <audioclient.h>
#include <QMutex>
#include <QQueue>

/// Keeps an audio client alive for as long as a queued or running session uses it, even when the
/// controller has released its own reference meanwhile. First in, first out, as the worker runs
/// them. Callable from any thread; never calls a client with its lock held.
class SessionClients {
public:
    SessionClients() = default;
    SessionClients(const SessionClients &) = delete;
    SessionClients &operator=(const SessionClients &) = delete;
    /// Releases what is left: sessions that never ran.
    ~SessionClients();

    /// Takes a reference for a session that is about to be queued.
    void add(IAudioClient *client);
    /// Drops the reference of the session that has just ended; nothing when there is none.
    void releaseFirst();

private:
    QMutex m_mutex;
    QQueue<IAudioClient *> m_clients;
};
