#include "tests/support/fakeaudioobjects.h"
#include "tests/support/taskmemory.h"

#include <cstring>

namespace {

const auto kNothing = [] {};

/// Interleaved frames of one value in the given format.
QByteArray constantFrames(const WAVEFORMATEXTENSIBLE &mix, UINT32 frames, float level)
{
    QByteArray bytes(static_cast<int>(frames) * mix.Format.nBlockAlign, '\0');
    if (mix.Format.wBitsPerSample != 32 || mix.Format.wFormatTag == WAVE_FORMAT_PCM)
        return bytes;
    const int samples = bytes.size() / static_cast<int>(sizeof(float));
    for (int i = 0; i < samples; ++i)
        std::memcpy(bytes.data() + i * static_cast<int>(sizeof(float)), &level, sizeof(float));
    return bytes;
}

} // namespace

FakeAudioClient::FakeAudioClient(FakeAudio *world, const QString &id, int number)
    : FakeCom(world, "audio client")
    , m_id(id)
    , m_number(number)
{
}

FakeCallRecord FakeAudioClient::record(FakeCall call) const
{
    FakeCallRecord result;
    result.call = call;
    result.device = m_id;
    result.client = m_number;
    return result;
}

/// Called with the world's lock held.
bool FakeAudioClient::invalidated() const
{
    const FakeEndpoint *endpoint = m_world->find(m_id);
    return !endpoint || !endpoint->present;
}

HRESULT FakeAudioClient::Initialize(AUDCLNT_SHAREMODE shareMode, DWORD streamFlags,
                                    REFERENCE_TIME bufferDuration, REFERENCE_TIME periodicity,
                                    const WAVEFORMATEX *format, LPCGUID session)
{
    FakeCallRecord call = record(FakeCall::Initialize);
    call.argument = bufferDuration;
    call.format = format;
    {
        const std::lock_guard<std::mutex> lock(m_world->m_mutex);
        const FakeEndpoint *endpoint = m_world->find(m_id);
        call.argumentsRight = shareMode == AUDCLNT_SHAREMODE_SHARED
            && streamFlags == AUDCLNT_STREAMFLAGS_LOOPBACK && periodicity == 0 && !session && format
            && endpoint
            && std::memcmp(format, &endpoint->mix,
                           sizeof(WAVEFORMATEX) + endpoint->mix.Format.cbSize)
                == 0;
    }
    const HRESULT result = run(
        call,
        [&] {
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            if (invalidated())
                return AUDCLNT_E_DEVICE_INVALIDATED;
            if (m_initialized)
                return AUDCLNT_E_ALREADY_INITIALIZED;
            m_initialized = true;
            return S_OK;
        },
        [&] { m_initialized = true; }, kNothing);
    m_sizeKnown = result == AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED;
    return result;
}

HRESULT FakeAudioClient::GetBufferSize(UINT32 *frames)
{
    return run(
        record(FakeCall::GetBufferSize),
        [&] {
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            if (!m_initialized && !m_sizeKnown)
                return AUDCLNT_E_NOT_INITIALIZED;
            *frames = m_world->m_bufferFrames;
            return S_OK;
        },
        [&] { *frames = 0; }, [&] { *frames = 0xFFFFFFFFU; });
}

HRESULT FakeAudioClient::GetMixFormat(WAVEFORMATEX **format)
{
    return run(
        record(FakeCall::GetMixFormat),
        [&] {
            WAVEFORMATEXTENSIBLE mix;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                if (invalidated())
                    return AUDCLNT_E_DEVICE_INVALIDATED;
                mix = m_world->find(m_id)->mix;
            }
            const size_t size = sizeof(WAVEFORMATEX) + mix.Format.cbSize;
            *format = static_cast<WAVEFORMATEX *>(taskAlloc(size, m_world));
            std::memcpy(*format, &mix, size);
            return S_OK;
        },
        [&] { *format = nullptr; },
        [&] { *format = reinterpret_cast<WAVEFORMATEX *>(static_cast<quintptr>(0x10)); });
}

HRESULT FakeAudioClient::Start()
{
    const auto start = [&] {
        const std::lock_guard<std::mutex> lock(m_world->m_mutex);
        if (invalidated())
            return AUDCLNT_E_DEVICE_INVALIDATED;
        if (!m_initialized)
            return AUDCLNT_E_NOT_INITIALIZED;
        if (m_world->m_running == this)
            return AUDCLNT_E_NOT_STOPPED;
        if (m_world->m_running)
            m_world->m_violations.append(QStringLiteral("two sessions at once"));
        m_world->m_running = this;
        return S_OK;
    };
    return run(record(FakeCall::Start), start, start, kNothing);
}

HRESULT FakeAudioClient::Stop()
{
    // What runs no longer runs, whatever the call returns.
    const auto stop = [&] {
        const std::lock_guard<std::mutex> lock(m_world->m_mutex);
        if (!m_initialized)
            return AUDCLNT_E_NOT_INITIALIZED;
        const bool ran = m_world->m_running == this;
        if (ran)
            m_world->m_running = nullptr;
        return ran ? S_OK : S_FALSE;
    };
    return run(record(FakeCall::Stop), stop, stop, stop);
}

