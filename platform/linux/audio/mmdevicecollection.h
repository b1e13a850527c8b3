// IMMDeviceCollection: the endpoints that one enumeration found.
#pragma once

#include "platform/linux/audio/comobject.h"
#include "platform/linux/audio/pulseserver.h"

class MMDeviceCollection final : public ComObject<IMMDeviceCollection> {
public:
    MMDeviceCollection(PulseServer &server, std::vector<std::wstring> ids);

    HRESULT STDMETHODCALLTYPE GetCount(UINT *count) override;
    HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice **device) override;

private:
    PulseServer &m_server;
    const std::vector<std::wstring> m_ids;
};
