// IAudioCaptureClient, the reading side of an AudioClient.
#pragma once

#include <atomic>
#include <audioclient.h>

class LoopbackStream;

/// Part of its audio client and counted with it: a reference to either keeps both. Takes no lock
/// and allocates nothing. A buffer that GetBuffer gave stays readable until ReleaseBuffer, whatever
/// becomes of the device.
class AudioCaptureClient final : public IAudioCaptureClient {
public:
    /// The client and the stream outlive this object.
    AudioCaptureClient(IAudioClient *client, LoopbackStream *stream);

    /// Whether a buffer has been got and not released.
    bool holdsPacket() const { return m_holding; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void **object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags,
                                        UINT64 *devicePosition, UINT64 *qpcPosition) override;
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override;
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) override;

private:
    IAudioClient *const m_client;
    LoopbackStream *const m_stream;
    std::atomic<bool> m_holding {false};
};
