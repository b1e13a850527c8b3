// Audio endpoints: enumeration, properties and change notifications.
#pragma once

#include <propsys.h>

#define DEVICE_STATE_ACTIVE 0x00000001U
#define DEVICE_STATE_DISABLED 0x00000002U
#define DEVICE_STATE_NOTPRESENT 0x00000004U
#define DEVICE_STATE_UNPLUGGED 0x00000008U
#define DEVICE_STATEMASK_ALL 0x0000000FU

enum EDataFlow { eRender = 0, eCapture = 1, eAll = 2 };
enum ERole { eConsole = 0, eMultimedia = 1, eCommunications = 2 };

struct IMMDevice : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT *parameters,
                                               void **object) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore **store) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR *id) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD *state) = 0;

protected:
    ~IMMDevice() = default;
};

struct IMMDeviceCollection : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT *count) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice **device) = 0;

protected:
    ~IMMDeviceCollection() = default;
};

struct IMMNotificationClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD newState) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                             LPCWSTR id) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY key) = 0;

protected:
    ~IMMNotificationClient() = default;
};

struct IMMDeviceEnumerator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD stateMask,
                                                         IMMDeviceCollection **devices) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                              IMMDevice **device) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice **device) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient *client) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient *client) = 0;

protected:
    ~IMMDeviceEnumerator() = default;
};

extern const CLSID CLSID_MMDeviceEnumerator;
extern const IID IID_IMMDeviceEnumerator;
extern const IID IID_IMMDevice;
extern const IID IID_IMMDeviceCollection;
extern const IID IID_IMMNotificationClient;
