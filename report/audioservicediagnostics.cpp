#include "report/audioservicediagnostics.h"

#include "platform/deviceenumerator.h"
#include "report/hextext.h"

#include <windows.h>
#include <functiondiscoverykeys_devpkey.h>
#include <objbase.h>
#include <winsvc.h>

namespace {

QString serviceStateName(DWORD state)
{
    switch (state) {
    case SERVICE_STOPPED:
        return QStringLiteral("Stopped");
    case SERVICE_START_PENDING:
        return QStringLiteral("Start Pending");
    case SERVICE_STOP_PENDING:
        return QStringLiteral("Stop Pending");
    case SERVICE_RUNNING:
        return QStringLiteral("Running");
    case SERVICE_CONTINUE_PENDING:
        return QStringLiteral("Continue Pending");
    case SERVICE_PAUSE_PENDING:
        return QStringLiteral("Pause Pending");
    case SERVICE_PAUSED:
        return QStringLiteral("Paused");
    default:
        return QStringLiteral("Unknown");
    }
}

// Compared for equality, not bit by bit: a service in a shared process is "Unknown".
QString serviceTypeName(DWORD type)
{
    if (type == SERVICE_WIN32)
        return QStringLiteral("Win32");
    if (type == SERVICE_DRIVER)
        return QStringLiteral("Driver");
    return QStringLiteral("Unknown");
}

QString audioService()
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!manager)
        return QStringLiteral("  Service Control Manager: Access denied\n");

    QString text;
    const SC_HANDLE service =
        OpenServiceW(manager, L"Audiosrv", SERVICE_QUERY_CONFIG | SERVICE_QUERY_STATUS);
    if (service) {
        SERVICE_STATUS status {};
        if (QueryServiceStatus(service, &status)) {
            text += QStringLiteral("  Audiosrv Service State: %1\n")
                        .arg(serviceStateName(status.dwCurrentState));
            text +=
                QStringLiteral("  Service Type: %1\n").arg(serviceTypeName(status.dwServiceType));
        }
        CloseServiceHandle(service);
    } else {
        text += QStringLiteral("  Audiosrv Service: Not found\n");
    }
    CloseServiceHandle(manager);
    return text;
}

QString endpointBuilderService()
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (!manager)
        return {};

    QString text;
    const SC_HANDLE service = OpenServiceW(manager, L"AudioEndpointBuilder", SERVICE_QUERY_STATUS);
    if (service) {
        SERVICE_STATUS status {};
        if (QueryServiceStatus(service, &status)) {
            // Two names only, unlike the first service: pending states count as stopped.
            text += QStringLiteral("  AudioEndpointBuilder State: %1\n")
                        .arg(status.dwCurrentState == SERVICE_RUNNING ? QStringLiteral("Running")
                                                                      : QStringLiteral("Stopped"));
        }
        CloseServiceHandle(service);
    } else {
        text += QStringLiteral("  AudioEndpointBuilder Service: Not found\n");
    }
    CloseServiceHandle(manager);
    return text;
}

QString comBlock()
{
    QString text = QStringLiteral("[COM Initialization Status]\n");
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (SUCCEEDED(hr)) {
        text +=
            QStringLiteral("  COM Status: Successfully initialized (COINIT_APARTMENTTHREADED)\n");
    } else if (hr == RPC_E_CHANGED_MODE) {
        text += QStringLiteral(
            "  COM Status: Already initialized in different mode (RPC_E_CHANGED_MODE)\n");
        text += QStringLiteral(
            "  Note: Audio operations may still work if previous mode was compatible\n");
    } else {
        text += QStringLiteral("  COM Status: Failed, hr = 0x%1\n").arg(hexText(hr, 8));
    }
    return text;
}

QString deviceStateName(DWORD state)
{
    switch (state) {
    case DEVICE_STATE_ACTIVE:
        return QStringLiteral("Active");
    case DEVICE_STATE_DISABLED:
        return QStringLiteral("Disabled");
    case DEVICE_STATE_NOTPRESENT:
        return QStringLiteral("Not Present");
    case DEVICE_STATE_UNPLUGGED:
        return QStringLiteral("Unplugged");
    default:
        return QStringLiteral("Unknown");
    }
}

// The line with the property's text in place of %2, empty when there is no such text.
QString propertyLine(IPropertyStore *store, REFPROPERTYKEY key, const QString &format,
                     const QString &indent)
{
    QString line;
    PROPVARIANT value;
    PropVariantInit(&value);
    if (SUCCEEDED(store->GetValue(key, &value)) && value.vt == VT_LPWSTR)
        line = format.arg(indent, QString::fromWCharArray(value.pwszVal));
    PropVariantClear(&value);
    return line;
}

