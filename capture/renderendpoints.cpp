#include "capture/renderendpoints.h"

#include "capture/comobjects.h"
#include "platform/deviceenumerator.h"
#include "report/hextext.h"

#include <windows.h>
#include <functiondiscoverykeys_devpkey.h>
#include <initializer_list>
#include <objbase.h>
#include <QDebug>

namespace {

/// The friendly name in a property store; *hr is the code when it cannot be read.
QString friendlyName(IPropertyStore *store, HRESULT *hr)
{
    PROPVARIANT value;
    PropVariantInit(&value);
    *hr = store->GetValue(PKEY_Device_FriendlyName, &value);
    QString name;
    if (SUCCEEDED(*hr) && value.pwszVal)
        name = QString::fromWCharArray(value.pwszVal);
    PropVariantClear(&value);
    return name;
}

/// The device's line of the catalogue; nothing when its id cannot be read.
void appendEntry(QList<DeviceEntry> &entries, IMMDeviceEnumerator *enumerator, IMMDevice *device,
                 const QString &defaultId)
{
    LPWSTR id = nullptr;
    if (FAILED(device->GetId(&id)) || !id)
        return;
    const QString idText = QString::fromWCharArray(id);
    QString name = endpointName(enumerator, id);
    if (idText == defaultId)
        name += QStringLiteral(" (当前默认)");
    entries.append({name, idText});
    CoTaskMemFree(id);
}

/// The active render endpoints, to be released, and their number; null without them.
IMMDeviceCollection *activeEndpoints(IMMDeviceEnumerator *enumerator, UINT *count)
{
    IMMDeviceCollection *collection = nullptr;
    HRESULT hr = enumerator
        ? enumerator->EnumAudioEndpoints(eRender, DEVICE_STATE_ACTIVE, &collection)
        : E_POINTER;
    if (FAILED(hr) || !collection) {
        qDebug() << "[flushDevices] EnumAudioEndpoints 失败, hr =" << hexText(hr);
        return nullptr;
    }
    hr = collection->GetCount(count);
    if (FAILED(hr)) {
        qDebug() << "[flushDevices] GetCount 失败, hr =" << hexText(hr);
        collection->Release();
        return nullptr;
    }
    qDebug() << "[flushDevices] 发现" << *count << "个输出设备";
    return collection;
}

} // namespace

QString followDefaultName()
{
    return QStringLiteral("默认输出设备");
}

QString endpointName(IMMDeviceEnumerator *enumerator, LPCWSTR id)
{
    if (!id)
        return QStringLiteral("未知设备");
    QString removed = QStringLiteral("已移除的设备");

    IMMDevice *device = nullptr;
    HRESULT hr = enumerator ? enumerator->GetDevice(id, &device) : E_POINTER;
    if (FAILED(hr) || !device) {
        qDebug() << "[getDeviceName] GetDevice 失败, hr =" << hexText(hr);
        return removed;
    }
    IPropertyStore *store = nullptr;
    hr = device->OpenPropertyStore(STGM_READ, &store);
    if (FAILED(hr) || !store) {
        qDebug() << "[getDeviceName] OpenPropertyStore 失败, hr =" << hexText(hr);
        device->Release();
        return removed;
    }
    const QString name = friendlyName(store, &hr);
    if (FAILED(hr))
        qDebug() << "[getDeviceName] GetValue 失败, hr =" << hexText(hr);
    store->Release();
    device->Release();
    return SUCCEEDED(hr) ? name : removed;
}

QString defaultEndpointId(IMMDeviceEnumerator *enumerator)
{
    IMMDevice *device = nullptr;
    if (!enumerator || FAILED(enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &device))
        || !device)
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

QList<DeviceEntry> renderEndpoints(IMMDeviceEnumerator *enumerator)
{
    const QString defaultId = defaultEndpointId(enumerator);
    QList<DeviceEntry> entries {{followDefaultName(), QString()}};
    UINT count = 0;
    IMMDeviceCollection *collection = activeEndpoints(enumerator, &count);
    if (!collection)
        return entries;
    for (UINT i = 0; i < count; ++i) {
        IMMDevice *device = nullptr;
        if (FAILED(collection->Item(i, &device)) || !device)
            continue;
        appendEntry(entries, enumerator, device, defaultId);
        device->Release();
    }
    collection->Release();
    return entries;
}

const DeviceEntry *findByName(const QList<DeviceEntry> &entries, const QString &name)
{
    for (const DeviceEntry &entry : entries) {
        if (entry.name == name)
            return &entry;
    }
    return nullptr;
}

HRESULT openEndpoint(IMMDeviceEnumerator *enumerator, const QString &id, IMMDevice **out)
{
    if (!enumerator)
        return E_POINTER;
    IMMDevice *device = nullptr;
    HRESULT hr = enumerator->GetDevice(id.toStdWString().c_str(), &device);
    hr = resultWithObject(hr, device);
    if (SUCCEEDED(hr))
        *out = device;
    return hr;
}

HRESULT openDefaultEndpoint(IMMDevice **out)
{
    *out = nullptr;
    IMMDeviceEnumerator *enumerator = nullptr;
    HRESULT hr = createDeviceEnumerator(&enumerator);
    hr = resultWithObject(hr, enumerator);
    if (FAILED(hr))
        return hr;
    for (const ERole role : {eConsole, eMultimedia}) {
        IMMDevice *device = nullptr;
        hr = enumerator->GetDefaultAudioEndpoint(eRender, role, &device);
        hr = resultWithObject(hr, device);
        if (SUCCEEDED(hr)) {
            *out = device;
            break;
        }
    }
    enumerator->Release();
    return hr;
}