HRESULT FakeAudioClient::GetService(REFIID riid, void **service)
{
    return run(
        record(FakeCall::GetService),
        [&] {
            *service = nullptr;
            {
                const std::lock_guard<std::mutex> lock(m_world->m_mutex);
                if (invalidated())
                    return AUDCLNT_E_DEVICE_INVALIDATED;
                if (!m_initialized)
                    return AUDCLNT_E_NOT_INITIALIZED;
            }
            if (riid != IID_IAudioCaptureClient)
                return E_NOINTERFACE;
            *service = static_cast<IAudioCaptureClient *>(new FakeCaptureClient(m_world, this));
            return S_OK;
        },
        [&] { *service = nullptr; },
        [&] { *service = reinterpret_cast<void *>(static_cast<quintptr>(0x10)); });
}

HRESULT FakeAudioClient::GetStreamLatency(REFERENCE_TIME *)
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

HRESULT FakeAudioClient::GetCurrentPadding(UINT32 *)
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

HRESULT FakeAudioClient::IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX *, WAVEFORMATEX **)
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

HRESULT FakeAudioClient::GetDevicePeriod(REFERENCE_TIME *, REFERENCE_TIME *)
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

HRESULT FakeAudioClient::Reset()
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

HRESULT FakeAudioClient::SetEventHandle(HANDLE)
{
    return run(
        record(FakeCall::Other), [] { return E_NOTIMPL; }, kNothing, kNothing);
}

// --- capture client --------------------------------------------------------------------------

FakeCaptureClient::FakeCaptureClient(FakeAudio *world, FakeAudioClient *client)
    : FakeCom(world, "capture client")
    , m_client(client)
{
}

FakeCallRecord FakeCaptureClient::record(FakeCall call) const
{
    FakeCallRecord result;
    result.call = call;
    result.device = m_client->deviceId();
    result.client = m_client->number();
    return result;
}

HRESULT FakeCaptureClient::GetNextPacketSize(UINT32 *frames)
{
    FakeCallRecord call = record(FakeCall::GetNextPacketSize);
    return run(
        call,
        [&] {
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            const FakeEndpoint *endpoint = m_world->find(m_client->deviceId());
            if (!endpoint || !endpoint->present)
                return AUDCLNT_E_DEVICE_INVALIDATED;
            m_world->m_lastPollMs = m_world->nowMs();
            const bool due = ++m_questions % endpoint->pollsPerPacket == 0;
            *frames = !endpoint->packets.isEmpty() ? qMax(1U, endpoint->packets.head().frames)
                : due                              ? endpoint->endlessFrames
                                                   : 0;
            call.argument = *frames;
            return S_OK;
        },
        [&] { *frames = 0; }, [&] { *frames = 0xFFFFFFFFU; });
}

HRESULT FakeCaptureClient::GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags, UINT64 *, UINT64 *)
{
    FakeCallRecord call = record(FakeCall::GetBuffer);
    return run(
        call,
        [&] {
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            FakeEndpoint *endpoint = m_world->find(m_client->deviceId());
            if (!endpoint || !endpoint->present)
                return AUDCLNT_E_DEVICE_INVALIDATED;
            if (m_taken) {
                m_world->m_violations.append(QStringLiteral("GetBuffer without ReleaseBuffer"));
                return AUDCLNT_E_OUT_OF_ORDER;
            }
            FakePacket packet;
            if (!endpoint->packets.isEmpty()) {
                packet = endpoint->packets.dequeue();
            } else {
                packet.frames = endpoint->endlessFrames;
                packet.bytes = constantFrames(endpoint->mix, packet.frames, endpoint->level);
            }
            m_taken = true;
            m_takenFrames = packet.frames;
            ++m_world->m_buffersTaken;
            *frames = packet.frames;
            call.argument = packet.frames;
            *flags = packet.flags;
            if (packet.nullData) {
                *data = nullptr;
            } else if (packet.memory) {
                *data = static_cast<BYTE *>(const_cast<void *>(packet.memory));
            } else {
                m_buffer.reset(new BYTE[static_cast<size_t>(packet.bytes.size())
                                        + (packet.bytes.isEmpty() ? 1 : 0)]);
                std::memcpy(m_buffer.get(), packet.bytes.constData(),
                            static_cast<size_t>(packet.bytes.size()));
                *data = m_buffer.get();
            }
            return S_OK;
        },
        [&] {
            // A buffer without memory and without frames is still one to be returned.
            const std::lock_guard<std::mutex> lock(m_world->m_mutex);
            m_taken = true;
            m_takenFrames = 0;
            ++m_world->m_buffersTaken;
            *data = nullptr;
            *frames = 0;
            *flags = 0;
        },
        [&] {
            *data = reinterpret_cast<BYTE *>(static_cast<quintptr>(0x10));
            *frames = 0xFFFFFFFFU;
        });
}

HRESULT FakeCaptureClient::ReleaseBuffer(UINT32 frames)
{
    // The buffer is back, whatever the call returns.
    const auto release = [&] {
        const std::lock_guard<std::mutex> lock(m_world->m_mutex);
        if (!m_taken) {
            m_world->m_violations.append(QStringLiteral("ReleaseBuffer without GetBuffer"));
            return AUDCLNT_E_OUT_OF_ORDER;
        }
        if (frames != m_takenFrames)
            m_world->m_violations.append(QStringLiteral("ReleaseBuffer of another size"));
        m_taken = false;
        m_buffer.reset();
        ++m_world->m_buffersReturned;
        return S_OK;
    };
    return run(record(FakeCall::ReleaseBuffer), release, release, release);
}
