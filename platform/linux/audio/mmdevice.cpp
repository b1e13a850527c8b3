#include "platform/linux/audio/mmdevice.h"

#include "platform/linux/audio/audioclient.h"
#include "platform/linux/audio/propertystore.h"
#include "platform/linux/audio/taskstring.h"

MMDevice::MMDevice(PulseServer &server, std::wstring id)
    : ComObject(IID_IMMDevice)
    , m_server(server)
    , m_id(std::move(id))
{
}

HRESULT MMDevice::Activate(REFIID iid, DWORD context, PROPVARIANT *parameters, void **object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (iid != IID_IAudioClient)
        return E_NOINTERFACE;
    if (!(context & CLSCTX_INPROC_SERVER) || parameters)
        return E_INVALIDARG;
    const auto snapshot = m_server.catalogue().snapshot();
    if (!snapshot->connected)
        return AUDCLNT_E_SERVICE_NOT_RUNNING;
    const SoundEndpoint *const endpoint = snapshot->findPresent(m_id);
    if (!endpoint || endpoint->state != DEVICE_STATE_ACTIVE)
        return AUDCLNT_E_DEVICE_INVALIDATED;
    *object =
        static_cast<IAudioClient *>(new AudioClient(m_server, *endpoint, snapshot->connection));
    return S_OK;
}

HRESULT MMDevice::OpenPropertyStore(DWORD access, IPropertyStore **store)
{
    if (!store)
        return E_POINTER;
    *store = nullptr;
    if (access != STGM_READ)
        return E_ACCESSDENIED;
    const auto snapshot = m_server.catalogue().snapshot();
    const SoundEndpoint *const endpoint = snapshot->find(m_id);
    if (!endpoint)
        return E_NOTFOUND;
    *store = new PropertyStore(endpoint->name, endpoint->description);
    return S_OK;
}

HRESULT MMDevice::GetId(LPWSTR *id)
{
    if (!id)
        return E_POINTER;
    *id = copyToTaskMemory(m_id);
    return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT MMDevice::GetState(DWORD *state)
{
    if (!state)
        return E_POINTER;
    const auto snapshot = m_server.catalogue().snapshot();
    const SoundEndpoint *const endpoint = snapshot->findPresent(m_id);
    *state = endpoint ? endpoint->state : DEVICE_STATE_NOTPRESENT;
    return S_OK;
}
