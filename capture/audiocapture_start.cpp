// A start, from its first step to its last.
#include "capture/audiocapture.h"

#include "capture/comobjects.h"
#include "capture/diagnosticlog.h"
#include "capture/loopbackclient.h"
#include "capture/renderendpoints.h"
#include "platform/timesource.h"
#include "report/hextext.h"

#include <objbase.h>
#include <QDebug>
#include <QEventLoop>
#include <QTimer>
#include <utility>

namespace {

constexpr int kOldSessionLimitMs = 3000; // for the old session to end by itself
constexpr int kReleasePauseMs = 500; // after the old client's end
constexpr int kRecoveryAttempts = 2;
constexpr int kRecoveryPauseMs = 500; // before each of them

} // namespace

void AudioCapture::startCapture()
{
    QString device;
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
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
        qDebug() << "[startCapture] CoInitializeEx 失败, hr =" << hexText(hr);

    bool oldSessionRuns = false;
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
        m_autoRestart = true;
        oldSessionRuns = m_captureThread.isRunning();
    }
    if (oldSessionRuns)
        waitForOldSession();

    const std::lock_guard<PatientMutex> lock(m_mutex);
    releaseOldSession();
    const HRESULT result = bringUpSession();
    if (FAILED(result))
        handleStartError(result);
    // Cleared before the mutex is released: whoever waits for it finds the start finished.
    m_starting = false;
}

void AudioCapture::waitForOldSession()
{
    qDebug() << "[startCapture] 等待旧线程停止...";
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
        m_autoRestart = false; // no restart may answer the stop that comes now
    }

    // The loop comes first: on a thread that Qt did not start it makes the dispatcher that the
    // timer needs.
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
        const std::lock_guard<PatientMutex> lock(m_mutex);
        m_captureThread.sessions().supersede();
        m_captureThread.clearRunning();
    }
    timer.start(kOldSessionLimitMs);
    loop.exec();

    // A worker that does not stop is left alone: it ends when it can, and the new session waits for
    // its turn on the same thread.
    if (timedOut)
        qDebug() << "[startCapture] 线程停止超时，强制终止";
    qDebug() << "[startCapture] 旧线程已停止";
    const std::lock_guard<PatientMutex> lock(m_mutex);
    m_autoRestart = true;
}

/// Called with m_mutex held, which is unlocked during the pause after the client's end. Who holds
/// it around the whole start (restartAfterDeviceReturn) holds it during the pause as well.
void AudioCapture::releaseOldSession()
{
    m_captureThread.sessions().supersede(); // also one that has not set the run flag yet
    if (pAudioClient) {
        pAudioClient->Stop();
        releaseAndClear(pAudioClient);
        m_mutex.unlock();
        sleepMs(kReleasePauseMs);
        m_mutex.lock();
    }
    releaseAndClear(pDevice);
    CoTaskMemFree(pwfx);
    pwfx = nullptr;
}

HRESULT AudioCapture::getDefaultRenderDevice(IMMDevice **out)
{
    return openDefaultEndpoint(out);
}

/// Steps 1 to 6: brings the session up and queues it to the worker. Called with m_mutex held, as
/// all that follows. Returns the code of the call that failed; what was acquired until then stays
/// in the members.
HRESULT AudioCapture::bringUpSession()
{
    HRESULT hr = chooseDevice();
    if (FAILED(hr))
        return hr;
    hr = activateClient(pDevice, &pAudioClient);
    if (FAILED(hr))
        return hr;
    hr = readMixFormat(pAudioClient, m_currentDevice, &pwfx);
    if (FAILED(hr))
        return hr;
    hr = initializeClient();
    if (FAILED(hr))
        return hr;
    const int blockAlign = pwfx->nBlockAlign; // the device's, which is rewritten now
    announceFormat();
    hr = readBufferSize(pAudioClient);
    if (FAILED(hr))
        return hr;
    startWorker(blockAlign);
    return hr;
}

