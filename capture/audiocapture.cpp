// The controller's construction and end, its stop, and the ways back into a start.
#include "capture/audiocapture.h"

#include "capture/comobjects.h"
#include "capture/diagnosticlog.h"
#include "capture/renderendpoints.h"
#include "capture/startfailure.h"
#include "platform/deviceenumerator.h"
#include "report/deliverreport.h"
#include "report/hextext.h"

#include <objbase.h>
#include <QDebug>
#include <QTimer>

namespace {

constexpr int kRestartDelayMs = 500;

} // namespace

AudioCapture::AudioCapture(QObject *parent)
    : QObject(parent)
    , m_currentDevice(followDefaultName())
{
    qRegisterMetaType<IAudioClient *>("IAudioClient*");
    qRegisterMetaType<HRESULT>("HRESULT");
    qRegisterMetaType<WAVEFORMATEX>("WAVEFORMATEX"); // formatChanged crosses threads

    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE)
        qDebug() << "[AudioCapture] CoInitializeEx 失败, hr =" << hexText(hr);

    connect(&m_captureThread, &CaptureAudioThread::notifyData, this,
            [this](const QByteArray &data) { Q_EMIT notifyData(data); });
    connect(&m_captureThread, &CaptureAudioThread::error, this, &AudioCapture::handleStartError);
    connect(&m_captureThread, &CaptureAudioThread::stoped, this, &AudioCapture::handleThreadStopped,
            Qt::QueuedConnection);

    hr = createDeviceEnumerator(&pOutputEnumerator);
    if (FAILED(hr) || !pOutputEnumerator) {
        pOutputEnumerator = nullptr;
        qDebug() << "[AudioCapture] CoCreateInstance 失败, hr =" << hexText(hr);
        return;
    }
    pOutputEnumerator->RegisterEndpointNotificationCallback(this);
    flushDevices();
    m_ready = true;
}

AudioCapture::~AudioCapture()
{
    if (pOutputEnumerator)
        pOutputEnumerator->UnregisterEndpointNotificationCallback(this);
    m_captureThread.sessions().retire(); // also those that have not begun
    m_captureThread.forceStop();
    if (pAudioClient)
        pAudioClient->Stop();
    releaseAndClear(pAudioClient);
    releaseAndClear(pDevice);
    CoTaskMemFree(pwfx);
    pwfx = nullptr;
    releaseAndClear(pOutputEnumerator);
}

void AudioCapture::flushDevices()
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    m_deviceList = renderEndpoints(pOutputEnumerator);
}

QList<DeviceEntry> AudioCapture::devices() const
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    return m_deviceList;
}

QString AudioCapture::currentDevice() const
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    return m_currentDevice;
}

bool AudioCapture::isCapturing() const
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    return m_captureThread.isRunning();
}

const DeviceEntry *AudioCapture::findDevice(const QString &name) const
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    return findByName(m_deviceList, name);
}

void AudioCapture::setDiagnosticLogEnabled(bool enabled)
{
    enableDiagnosticLog(enabled);
}

void AudioCapture::setCurrentDevice(const QString &name)
{
    writeDiagnosticLog(QStringLiteral("setCurrentDevice -> ") + name);
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
        m_currentDevice = name;
    }
    startCapture();
}

void AudioCapture::stopCapture()
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    m_autoRestart = false;
    m_captureThread.sessions().retire();
    m_captureThread.clearRunning();
}

void AudioCapture::handleStartError(HRESULT hr)
{
    if (hr >= 0)
        return;
    qDebug() << "引擎启动失败，错误代码" << hexText(hr);

    QString report = startFailureReport(hr);
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
        const QMutexLocker pendingLock(&m_pendingMutex);
        report += deviceFormatDebugInfo({m_currentDevice, m_pendingDeviceId, m_ready,
                                         pOutputEnumerator, pDevice, pAudioClient, pwfx});
    }
    if (claimOnlyReport())
        QMetaObject::invokeMethod(this,
                                  [report] { deliverReport(report); }); // shown by a GUI thread

    if (hr != AUDCLNT_E_DEVICE_INVALIDATED)
        return;
    bool fallBack = false;
    {
        // Not within a start, and not for a session that a newer start has taken over meanwhile:
        // that must not undo a choice that came after it.
        const std::lock_guard<PatientMutex> lock(m_mutex);
        fallBack = !m_starting && !m_captureThread.sessions().nextIsSuperseded();
    }
    if (fallBack)
        setCurrentDevice(followDefaultName());
}

void AudioCapture::handleThreadStopped()
{
    writeDiagnosticLog(QStringLiteral("handleThreadStopped 触发"));
    bool restart = false;
    {
        // A start ends the session before it, and that stop may arrive here only after the start
        // has set m_autoRestart again.
        const std::lock_guard<PatientMutex> lock(m_mutex);
        const bool superseded = m_captureThread.sessions().stopArrived();
        restart = m_autoRestart && !superseded;
    }
    if (!restart) {
        qDebug() << "[handleThreadStopped] 线程停止（不需要自动重启）";
        return;
    }
    qDebug() << "[handleThreadStopped] 检测到线程停止，需要自动重启，延迟500ms...";
    QTimer::singleShot(kRestartDelayMs, this, &AudioCapture::restartAfterStop);
}

void AudioCapture::restartAfterStop()
{
    bool wanted = false;
    {
        const std::lock_guard<PatientMutex> lock(m_mutex);
        wanted = m_autoRestart;
    }
    if (wanted) {
        qDebug() << "[handleThreadStopped] 正在执行自动重启...";
        startCapture();
    } else {
        qDebug() << "[handleThreadStopped] 自动重启已取消（用户可能已手动停止）";
    }
}
