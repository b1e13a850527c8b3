// IMMDevice: one endpoint, known by its id.
#pragma once

#include "platform/linux/audio/comobject.h"
#include "platform/linux/audio/pulseserver.h"

/// Answers from the catalogue as it is at each call, so a device object outlives the endpoint and
/// finds it again when it comes back.
class MMDevice final : public ComObject<IMMDevice> {
public:
    MMDevice(PulseServer &server, std::wstring id);

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT *parameters,
                                       void **object) override;
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore **store) override;
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR *id) override;
    HRESULT STDMETHODCALLTYPE GetState(DWORD *state) override;

private:
    PulseServer &m_server;
    const std::wstring m_id;
};
