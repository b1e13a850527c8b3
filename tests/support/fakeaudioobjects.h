// The objects of the fake audio system.
#pragma once

#include "tests/support/fakeaudio.h"

#include <atomic>

/// A counted object that stays where it is after its last release.
class FakeObject {
public:
    FakeObject(FakeAudio *world, const char *kind);
    virtual ~FakeObject() = default;
    FakeObject(const FakeObject &) = delete;
    FakeObject &operator=(const FakeObject &) = delete;

    ULONG retain();
    ULONG drop();
    bool isAlive() const { return m_references.load() > 0; }
    const char *kind() const { return m_kind; }

protected:
    /// Runs a call: counts it, fails it when a rule says so (out pointers are then junk), and
    /// records its result. `fill` does the work and may complete the record; `empty` makes the out
    /// values null.
    template <typename Record, typename Fill, typename Empty, typename Junk>
    HRESULT run(Record &&record, Fill fill, Empty empty, Junk junk);

    FakeAudio *const m_world;

private:
    const char *const m_kind;
    std::atomic<int> m_references {1};
};

template <typename Interface> class FakeCom : public FakeObject, public Interface {
public:
    using FakeObject::FakeObject;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void **object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return retain(); }
    ULONG STDMETHODCALLTYPE Release() override { return drop(); }
};

class FakeEnumerator : public FakeCom<IMMDeviceEnumerator> {
public:
    explicit FakeEnumerator(FakeAudio *world);
    HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD stateMask,
                                                 IMMDeviceCollection **devices) override;
    HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role,
                                                      IMMDevice **device) override;
    HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice **device) override;
    HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient *client) override;
    HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient *client) override;
};

class FakeCollection : public FakeCom<IMMDeviceCollection> {
public:
    FakeCollection(FakeAudio *world, const QStringList &ids);
    HRESULT STDMETHODCALLTYPE GetCount(UINT *count) override;
    HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice **device) override;

private:
    const QStringList m_ids;
};

class FakeDevice : public FakeCom<IMMDevice> {
public:
    FakeDevice(FakeAudio *world, const QString &id);
    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT *parameters,
                                       void **object) override;
    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD access, IPropertyStore **store) override;
    HRESULT STDMETHODCALLTYPE GetId(LPWSTR *id) override;
    HRESULT STDMETHODCALLTYPE GetState(DWORD *state) override;

private:
    const QString m_id;
};

class FakePropertyStore : public FakeCom<IPropertyStore> {
public:
    FakePropertyStore(FakeAudio *world, const QString &id);
    HRESULT STDMETHODCALLTYPE GetCount(DWORD *count) override;
    HRESULT STDMETHODCALLTYPE GetAt(DWORD index, PROPERTYKEY *key) override;
    HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT *value) override;
    HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT value) override;
    HRESULT STDMETHODCALLTYPE Commit() override;

private:
    const QString m_id;
};

class FakeAudioClient : public FakeCom<IAudioClient> {
public:
    FakeAudioClient(FakeAudio *world, const QString &id, int number);
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

    const QString &deviceId() const { return m_id; }
    int number() const { return m_number; }

private:
    FakeCallRecord record(FakeCall call) const;
    bool invalidated() const;

    const QString m_id;
    const int m_number;
    bool m_initialized = false;
    bool m_sizeKnown = false;
};

class FakeCaptureClient : public FakeCom<IAudioCaptureClient> {
public:
    FakeCaptureClient(FakeAudio *world, FakeAudioClient *client);
    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE **data, UINT32 *frames, DWORD *flags,
                                        UINT64 *devicePosition, UINT64 *qpcPosition) override;
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override;
    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32 *frames) override;

private:
    FakeCallRecord record(FakeCall call) const;

    FakeAudioClient *const m_client; ///< not counted: lives as long as the world
    std::unique_ptr<BYTE[]> m_buffer;
    bool m_taken = false;
    UINT32 m_takenFrames = 0;
    int m_questions = 0; ///< for a packet that were answered
};

template <typename Record, typename Fill, typename Empty, typename Junk>
HRESULT FakeObject::run(Record &&record, Fill fill, Empty empty, Junk junk)
{
    m_world->enter();
    if (!isAlive())
        m_world->violate(QStringLiteral("call on a released %1").arg(QLatin1String(m_kind)));
    FakeFault fault;
    if (m_world->begin(record, &fault)) {
        if (fault.nullSuccess) {
            empty();
            record.result = S_OK;
            record.nullOut = true;
        } else if (FAILED(fault.code)) {
            junk();
            record.result = fault.code;
        } else {
            const HRESULT real = fill();
            record.result = FAILED(real) ? real : fault.code;
        }
    } else {
        record.result = fill();
    }
    m_world->finish(record);
    return record.result;
}
