// IMMDeviceEnumerator over the process's connection to the sound server.
#pragma once

#include "platform/linux/audio/comobject.h"
#include "platform/linux/audio/pulseserver.h"

/// Every call is answered from what is known and waits for nothing, with one exception:
/// UnregisterEndpointNotificationCallback waits for a call of the same client that is under way.
/// Without a server, calls that need one fail with AUDCLNT_E_SERVICE_NOT_RUNNING; GetDevice still
/// finds endpoints that were there before.
class MMDeviceEnumerator final : public ComObject<IMMDeviceEnumerator> {
public:
    /// The first one of the process connects to the sound server and waits up to 1.5 s for it.
    static IMMDeviceEnumerator *create();

    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD stateMask,
                                                 IMMDeviceCollection **devices) override;
    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                      IMMDevice **device) override;
    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice **device) override;
    HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient *client) override;
    HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient *client) override;

private:
    explicit MMDeviceEnumerator(PulseServer &server);
    ~MMDeviceEnumerator() override;

    PulseServer &m_server;
};