QString deviceDetails(IMMDevice *device, const QString &indent)
{
    QString text;
    LPWSTR id = nullptr;
    if (SUCCEEDED(device->GetId(&id))) {
        text += QStringLiteral("%1  Device ID: %2\n").arg(indent, QString::fromWCharArray(id));
        CoTaskMemFree(id);
    }
    DWORD state = 0;
    if (SUCCEEDED(device->GetState(&state)))
        text += QStringLiteral("%1  State: %2\n").arg(indent, deviceStateName(state));

    IPropertyStore *store = nullptr;
    if (SUCCEEDED(device->OpenPropertyStore(STGM_READ, &store)) && store) {
        text += propertyLine(store, PKEY_Device_FriendlyName,
                             QStringLiteral("%1  Friendly Name: %2\n"), indent);
        text += propertyLine(store, PKEY_Device_DeviceDesc, QStringLiteral("%1  Description: %2\n"),
                             indent);
        store->Release();
    }
    return text;
}

// flowName is "Render" or "Capture".
QString defaultDevice(IMMDeviceEnumerator *enumerator, EDataFlow flow, const QString &flowName)
{
    IMMDevice *device = nullptr;
    if (FAILED(enumerator->GetDefaultAudioEndpoint(flow, eConsole, &device)) || !device)
        return QStringLiteral("  Default %1 Device (Console): Not found\n").arg(flowName);

    QString text = QStringLiteral("  Default %1 Device (Console): Found\n").arg(flowName)
        + deviceDetails(device, QStringLiteral("  "));
    device->Release();
    return text;
}

QString activeDeviceCount(IMMDeviceEnumerator *enumerator)
{
    IMMDeviceCollection *devices = nullptr;
    if (FAILED(enumerator->EnumAudioEndpoints(eAll, DEVICE_STATE_ACTIVE, &devices)) || !devices)
        return {};

    UINT count = 0;
    devices->GetCount(&count);
    devices->Release();
    return QStringLiteral("  Total Active Audio Devices: %1\n").arg(count)
        + QStringLiteral("  Note: Run 'control mmsys.cpl' to view all audio devices\n");
}

QString devicesBlock()
{
    QString text = QStringLiteral("[Audio Devices Information]\n");
    HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    if (FAILED(hr) && hr != RPC_E_CHANGED_MODE)
        return text + QStringLiteral("  Error: COM initialization failed\n");

    IMMDeviceEnumerator *enumerator = nullptr;
    hr = createDeviceEnumerator(&enumerator);
    if (FAILED(hr) || !enumerator) {
        return text + QStringLiteral("  Device Enumerator: Failed to create\n")
            + QStringLiteral("  Error Code: 0x%1\n").arg(hexText(hr, 8));
    }
    text += QStringLiteral("  Device Enumerator: Created successfully\n");
    text += defaultDevice(enumerator, eRender, QStringLiteral("Render"));
    text += defaultDevice(enumerator, eCapture, QStringLiteral("Capture"));
    text += activeDeviceCount(enumerator);
    enumerator->Release();
    return text;
}

// Fixed text for the reader; its numbers are not those that the program tests for.
QString errorCodeReference()
{
    return QStringLiteral(
        "[WASAPI Error Code Reference]\n"
        "  AUDCLNT_E_DEVICE_INVALIDATED    = 0x8889000D (Device disconnected/invalid)\n"
        "  AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED = 0x88890008 (Buffer size alignment error)\n"
        "  AUDCLNT_E_CPUUSAGE_EXCEEDED     = 0x88890013 (CPU overload)\n"
        "  AUDCLNT_E_BUFFER_ERROR          = 0x8889000A (Buffer creation failed)\n"
        "  AUDCLNT_E_SERVICE_NOT_RUNNING   = 0x88890020 (Audio service stopped)\n"
        "  CO_E_NOTINITIALIZED             = 0x8001010F (COM not initialized)\n"
        "  E_NOINTERFACE                   = 0x80004002 (Interface not supported)\n"
        "  E_POINTER                       = 0x80004003 (Invalid pointer)\n"
        "  AUDCLNT_E_UNSUPPORTED_FORMAT    = 0x88890005 (Unsupported audio format)\n"
        "  AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED = 0x8889000E (Exclusive mode denied)\n"
        "  AUDCLNT_E_ENDPOINT_CREATE_FAILED = 0x8889001F (Endpoint creation failed)\n");
}

} // namespace

QString audioServiceDiagnostics()
{
    // One statement for each block: they ask the system in the order in which they are printed.
    QString text = QStringLiteral("[Audio Service Diagnostics]\n");
    text += QStringLiteral("[Windows Audio Service Status]\n");
    text += audioService();
    text += endpointBuilderService();
    text += QLatin1Char('\n');
    text += comBlock();
    text += QLatin1Char('\n');
    text += devicesBlock();
    text += QLatin1Char('\n');
    text += errorCodeReference();
    return text;
}
