// The worker that drains one running loopback session after the other.
#pragma once

#include <atomic>
#include <audioclient.h>
#include <QByteArray>
#include <QMetaType>
#include <QObject>

class QThread;
struct SourceFormat;

/// Lives in a thread of its own, which it makes, owns and ends. One call of start() is one capture
/// session: it blocks that thread until the session ends and emits stoped() exactly once.
///
/// Every signal is emitted on the worker's thread.
///
/// Ending a session. m_running is the run flag: start() sets it once the client runs, others clear
/// it, the loop tests it before every poll (one pass is 5 ms plus the time of the audio calls).
/// Leaving the loop because the device is gone, or because the client cannot be restarted, leaves
/// the flag set until the next clear.
///
/// The flag alone cannot end a session that is queued or that has not reached its loop yet: the
/// session would set it again. Therefore sessions are numbered from 1 in the order of their
/// start() calls, and retireSessions(n) ends all up to n for good: one that has not begun returns
/// with its stoped() and nothing else, one that fails to start reports no error, one in the loop
/// leaves it as if the flag had been cleared.
/// Who clears the flag retires first (retireSessions, then clearRunning). Then, whatever the order,
/// a retired session never leaves the flag set behind a clear:
///  - flag set, retired, cleared: the clear is last;
///  - retired, flag set, cleared: the clear is last, and the session sees itself retired;
///  - retired, cleared, flag set: the session looks at its retirement after setting the flag and
///    takes the set back. No later session can have set it meanwhile, since sessions follow each
///    other on one thread.
class CaptureAudioThread : public QObject {
    Q_OBJECT

public:
    /// Makes the thread, moves there and starts it; idle until start() is invoked.
    CaptureAudioThread();
    /// Ends the thread: asks it to quit, waits 1000 ms, terminates it, waits 500 ms. A session that
    /// is to end within that time has been told so before.
    ~CaptureAudioThread() override;

    /// Runs one capture session on the calling thread; invoked queued, so that this is the
    /// worker's. pAudioClient is initialised for shared loopback and not started; it stays the
    /// caller's, and must live until stoped(). blockAlign is the block align of the device's mix
    /// format, in bytes; 4 passes packets through unconverted.
    Q_INVOKABLE void start(IAudioClient *pAudioClient, int blockAlign);

    /// Ends a running session from another thread and waits for the thread to finish (1000 ms, then
    /// terminates it and waits 500 ms). No session can follow. Does nothing while the run flag is
    /// 0.
    void forceStop();

    /// Whether the run flag is set. Callable from any thread.
    bool isRunning() const { return m_running.load() != 0; }
    /// Clears the run flag. Callable from any thread.
    void clearRunning() { m_running.store(0); }
    /// Ends the sessions numbered up to `last`. Callable from any thread.
    void retireSessions(quint64 last) { m_retired.store(last); }

Q_SIGNALS:
    /// One captured packet: interleaved signed 16-bit little-endian stereo, 4 bytes a frame, or the
    /// bytes as captured when they are passed through.
    void notifyData(const QByteArray &data);
    /// The session has ended.
    void stoped();
    /// The session could not be started; stoped() follows.
    void error(HRESULT hr);

private:
    bool isRetired() const { return m_session <= m_retired.load(); }
    void endUnstarted(HRESULT hr);
    void drain(IAudioClient *pAudioClient, IAudioCaptureClient *capture, int blockAlign,
               const SourceFormat &format);

    QThread *m_thread;
    std::atomic<qint32> m_running {0};
    std::atomic<quint64> m_retired {0};
    quint64 m_session = 0; ///< number of the session that begun last; the worker's thread only
};

Q_DECLARE_METATYPE(IAudioClient *)
