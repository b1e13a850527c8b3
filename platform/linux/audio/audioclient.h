// IAudioClient on one endpoint.
#pragma once

#include "platform/linux/audio/audiocaptureclient.h"
#include "platform/linux/audio/comobject.h"
#include "platform/linux/audio/loopbackstream.h"

/// Shared-mode loopback capture of a sink. Whatever else the interface offers fails with one of its
/// own codes. Any thread may call the audio client; the capture client is for one thread at a time.
class AudioClient final : public ComObject<IAudioClient> {
public:
    /// For an endpoint that was there in the catalogue's connection of that number.
    AudioClient(PulseServer &server, const SoundEndpoint &endpoint, std::uint32_t connection);

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags,
                                         REFERENCE_TIME bufferDuration, REFERENCE_TIME periodicity,
                                         const WAVEFORMATEX *format, LPCGUID session) override;
    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32 *frames) override;
    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME *latency) override;
    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32 *frames) override;
    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE shareMode,
                                                const WAVEFORMATEX *format,
                                                WAVEFORMATEX **closestMatch) override;
    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX **format) override;
    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME *defaultPeriod,
                                              REFERENCE_TIME *minimumPeriod) override;
    HRESULT STDMETHODCALLTYPE Start() override;
    HRESULT STDMETHODCALLTYPE Stop() override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override;
    HRESULT STDMETHODCALLTYPE GetService(REFIID riid, void **service) override;

private:
    LoopbackStream *stream() const;

    PulseServer &m_server;
    const SoundEndpoint m_endpoint;
    const std::uint32_t m_connection;
    mutable std::mutex m_mutex; // guards the two below
    std::unique_ptr<LoopbackStream> m_stream; // set once, by the Initialize that succeeds
    std::unique_ptr<AudioCaptureClient> m_capture;
};
