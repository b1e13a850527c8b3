// Shared-mode audio streams of an endpoint, as far as loopback capture needs them.
#pragma once

#include <mmreg.h>
#include <unknwn.h>

using REFERENCE_TIME = LONGLONG; // 100 ns units

enum AUDCLNT_SHAREMODE { AUDCLNT_SHAREMODE_SHARED = 0, AUDCLNT_SHAREMODE_EXCLUSIVE = 1 };

#define AUDCLNT_STREAMFLAGS_LOOPBACK 0x00020000U

enum _AUDCLNT_BUFFERFLAGS : DWORD {
    AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY = 0x1,
    AUDCLNT_BUFFERFLAGS_SILENT = 0x2,
};

struct IAudioClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags,
                                                 REFERENCE_TIME bufferDuration,
                                                 REFERENCE_TIME periodicity,
                                                 const WAVEFORMATEX *format, LPCGUID session) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32 *frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME *latency) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32 *frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE shareMode,
                                                        const WAVEFORMATEX *format,
                                                        WAVEFORMATEX **closestMatch) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX **format) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME *defaultPeriod,
                                                      REFERENCE_TIME *minimumPeriod) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start() = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void **service) = 0;

protected:
    ~IAudioClient() = default;
};

struct IAudioCaptureClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags,
                                                UINT64 *devicePosition, UINT64 *qpcPosition) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) = 0;

protected:
    ~IAudioCaptureClient() = default;
};

extern const IID IID_IAudioClient;
extern const IID IID_IAudioCaptureClient;

#define AUDCLNT_ERR(n) static_cast<HRESULT>(0x88890000U | (n))
#define AUDCLNT_SUCCESS(n) static_cast<HRESULT>(0x08890000U | (n))
#define AUDCLNT_E_NOT_INITIALIZED AUDCLNT_ERR(0x001U)
#define AUDCLNT_E_ALREADY_INITIALIZED AUDCLNT_ERR(0x002U)
#define AUDCLNT_E_WRONG_ENDPOINT_TYPE AUDCLNT_ERR(0x003U)
#define AUDCLNT_E_DEVICE_INVALIDATED AUDCLNT_ERR(0x004U)
#define AUDCLNT_E_NOT_STOPPED AUDCLNT_ERR(0x005U)
#define AUDCLNT_E_OUT_OF_ORDER AUDCLNT_ERR(0x007U)
#define AUDCLNT_E_UNSUPPORTED_FORMAT AUDCLNT_ERR(0x008U)
#define AUDCLNT_E_INVALID_SIZE AUDCLNT_ERR(0x009U)
#define AUDCLNT_E_BUFFER_OPERATION_PENDING AUDCLNT_ERR(0x00BU)
#define AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED AUDCLNT_ERR(0x00EU)
#define AUDCLNT_E_ENDPOINT_CREATE_FAILED AUDCLNT_ERR(0x00FU)
#define AUDCLNT_E_SERVICE_NOT_RUNNING AUDCLNT_ERR(0x010U)
#define AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED AUDCLNT_ERR(0x011U)
#define AUDCLNT_E_EVENTHANDLE_NOT_SET AUDCLNT_ERR(0x014U)
#define AUDCLNT_E_BUFFER_SIZE_ERROR AUDCLNT_ERR(0x016U)
#define AUDCLNT_E_CPUUSAGE_EXCEEDED AUDCLNT_ERR(0x017U)
#define AUDCLNT_E_BUFFER_ERROR AUDCLNT_ERR(0x018U)
#define AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED AUDCLNT_ERR(0x019U)
#define AUDCLNT_E_INVALID_DEVICE_PERIOD AUDCLNT_ERR(0x020U)
#define AUDCLNT_S_BUFFER_EMPTY AUDCLNT_SUCCESS(0x001U)