HRESULT AudioCapture::chooseDevice()
{
    const DeviceEntry *entry = findDevice(m_currentDevice);
    QString pendingId;
    {
        const QMutexLocker lock(&m_pendingMutex);
        pendingId = std::exchange(m_pendingDeviceId, QString());
    }
    if (!pendingId.isEmpty())
        qDebug() << "[Step 1] 使用回调指定的设备ID:" << pendingId;

    if (entry && entry->name != followDefaultName() && !entry->id.isEmpty()) {
        qDebug() << "[Step 1] 使用指定输出设备:" << entry->name;
        const HRESULT hr = openEndpoint(pOutputEnumerator, entry->id, &pDevice);
        if (FAILED(hr))
            qDebug() << "GetDevice 失败" << hexText(hr);
        return hr;
    }

    if (!pendingId.isEmpty()) {
        qDebug() << "[Step 1] 根据回调ID获取设备";
        if (SUCCEEDED(openEndpoint(pOutputEnumerator, pendingId, &pDevice)))
            return S_OK;
        qDebug() << "GetDevice(回调ID) 失败，回退到默认设备";
    } else {
        qDebug() << "[Step 1] 使用默认输出设备";
    }
    const HRESULT hr = getDefaultRenderDevice(&pDevice);
    if (FAILED(hr))
        qDebug() << "获取默认设备失败" << hexText(hr);
    return hr;
}

HRESULT AudioCapture::initializeClient()
{
    HRESULT hr = initializeWithRetries(pAudioClient, pwfx);
    if (SUCCEEDED(hr))
        return hr;

    qDebug() << "Initialize 失败" << hexText(hr);
    writeDiagnosticLog(QStringLiteral("Initialize 失败, hr=0x") + hexText(hr));
    for (int attempt = 1; attempt <= kRecoveryAttempts && FAILED(hr); ++attempt) {
        sleepMs(kRecoveryPauseMs);
        writeDiagnosticLog(QStringLiteral("Initialize 重试 #%1").arg(attempt));
        hr = recoverOnDefaultDevice();
    }
    if (SUCCEEDED(hr))
        writeDiagnosticLog(QStringLiteral("Initialize 重试成功"));
    return hr;
}

/// One attempt to come up on the default endpoint, whatever device is wanted. Every step that fails
/// ends the attempt with its code.
HRESULT AudioCapture::recoverOnDefaultDevice()
{
    releaseAndClear(pAudioClient);
    releaseAndClear(pDevice);
    HRESULT hr = getDefaultRenderDevice(&pDevice);
    if (FAILED(hr))
        return hr;
    hr = tryActivate(pDevice, CLSCTX_INPROC_SERVER, &pAudioClient);
    if (FAILED(hr))
        return hr;
    CoTaskMemFree(pwfx);
    pwfx = nullptr;
    hr = fetchMixFormat(pAudioClient, &pwfx);
    if (FAILED(hr))
        return hr;
    return tryInitialize(pAudioClient, pwfx);
}

/// Rewrites pwfx to the format of the converted data and tells it.
void AudioCapture::announceFormat()
{
    makeDownstream(pwfx);
    Q_EMIT formatChanged(*pwfx);
    qDebug() << "[Step 4f] Initialize成功，已通知下游16bit PCM";
}

/// Queues the session. blockAlign is the device's: the worker walks raw packets by it.
void AudioCapture::startWorker(int blockAlign)
{
    qDebug() << "[Step 6] 调用 CaptureAudioThread::start";
    writeDiagnosticLog(
        QStringLiteral("Initialize成功, 启动采集线程 blockAlign=%1").arg(blockAlign));
    m_captureThread.sessions().queue(pAudioClient);
    QMetaObject::invokeMethod(&m_captureThread, "start", Qt::AutoConnection,
                              Q_ARG(IAudioClient *, pAudioClient), Q_ARG(int, blockAlign));
}
