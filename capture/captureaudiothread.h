// The worker that drains one running loopback session after the other.
#pragma once

#include "capture/capturesessions.h"

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
/// the flag set until the next clear. What the flag alone cannot end is ended through sessions(),
/// whose header tells a session's whole life.
class CaptureAudioThread : public QObject {
    Q_OBJECT

public:
    /// Makes the thread, moves there and starts it; idle until start() is invoked.
    CaptureAudioThread();
    /// Ends the thread: asks it to quit, waits 1000 ms, terminates it, waits 500 ms. A session that
    /// is to end within that time has been called off before. Termination cuts a session off in an
    /// audio call, or between two steps, and nowhere else. A thread that still runs then is left
    /// behind, with the clients of its sessions; it ends as soon as it can.
    ~CaptureAudioThread() override;

    /// Runs one capture session on the calling thread; invoked queued, so that this is the
    /// worker's. pAudioClient is initialised for shared loopback and not started; sessions() has
    /// been told of it before and keeps it alive. blockAlign is the block align of the device's mix
    /// format, in bytes; 4 passes packets through unconverted.
    Q_INVOKABLE void start(IAudioClient *pAudioClient, int blockAlign);

    /// Ends a running session from another thread and waits for the thread to finish (1000 ms, then
    /// terminates it and waits 500 ms). No session can follow. Does nothing while the run flag is
    /// 0.
    void forceStop();

    /// Whether the run flag is set. Callable from any thread.
    bool isRunning() const { return m_running.load() != 0; }
    /// Clears the run flag; sessions that are to end have been retired before. Callable from any
    /// thread.
    void clearRunning() { m_running.store(0); }
    /// The sessions of this worker.
    CaptureSessions &sessions() { return m_sessions; }
    const CaptureSessions &sessions() const { return m_sessions; }

Q_SIGNALS:
    /// One captured packet: interleaved signed 16-bit little-endian stereo, 4 bytes a frame, or the
    /// bytes as captured when they are passed through.
    void notifyData(const QByteArray &data);
    /// The session has ended.
    void stoped();
    /// The session could not be started; stoped() follows.
    void error(HRESULT hr);

private:
    void run(IAudioClient *pAudioClient, IAudioCaptureClient *capture, int blockAlign);
    void drain(IAudioClient *pAudioClient, IAudioCaptureClient *capture, int blockAlign,
               const SourceFormat &format);
    HRESULT takePacket(IAudioCaptureClient *capture, QByteArray &raw, int blockAlign,
                       const SourceFormat &format);

    QThread *m_thread;
    std::atomic<qint32> m_running {0};
    CaptureSessions m_sessions {m_running};
};

Q_DECLARE_METATYPE(IAudioClient *)
