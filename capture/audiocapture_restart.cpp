// The ways back into a start: the worker stopped, the device returned, another device is wanted.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"

#include <QDebug>
#include <QTimer>

/// Whether an invalidated device is answered by a restart on the default device. Not within a
/// start, and not for a session that a newer start has taken over meanwhile: that must not undo a
/// choice that came after it.
bool AudioCapture::fallsBackAfterError() const
{
    const QMutexLocker lock(&m_mutex);
    return !m_starting && !m_captureThread.sessions().nextIsSuperseded();
}

void AudioCapture::handleThreadStopped()
{
    writeDiagnosticLog(QStringLiteral("handleThreadStopped 触发"));
    bool restart = false;
    {
        // A start ends the session before it, and that stop may arrive here only after the start
        // has set m_autoRestart again.
        const QMutexLocker lock(&m_mutex);
        const bool superseded = m_captureThread.sessions().stopArrived();
        restart = m_autoRestart && !superseded;
    }
    if (!restart) {
        qDebug() << "[handleThreadStopped] 线程停止（不需要自动重启）";
        return;
    }
    qDebug() << "[handleThreadStopped] 检测到线程停止，需要自动重启，延迟500ms...";
    QTimer::singleShot(500, this, [this] {
        bool wanted = false;
        {
            const QMutexLocker lock(&m_mutex);
            wanted = m_autoRestart; // NOLINT(clang-analyzer-core.NullDereference)
        }
        if (wanted) {
            qDebug() << "[handleThreadStopped] 正在执行自动重启...";
            startCapture();
        } else {
            qDebug() << "[handleThreadStopped] 自动重启已取消（用户可能已手动停止）";
        }
    });
}

/// Fires 500 ms after the device in use came back; not a question of m_autoRestart: a device that
/// returns restarts capture even after a deliberate stop.
void AudioCapture::restartAfterDeviceReturn(const QString &armedFor)
{
    const QMutexLocker lock(&m_mutex);
    if (m_currentDevice == armedFor) {
        qDebug() << "[设备状态] 正在重启采集...";
        startCapture();
    } else {
        qDebug() << "[设备状态] 当前设备已变更，取消重启";
    }
}

void AudioCapture::setCurrentDevice(const QString &name)
{
    writeDiagnosticLog(QStringLiteral("setCurrentDevice -> ") + name);
    {
        const QMutexLocker lock(&m_mutex);
        m_currentDevice = name;
    }
    startCapture();
}
