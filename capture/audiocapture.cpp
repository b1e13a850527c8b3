// A start from its first step to its last, and the stop.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"
#include "capture/wasapierrortext.h"

#include <objbase.h>
#include <QDebug>
#include <QEventLoop>
#include <QThread>
#include <QTimer>

void AudioCapture::startCapture()
{
    QString device;
    {
        const QMutexLocker lock(&m_mutex);
        if (m_starting) {
            qDebug() << "[startCapture] 已在执行中，跳过本次调用";
            return;
        }
        m_starting = true;
        device = m_currentDevice;
    }
    writeDiagnosticLog(QStringLiteral("startCapture 开始, 当前设备=") + device);

    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE)
        qDebug() << "[startCapture] CoInitializeEx 失败, hr =" << hexCode(hr);

    bool oldSessionRuns = false;
    {
        const QMutexLocker lock(&m_mutex);
        m_autoRestart = true;
        oldSessionRuns = m_captureThread.isRunning();
    }
    if (oldSessionRuns)
        waitForOldSession();

    const QMutexLocker lock(&m_mutex);
    releaseOldSession();
    const HRESULT result = bringUpSession();
    if (FAILED(result))
        handleStartError(result);
    // Cleared before the mutex is released: whoever waits for it finds the start finished.
    m_starting = false;
}

void AudioCapture::stopCapture()
{
    const QMutexLocker lock(&m_mutex);
    m_autoRestart = false;
    m_captureThread.sessions().retire();
    m_captureThread.clearRunning();
}

bool AudioCapture::isCapturing() const
{
    const QMutexLocker lock(&m_mutex);
    return m_captureThread.isRunning();
}

void AudioCapture::waitForOldSession()
{
    qDebug() << "[startCapture] 等待旧线程停止...";
    {
        const QMutexLocker lock(&m_mutex);
        m_autoRestart = false; // the stop that comes now is not to be answered by a restart
    }

    // The loop comes first: on a thread that is none of Qt's it makes the dispatcher that the timer
    // needs.
    QEventLoop loop;
    QTimer timer;
    bool timedOut = false;
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, &loop, [&loop, &timedOut] {
        timedOut = true;
        loop.quit();
    });
    // Queued to this thread, so that a worker that stops before exec() ends it all the same.
    connect(&m_captureThread, &CaptureAudioThread::stoped, &loop, &QEventLoop::quit);
    {
        const QMutexLocker lock(&m_mutex);
        m_captureThread.sessions().supersede();
        m_captureThread.clearRunning();
    }
    timer.start(3000);
    loop.exec();

    // A worker that does not stop is left alone: it ends when it can, and the new session waits for
    // its turn on the same thread.
    if (timedOut)
        qDebug() << "[startCapture] 线程停止超时，强制终止";
    qDebug() << "[startCapture] 旧线程已停止";
    const QMutexLocker lock(&m_mutex);
    m_autoRestart = true;
}

/// Called with m_mutex held; lets go of it for the pause after the client's end.
void AudioCapture::releaseOldSession()
{
    m_captureThread.sessions().supersede(); // also one that has not set the run flag yet
    if (pAudioClient) {
        pAudioClient->Stop();
        releaseClient();
        m_mutex.unlock();
        QThread::msleep(500);
        m_mutex.lock();
    }
    releaseDevice();
    freeFormat();
}

void AudioCapture::releaseClient()
{
    if (pAudioClient)
        pAudioClient->Release();
    pAudioClient = nullptr;
}

void AudioCapture::releaseDevice()
{
    if (pDevice)
        pDevice->Release();
    pDevice = nullptr;
}

void AudioCapture::freeFormat()
{
    if (pwfx)
        CoTaskMemFree(pwfx);
    pwfx = nullptr;
}
