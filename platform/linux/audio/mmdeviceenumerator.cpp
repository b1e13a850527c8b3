#include "platform/linux/audio/mmdeviceenumerator.h"

#include "platform/linux/audio/mmdevice.h"
#include "platform/linux/audio/mmdevicecollection.h"

#include <audioclient.h>

IMMDeviceEnumerator *MMDeviceEnumerator::create()
{
    return new MMDeviceEnumerator(PulseServer::instance());
}

MMDeviceEnumerator::MMDeviceEnumerator(PulseServer &server)
    : ComObject(IID_IMMDeviceEnumerator)
    , m_server(server)
{
}

MMDeviceEnumerator::~MMDeviceEnumerator()
{
    m_server.notifier().removeAll(this);
}

HRESULT MMDeviceEnumerator::EnumAudioEndpoints(EDataFlow flow, DWORD stateMask,
                                               IMMDeviceCollection **devices)
{
    if (!devices)
        return E_POINTER;
    *devices = nullptr;
    if (flow < eRender || flow > eAll || !stateMask || (stateMask & ~DEVICE_STATEMASK_ALL))
        return E_INVALIDARG;
    const auto snapshot = m_server.catalogue().snapshot();
    if (!snapshot->connected)
        return AUDCLNT_E_SERVICE_NOT_RUNNING;
    std::vector<std::wstring> ids;
    for (const auto *endpoints : {&snapshot->present, &snapshot->gone}) {
        for (const SoundEndpoint &endpoint : *endpoints) {
            if ((flow == eAll || flow == endpoint.flow) && (stateMask & endpoint.state))
                ids.push_back(endpoint.id);
        }
    }
    *devices = new MMDeviceCollection(m_server, std::move(ids));
    return S_OK;
}

HRESULT MMDeviceEnumerator::GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice **device)
{
    if (!device)
        return E_POINTER;
    *device = nullptr;
    if ((flow != eRender && flow != eCapture) || role < eConsole || role > eCommunications)
        return E_INVALIDARG;
    const auto snapshot = m_server.catalogue().snapshot();
    if (!snapshot->connected)
        return AUDCLNT_E_SERVICE_NOT_RUNNING;
    const SoundEndpoint *const endpoint = snapshot->findDefault(flow);
    if (!endpoint)
        return E_NOTFOUND;
    *device = new MMDevice(m_server, endpoint->id);
    return S_OK;
}

HRESULT MMDeviceEnumerator::GetDevice(LPCWSTR id, IMMDevice **device)
{
    if (device)
        *device = nullptr;
    if (!id || !device)
        return E_POINTER;
    const auto snapshot = m_server.catalogue().snapshot();
    if (!snapshot->find(id))
        return snapshot->connected ? E_NOTFOUND : AUDCLNT_E_SERVICE_NOT_RUNNING;
    *device = new MMDevice(m_server, id);
    return S_OK;
}

HRESULT MMDeviceEnumerator::RegisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    if (!client)
        return E_POINTER;
    m_server.notifier().add(this, client);
    return S_OK;
}

HRESULT MMDeviceEnumerator::UnregisterEndpointNotificationCallback(IMMNotificationClient *client)
{
    if (!client)
        return E_POINTER;
    return m_server.notifier().remove(this, client) ? S_OK : E_NOTFOUND;
}
