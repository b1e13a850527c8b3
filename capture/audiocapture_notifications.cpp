// What the audio system calls when endpoints change, on its own threads.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"

#include <windows.h>
#include <QDebug>
#include <QThread>
#include <QTimer>

namespace {

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

/// Whether this id is new or 500 ms old, over all controllers of the process: one change of the
/// default is announced once for each role.
bool isNewDefault(const QString &id)
{
    static QMutex mutex;
    static QString lastId;
    static ULONGLONG lastTick = 0;
    const QMutexLocker lock(&mutex);
    const ULONGLONG now = GetTickCount64(); // with the lock held, or it may lie before lastTick
    if (id == lastId && now - lastTick < 500)
        return false;
    lastId = id;
    lastTick = now;
    return true;
}

} // namespace

HRESULT AudioCapture::OnDeviceStateChanged(LPCWSTR id, DWORD newState)
{
    if (!id)
        return S_OK;
    const QString name = getDeviceName(id);
    qDebug() << "[设备状态变化] 设备:" << name << " 状态:" << stateText(newState);

    QString current;
    bool wasRunning = false;
    {
        const QMutexLocker lock(&m_mutex);
        current = m_currentDevice;
        wasRunning = m_captureThread.isRunning();
    }
    if (current != followDefaultName() && !concerns(name, current))
        return S_OK;

    if (newState == DEVICE_STATE_ACTIVE) {
        qDebug() << "[设备状态] 设备恢复活动状态，延迟500ms后重启采集";
        // This thread has no event loop, so the timer is armed in the controller's.
        QMetaObject::invokeMethod(
            this,
            [this, current] {
                QTimer::singleShot(500, Qt::PreciseTimer, this,
                                   [this, current] { restartAfterDeviceReturn(current); });
            },
            Qt::QueuedConnection);
    } else {
        qDebug() << "[设备状态] 当前使用的设备变为非活动状态，停止采集";
        if (wasRunning)
            stopCapture();
    }
    return S_OK;
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

    QString current;
    bool wasRunning = false;
    {
        const QMutexLocker lock(&m_mutex);
        current = m_currentDevice;
        wasRunning = m_captureThread.isRunning();
    }
    qDebug() << "[设备移除] 当前使用的设备:" << current;
    if (current == followDefaultName() || !concerns(name, current))
        return S_OK; // a removed default is announced as a change of the default

    qDebug() << "[设备移除] 当前使用的设备被移除，切换到默认设备";
    if (wasRunning) {
        stopCapture();
        QThread::msleep(100); // for the worker to leave its loop
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
        // Not m_mutex: a start that is under way may hold that one for seconds.
        const QMutexLocker lock(&m_pendingMutex);
        m_pendingDeviceId = idText;
    }
    const QString name = getDeviceName(id);
    qDebug() << "[设备切换] 检测到输出设备变化:" << name;
    writeDiagnosticLog(QStringLiteral("OnDefaultDeviceChanged -> ") + name);

    QString current;
    bool wasRunning = false;
    {
        const QMutexLocker lock(&m_mutex);
        current = m_currentDevice;
        wasRunning = m_captureThread.isRunning();
    }
    const bool follow = current == followDefaultName();
    qDebug() << "[设备切换] 用户之前选择的设备:" << current << ", 是否跟随:" << follow;
    qDebug() << "[设备切换] 之前是否在运行:" << wasRunning;
    if (!follow)
        return S_OK;

    flushDevices();
    QString target;
    {
        // The new default is listed with a suffix: its bare name is found only when another
        // endpoint carries exactly that name.
        const QMutexLocker lock(&m_mutex);
        if (findDevice(name)) {
            target = name;
            qDebug() << "[设备切换] 已自动跟随到:" << name;
        } else {
            target = followDefaultName();
            qDebug() << "[设备切换] 未找到设备，切换到默认设备";
        }
    }
    setCurrentDevice(target);
    return S_OK;
}

HRESULT AudioCapture::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY)
{
    return S_OK;
}
