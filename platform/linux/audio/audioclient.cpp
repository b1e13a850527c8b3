#include "platform/linux/audio/audioclient.h"

#include "platform/linux/audio/mixformat.h"

#include <algorithm>

namespace {

constexpr REFERENCE_TIME kPeriod = 100000; // one packet, in 100 ns
constexpr REFERENCE_TIME kLongestBuffer = 100000000; // 10 s

} // namespace

AudioClient::AudioClient(PulseServer &server, const SoundEndpoint &endpoint,
                         std::uint32_t connection)
    : ComObject(IID_IAudioClient)
    , m_server(server)
    , m_endpoint(endpoint)
    , m_connection(connection)
{
}

// The stream, once made, lives as long as the client: the pointer stays valid.
LoopbackStream *AudioClient::stream() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stream.get();
}

HRESULT AudioClient::Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags,
                                REFERENCE_TIME bufferDuration, REFERENCE_TIME periodicity,
                                const WAVEFORMATEX *format, LPCGUID)
{
    if (!format)
        return E_POINTER;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stream)
        return AUDCLNT_E_ALREADY_INITIALIZED;
    if (shareMode == AUDCLNT_SHAREMODE_EXCLUSIVE)
        return AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED;
    if (shareMode != AUDCLNT_SHAREMODE_SHARED || (streamFlags & ~AUDCLNT_STREAMFLAGS_LOOPBACK))
        return E_INVALIDARG;
    if (m_endpoint.flow != eRender)
        return AUDCLNT_E_WRONG_ENDPOINT_TYPE;
    if (!(streamFlags & AUDCLNT_STREAMFLAGS_LOOPBACK))
        return E_NOTIMPL; // playing
    if (periodicity != 0)
        return AUDCLNT_E_INVALID_DEVICE_PERIOD;
    if (bufferDuration < 0)
        return E_INVALIDARG;
    if (bufferDuration > kLongestBuffer)
        return AUDCLNT_E_BUFFER_SIZE_ERROR;
    if (!isMixFormat(*format, mixFormatOf(m_endpoint)))
        return AUDCLNT_E_UNSUPPORTED_FORMAT;

    // One packet is read while the next one fills.
    const auto packets = std::max<REFERENCE_TIME>((bufferDuration + kPeriod - 1) / kPeriod, 2);
    auto stream = std::make_unique<LoopbackStream>(m_server, m_endpoint, m_connection,
                                                   static_cast<UINT32>(packets));
    const HRESULT hr = stream->open();
    if (FAILED(hr))
        return hr;
    m_stream = std::move(stream);
    m_capture = std::make_unique<AudioCaptureClient>(this, m_stream.get());
    return S_OK;
}

HRESULT AudioClient::GetBufferSize(UINT32 *frames)
{
    if (!frames)
        return E_POINTER;
    LoopbackStream *const own = stream();
    if (!own)
        return AUDCLNT_E_NOT_INITIALIZED;
    if (own->lost())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    *frames = own->ring().capacityFrames();
    return S_OK;
}

HRESULT AudioClient::GetStreamLatency(REFERENCE_TIME *latency)
{
    if (!latency)
        return E_POINTER;
    LoopbackStream *const own = stream();
    if (!own)
        return AUDCLNT_E_NOT_INITIALIZED;
    if (own->lost())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    *latency = kPeriod;
    return S_OK;
}

HRESULT AudioClient::GetCurrentPadding(UINT32 *frames)
{
    if (!frames)
        return E_POINTER;
    LoopbackStream *const own = stream();
    if (!own)
        return AUDCLNT_E_NOT_INITIALIZED;
    if (own->lost())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    *frames = own->ring().waitingFrames();
    return S_OK;
}

HRESULT AudioClient::IsFormatSupported(AUDCLNT_SHAREMODE shareMode, const WAVEFORMATEX *format,
                                       WAVEFORMATEX **closestMatch)
{
    const bool shared = shareMode == AUDCLNT_SHAREMODE_SHARED;
    if (closestMatch)
        *closestMatch = nullptr;
    if (!format || (shared && !closestMatch))
        return E_POINTER;
    if (!shared)
        return AUDCLNT_E_UNSUPPORTED_FORMAT;
    const WAVEFORMATEXTENSIBLE mix = mixFormatOf(m_endpoint);
    if (isMixFormat(*format, mix))
        return S_OK;
    *closestMatch = copyFormat(mix);
    return *closestMatch ? S_FALSE : E_OUTOFMEMORY;
}

HRESULT AudioClient::GetMixFormat(WAVEFORMATEX **format)
{
    if (!format)
        return E_POINTER;
    *format = copyFormat(mixFormatOf(m_endpoint));
    return *format ? S_OK : E_OUTOFMEMORY;
}

HRESULT AudioClient::GetDevicePeriod(REFERENCE_TIME *defaultPeriod, REFERENCE_TIME *minimumPeriod)
{
    if (!defaultPeriod && !minimumPeriod)
        return E_POINTER;
    for (REFERENCE_TIME *const period : {defaultPeriod, minimumPeriod}) {
        if (period)
            *period = kPeriod;
    }
    return S_OK;
}

HRESULT AudioClient::Start()
{
    LoopbackStream *const own = stream();
    return own ? own->start() : AUDCLNT_E_NOT_INITIALIZED;
}

HRESULT AudioClient::Stop()
{
    LoopbackStream *const own = stream();
    return own ? own->stop() : AUDCLNT_E_NOT_INITIALIZED;
}

HRESULT AudioClient::Reset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_stream)
        return AUDCLNT_E_NOT_INITIALIZED;
    return m_capture->holdsPacket() ? AUDCLNT_E_BUFFER_OPERATION_PENDING : m_stream->reset();
}

HRESULT AudioClient::SetEventHandle(HANDLE)
{
    // Only a stream that signals an event expects one, and Initialize makes no such stream.
    return stream() ? AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED : AUDCLNT_E_NOT_INITIALIZED;
}

HRESULT AudioClient::GetService(REFIID riid, void **service)
{
    if (!service)
        return E_POINTER;
    *service = nullptr;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_stream)
        return AUDCLNT_E_NOT_INITIALIZED;
    if (m_stream->lost())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    return riid == IID_IUnknown ? E_NOINTERFACE : m_capture->QueryInterface(riid, service);
}
