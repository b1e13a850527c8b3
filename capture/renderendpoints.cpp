// Construction, the device catalogue and IUnknown.
#include "capture/audiocapture.h"

#include "capture/diagnosticlog.h"
#include "capture/wasapierrortext.h"
#include "platform/deviceenumerator.h"

#include <windows.h>
#include <functiondiscoverykeys_devpkey.h>
#include <objbase.h>
#include <QDebug>

AudioCapture::AudioCapture(QObject *parent)
    : QObject(parent)
    , m_currentDevice(followDefaultName())
{
    qRegisterMetaType<IAudioClient *>("IAudioClient*");
    qRegisterMetaType<HRESULT>("HRESULT");
    qRegisterMetaType<WAVEFORMATEX>("WAVEFORMATEX"); // formatChanged crosses threads

    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE)
        qDebug() << "[AudioCapture] CoInitializeEx 失败, hr =" << hexCode(hr);

    connect(&m_captureThread, &CaptureAudioThread::notifyData, this,
            [this](const QByteArray &data) { Q_EMIT notifyData(data); });
    connect(&m_captureThread, &CaptureAudioThread::error, this, &AudioCapture::handleStartError);
    connect(&m_captureThread, &CaptureAudioThread::stoped, this, &AudioCapture::handleThreadStopped,
            Qt::QueuedConnection);

    hr = createDeviceEnumerator(&pOutputEnumerator);
    if (FAILED(hr) || !pOutputEnumerator) {
        pOutputEnumerator = nullptr;
        qDebug() << "[AudioCapture] CoCreateInstance 失败, hr =" << hexCode(hr);
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
    releaseClient();
    releaseDevice();
    freeFormat();
    if (pOutputEnumerator)
        pOutputEnumerator->Release();
    pOutputEnumerator = nullptr;
}

QString AudioCapture::followDefaultName()
{
    return QStringLiteral("默认输出设备");
}

void AudioCapture::setDiagnosticLogEnabled(bool enabled)
{
    enableDiagnosticLog(enabled);
}

/// Id of the default render endpoint; empty when there is none. Called with m_mutex held.
QString AudioCapture::defaultDeviceId()
{
    IMMDevice *device = nullptr;
    if (FAILED(pOutputEnumerator->GetDefaultAudioEndpoint(eRender, eConsole, &device)) || !device)
        return {};
    QString result;
    LPWSTR id = nullptr;
    if (SUCCEEDED(device->GetId(&id)) && id) {
        result = QString::fromWCharArray(id);
        CoTaskMemFree(id);
    }
    device->Release();
    return result;
}

void AudioCapture::flushDevices()
{
    const QMutexLocker lock(&m_mutex);
    m_deviceList.clear();
    const QString defaultId = pOutputEnumerator ? defaultDeviceId() : QString();
    m_deviceList.append({followDefaultName(), QString()});

    IMMDeviceCollection *collection = nullptr;
    HRESULT hr = pOutputEnumerator
        ? pOutputEnumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection)
        : E_POINTER;
    if (FAILED(hr) || !collection) {
        qDebug() << "[flushDevices] EnumAudioEndpoints 失败, hr =" << hexCode(hr);
        return;
    }
    UINT count = 0;
    hr = collection->GetCount(&count);
    if (FAILED(hr)) {
        qDebug() << "[flushDevices] GetCount 失败, hr =" << hexCode(hr);
        collection->Release();
        return;
    }
    qDebug() << "[flushDevices] 发现" << count << "个输出设备";
    for (UINT i = 0; i < count; ++i) {
        IMMDevice *device = nullptr;
        if (FAILED(collection->Item(i, &device)) || !device)
            continue;
        LPWSTR id = nullptr;
        if (SUCCEEDED(device->GetId(&id)) && id) {
            const QString idText = QString::fromWCharArray(id);
            QString name = getDeviceName(id);
            if (idText == defaultId)
                name += QStringLiteral(" (当前默认)");
            m_deviceList.append({name, idText});
            CoTaskMemFree(id);
        }
        device->Release();
    }
    collection->Release();
}

QList<DeviceEntry> AudioCapture::devices() const
{
    const QMutexLocker lock(&m_mutex);
    return m_deviceList;
}

QString AudioCapture::currentDevice() const
{
    const QMutexLocker lock(&m_mutex);
    return m_currentDevice;
}

const DeviceEntry *AudioCapture::findDevice(const QString &name) const
{
    const QMutexLocker lock(&m_mutex);
    for (const DeviceEntry &entry : m_deviceList) {
        if (entry.name == name)
            return &entry;
    }
    return nullptr;
}

QString AudioCapture::getDeviceName(LPCWSTR id)
{
    if (!id)
        return QStringLiteral("未知设备");
    QString removed = QStringLiteral("已移除的设备");

    IMMDevice *device = nullptr;
    HRESULT hr = pOutputEnumerator ? pOutputEnumerator->GetDevice(id, &device) : E_POINTER;
    if (FAILED(hr) || !device) {
        qDebug() << "[getDeviceName] GetDevice 失败, hr =" << hexCode(hr);
        return removed;
    }
    IPropertyStore *store = nullptr;
    hr = device->OpenPropertyStore(STGM_READ, &store);
    if (FAILED(hr) || !store) {
        qDebug() << "[getDeviceName] OpenPropertyStore 失败, hr =" << hexCode(hr);
        device->Release();
        return removed;
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    hr = store->GetValue(PKEY_Device_FriendlyName, &value);
    QString name = removed;
    if (SUCCEEDED(hr))
        name = value.pwszVal ? QString::fromWCharArray(value.pwszVal) : QString();
    else
        qDebug() << "[getDeviceName] GetValue 失败, hr =" << hexCode(hr);
    PropVariantClear(&value);
    store->Release();
    device->Release();
    return name;
}

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
