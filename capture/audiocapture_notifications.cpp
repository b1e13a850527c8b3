// What the audio system calls when endpoints change, on its own threads.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"
#include "capture/renderendpoints.h"
#include "platform/timesource.h"

#include <windows.h>
#include <QDebug>
#include <QTimer>

namespace {

constexpr int kReturnDelayMs = 500; // from a device's return to the restart
constexpr int kLeaveLoopMs = 100; // for the worker to leave its loop
constexpr quint64 kSameDefaultMs = 500;

const char *stateText(DWORD state)
{
    switch (state) {
    case DEVICE_STATE_ACTIVE:
        return "ACTIVE";
    case DEVICE_STATE_DISABLED:
        return "DISABLED";
    case DEVICE_STATE_NOTPRESENT:
        return "NOTPRESENT";
    case DEVICE_STATE_UNPLUGGED:
        return "UNPLUGGED";
    default:
        return "UNKNOWN";
    }
}

/// Display texts and friendly names differ by a suffix, so either may contain the other.
bool concerns(const QString &name, const QString &current)
{
    return name.contains(current) || current.contains(name);
}

/// Whether this id tells of a new change. One change of the default is announced once for each
/// role, so a repeat of the id within kSameDefaultMs is ignored, over all controllers of the
/// process.
bool isNewDefault(const QString &id)
{
    static QMutex mutex;
    static QString lastId;
    static quint64 lastTick = 0;
    const QMutexLocker lock(&mutex);
    const quint64 now = tickCountMs(); // with the lock held, or it may lie before lastTick
    if (id == lastId && now - lastTick < kSameDefaultMs)
        return false;
    lastId = id;
    lastTick = now;
    return true;
}

} // namespace

HRESULT AudioCapture::QueryInterface(REFIID riid, void **ppv)
{
    if (!ppv)
        return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IMMNotificationClient) {
        *ppv = static_cast<IMMNotificationClient *>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG AudioCapture::AddRef()
{
    return static_cast<ULONG>(InterlockedIncrement(&m_refCount));
}

ULONG AudioCapture::Release()
{
    const LONG count = InterlockedDecrement(&m_refCount);
    if (count == 0)
        deleteLater();
    return static_cast<ULONG>(count);
}

QString AudioCapture::getDeviceName(LPCWSTR id)
{
    return endpointName(pOutputEnumerator, id);
}

AudioCapture::InUse AudioCapture::inUse() const
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    return {m_currentDevice, m_captureThread.isRunning()};
}

HRESULT AudioCapture::OnDeviceStateChanged(LPCWSTR id, DWORD newState)
{
    if (!id)
        return S_OK;
    const QString name = getDeviceName(id);
    qDebug() << "[设备状态变化] 设备:" << name << " 状态:" << stateText(newState);

    const InUse before = inUse();
    if (before.device != followDefaultName() && !concerns(name, before.device))
        return S_OK;

    if (newState == DEVICE_STATE_ACTIVE) {
        qDebug() << "[设备状态] 设备恢复活动状态，延迟500ms后重启采集";
        // This thread has no event loop, so the timer is armed in the controller's.
        QMetaObject::invokeMethod(
            this,
            [this, current = before.device] {
                QTimer::singleShot(kReturnDelayMs, Qt::PreciseTimer, this,
                                   [this, current] { restartAfterDeviceReturn(current); });
            },
            Qt::QueuedConnection);
    } else {
        qDebug() << "[设备状态] 当前使用的设备变为非活动状态，停止采集";
        if (before.running)
            stopCapture();
    }
    return S_OK;
}

/// Runs kReturnDelayMs after the device in use came back, whatever m_autoRestart says: a device
/// that returns restarts capture even after a deliberate stop.
void AudioCapture::restartAfterDeviceReturn(const QString &armedFor)
{
    const std::lock_guard<PatientMutex> lock(m_mutex);
    if (m_currentDevice == armedFor) {
        qDebug() << "[设备状态] 正在重启采集...";
        startCapture();
    } else {
        qDebug() << "[设备状态] 当前设备已变更，取消重启";
    }
}

HRESULT AudioCapture::OnDeviceAdded(LPCWSTR id)
{
    qDebug() << "设备已添加" << static_cast<const void *>(id);
    return S_OK;
}

HRESULT AudioCapture::OnDeviceRemoved(LPCWSTR id)
{
    qDebug() << "设备已移除" << static_cast<const void *>(id);
    const QString name = getDeviceName(id);
    qDebug() << "[设备移除] 被移除的设备名称:" << name;

    const InUse before = inUse();
    qDebug() << "[设备移除] 当前使用的设备:" << before.device;
    if (before.device == followDefaultName() || !concerns(name, before.device))
        return S_OK; // a removed default is announced as a change of the default

    qDebug() << "[设备移除] 当前使用的设备被移除，切换到默认设备";
    if (before.running) {
        stopCapture();
        sleepMs(kLeaveLoopMs);
    }
    setCurrentDevice(followDefaultName());
    flushDevices();
    return S_OK;
}

HRESULT AudioCapture::OnDefaultDeviceChanged(EDataFlow flow, ERole, LPCWSTR id)
{
    if (flow != eRender || !id || !m_ready)
        return S_OK;
    const QString idText = QString::fromWCharArray(id);
    if (!isNewDefault(idText))
        return S_OK;
    {
        // chooseDevice() takes it, in audiocapture_start.cpp: in the start below, or in one under
        // way that has not come to its first step yet. Guarded by a mutex of its own, because a
        // start may hold m_mutex for seconds.
        const QMutexLocker lock(&m_pendingMutex);
        m_pendingDeviceId = idText;
    }
    const QString name = getDeviceName(id);
    qDebug() << "[设备切换] 检测到输出设备变化:" << name;
    writeDiagnosticLog(QStringLiteral("OnDefaultDeviceChanged -> ") + name);

    const InUse before = inUse();
    const bool follow = before.device == followDefaultName();
    qDebug() << "[设备切换] 用户之前选择的设备:" << before.device << ", 是否跟随:" << follow;
    qDebug() << "[设备切换] 之前是否在运行:" << before.running;
    if (!follow)
        return S_OK;

    // Whether it was running is only logged: a new default starts capture even after a deliberate
    // stop. The start runs on this thread and blocks it.
    setCurrentDevice(followTarget(name));
    return S_OK;
}

/// The device to want now that the default is another endpoint. The new default is listed with a
/// suffix: its bare name is found only when another endpoint carries exactly that name.
QString AudioCapture::followTarget(const QString &newDefault)
{
    flushDevices();
    const std::lock_guard<PatientMutex> lock(m_mutex);
    if (findDevice(newDefault)) {
        qDebug() << "[设备切换] 已自动跟随到:" << newDefault;
        return newDefault;
    }
    qDebug() << "[设备切换] 未找到设备，切换到默认设备";
    return followDefaultName();
}

HRESULT AudioCapture::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY)
{
    return S_OK;
}
