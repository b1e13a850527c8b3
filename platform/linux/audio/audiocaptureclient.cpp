#include "platform/linux/audio/audiocaptureclient.h"

#include "platform/linux/audio/loopbackstream.h"

AudioCaptureClient::AudioCaptureClient(IAudioClient *client, LoopbackStream *stream)
    : m_client(client)
    , m_stream(stream)
{
}

HRESULT AudioCaptureClient::QueryInterface(REFIID riid, void **object)
{
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (riid != IID_IUnknown && riid != IID_IAudioCaptureClient)
        return E_NOINTERFACE;
    *object = static_cast<IAudioCaptureClient *>(this);
    AddRef();
    return S_OK;
}

ULONG AudioCaptureClient::AddRef()
{
    return m_client->AddRef();
}

ULONG AudioCaptureClient::Release()
{
    return m_client->Release();
}

HRESULT AudioCaptureClient::GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags,
                                      UINT64 *devicePosition, UINT64 *qpcPosition)
{
    if (!data || !frames || !flags)
        return E_POINTER;
    *data = nullptr;
    *frames = 0;
    *flags = 0;
    if (m_holding)
        return AUDCLNT_E_OUT_OF_ORDER;
    if (m_stream->invalidated())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    PacketRing::Packet packet;
    if (!m_stream->ring().front(&packet))
        return AUDCLNT_S_BUFFER_EMPTY;
    m_holding = true;
    *data = packet.data;
    *frames = m_stream->ring().packetFrames();
    *flags = packet.flags;
    if (devicePosition)
        *devicePosition = packet.position;
    if (qpcPosition)
        *qpcPosition = packet.time;
    return S_OK;
}

HRESULT AudioCaptureClient::ReleaseBuffer(UINT32 frames)
{
    if (!m_holding)
        return frames ? AUDCLNT_E_OUT_OF_ORDER : S_OK;
    // The caller has read the whole packet or nothing; then the next GetBuffer gives it again.
    if (frames && frames != m_stream->ring().packetFrames())
        return AUDCLNT_E_INVALID_SIZE;
    if (frames)
        m_stream->ring().pop();
    m_holding = false;
    return S_OK;
}

HRESULT AudioCaptureClient::GetNextPacketSize(UINT32 *frames)
{
    if (!frames)
        return E_POINTER;
    *frames = 0;
    if (m_stream->invalidated())
        return AUDCLNT_E_DEVICE_INVALIDATED;
    PacketRing::Packet packet;
    if (m_stream->ring().front(&packet))
        *frames = m_stream->ring().packetFrames();
    return S_OK;
}
