#include "platform/linux/audio/mmdevicecollection.h"

#include "platform/linux/audio/mmdevice.h"

MMDeviceCollection::MMDeviceCollection(PulseServer &server, std::vector<std::wstring> ids)
    : ComObject(IID_IMMDeviceCollection)
    , m_server(server)
    , m_ids(std::move(ids))
{
}

HRESULT MMDeviceCollection::GetCount(UINT *count)
{
    if (!count)
        return E_POINTER;
    *count = static_cast<UINT>(m_ids.size());
    return S_OK;
}

HRESULT MMDeviceCollection::Item(UINT index, IMMDevice **device)
{
    if (!device)
        return E_POINTER;
    *device = nullptr;
    if (index >= m_ids.size())
        return E_INVALIDARG;
    *device = new MMDevice(m_server, m_ids[index]);
    return S_OK;
}
