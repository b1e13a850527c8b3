// The life of the worker's sessions, from the queue to the arrival of their stops.
#pragma once

#include <atomic>
#include <audioclient.h>
#include <QMutex>
#include <QQueue>

/// A session is one run of the worker: one call of CaptureAudioThread::start. This class knows
/// which sessions are queued, which are called off and which have ended, and holds their clients.
///
///     who starts (controller)          worker's thread
///     queue()                          .
///     .                                begin()        false: called off, goes on with end()
///     .                                setRunning()   the client runs
///     .                                mayRun()       before every poll
///     .                                leaveLoop()
///     .                                end()          then stoped() is emitted
///     stopArrived()                    .
///
/// Sessions are numbered from 1 in the order of queue(). They run one after the other in that
/// order, since each start() is queued to the one thread. Their stops arrive in the same order. A
/// session that fails to start goes from begin() to end(). One whose start() the worker never comes
/// to stays queued until the destructor.
///
/// The client. The controller drops its own reference whenever a newer start begins, so each
/// session has one of its own, from queue() to end().
///
/// Calling a session off. The run flag ends a session that is in its loop, but not one that is
/// queued or has not reached its loop yet: that one would set the flag again. Therefore retire()
/// ends all sessions queued so far for good: one that has not begun does nothing but emit stoped(),
/// one that fails to start reports no error, one in the loop leaves it as if the flag had been
/// cleared.
///
/// Who clears the run flag retires first. Then, whatever the order, a retired session never leaves
/// the flag set behind a clear:
///  - flag set, retired, cleared: the clear is last;
///  - retired, flag set, cleared: setRunning() sees the retirement, and the clear is last anyway;
///  - retired, cleared, flag set: setRunning() looks at the retirement after setting the flag and
///    takes the set back. No later session can have set it meanwhile, since one runs at a time.
///
/// Being taken over. A start ends the sessions before it, and their stops may arrive only after it
/// has brought up its own. supersede() is a retire() that tells them apart: no restart
/// answers the stop of a superseded session. A device that it found invalidated leads to no change
/// to the default device, which would undo a choice made after it. A session that is only retired
/// ended on request; the controller decides whether a restart answers its stop.
///
/// Any thread may call anything, but for the worker's calls. isRetired and mayRun take no lock. No
/// client is called with the lock held.
class CaptureSessions {
public:
    /// The run flag is the worker's: non-zero while the loop may go on. Must outlive this object.
    explicit CaptureSessions(std::atomic<qint32> &running);
    CaptureSessions(const CaptureSessions &) = delete;
    CaptureSessions &operator=(const CaptureSessions &) = delete;
    /// Drops the references of the sessions that never ran. The worker's thread has ended before,
    /// or leaveBehind() has been called.
    ~CaptureSessions();

    /// Call this before a start() is queued with this client, which is not null.
    void queue(IAudioClient *client);
    /// Ends every session queued so far.
    void retire();
    /// Ends every session queued so far in favour of a newer start.
    void supersede();
    /// Whether the session whose stop is the next to arrive is superseded. Its error, if there is
    /// one, arrives before its stop.
    bool nextIsSuperseded() const;
    /// The stop of the oldest session has arrived. Returns whether that session was superseded.
    bool stopArrived();

    /// The worker's thread is left behind inside an audio call: the clients are left to it.
    void leaveBehind();

    // --- the worker's thread, for the session that it runs
    /// The next session begins. False when it is retired.
    bool begin();
    /// Whether the session is retired; it then reports no error.
    bool isRetired() const { return m_begun <= m_retired.load(); }
    /// Sets the run flag, unless the session is retired.
    void setRunning();
    /// Whether the loop may go on.
    bool mayRun() const { return m_running.load() != 0 && !isRetired(); }
    /// Clears the run flag if the session is retired. Else it stays as the loop left it: set when
    /// the device is gone or the client cannot be restarted, until somebody clears it.
    void leaveLoop();
    /// The session needs its client no more.
    void end();

private:
    std::atomic<qint32> &m_running;
    mutable QMutex m_mutex; ///< guards the four below
    quint64 m_queued = 0;
    quint64 m_superseded = 0; ///< number of the last session that a newer start took over
    quint64 m_stopsArrived = 0;
    QQueue<IAudioClient *> m_clients; ///< of the sessions that have not ended, the oldest first
    std::atomic<quint64> m_retired {0}; ///< number of the last session that is retired
    quint64 m_begun = 0; ///< number of the session that begun last; the worker's thread only
};
