#include "tests/support/fakeaudio.h"

#include "platform/deviceenumerator.h"
#include "tests/support/fakeaudioobjects.h"

#include <atomic>
#include <cstring>
#include <QThread>

namespace {

std::atomic<FakeAudio *> s_first {nullptr};
thread_local FakeAudio *t_world = nullptr;

} // namespace

FakeAudio::FakeAudio()
{
    FakeAudio *none = nullptr;
    if (s_first.compare_exchange_strong(none, this))
        setDeviceEnumeratorFactory(&FakeAudio::create);
    enter();
}

FakeAudio::~FakeAudio()
{
    if (t_world == this)
        t_world = nullptr;
    FakeAudio *self = this;
    s_first.compare_exchange_strong(self, nullptr);
}

void FakeAudio::enter()
{
    t_world = this;
}

FakeAudio *FakeAudio::ofThread()
{
    return t_world ? t_world : s_first.load();
}

HRESULT FakeAudio::create(IMMDeviceEnumerator **enumerator)
{
    FakeAudio *world = ofThread();
    if (!world)
        return REGDB_E_CLASSNOTREG;
    FakeCallRecord record;
    record.call = FakeCall::CreateEnumerator;
    FakeFault fault;
    *enumerator = nullptr;
    if (!world->begin(record, &fault)) {
        *enumerator = new FakeEnumerator(world);
    } else if (FAILED(fault.code) && !fault.nullSuccess) {
        record.result = fault.code;
    } else if (!fault.nullSuccess) {
        *enumerator = new FakeEnumerator(world);
        record.result = fault.code;
    } else {
        record.nullOut = true;
    }
    world->finish(record);
    return record.result;
}

// --- the scene -------------------------------------------------------------------------------

WAVEFORMATEXTENSIBLE FakeAudio::floatFormat(int channels, int rate)
{
    WAVEFORMATEXTENSIBLE format = plainFormat(WAVE_FORMAT_EXTENSIBLE, channels, 32, rate);
    format.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    format.Samples.wValidBitsPerSample = 32;
    format.dwChannelMask = (1U << static_cast<unsigned>(channels)) - 1U;
    format.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return format;
}

WAVEFORMATEXTENSIBLE FakeAudio::plainFormat(WORD tag, int channels, int bits, int rate)
{
    WAVEFORMATEXTENSIBLE format {};
    format.Format.wFormatTag = tag;
    format.Format.nChannels = static_cast<WORD>(channels);
    format.Format.nSamplesPerSec = static_cast<DWORD>(rate);
    format.Format.nBlockAlign = static_cast<WORD>(channels * bits / 8);
    format.Format.nAvgBytesPerSec = static_cast<DWORD>(rate) * format.Format.nBlockAlign;
    format.Format.wBitsPerSample = static_cast<WORD>(bits);
    return format;
}

FakeEndpoint *FakeAudio::find(const QString &id)
{
    for (FakeEndpoint &endpoint : m_endpoints) {
        if (endpoint.id == id)
            return &endpoint;
    }
    return nullptr;
}

const FakeEndpoint *FakeAudio::find(const QString &id) const
{
    return const_cast<FakeAudio *>(this)->find(id);
}

void FakeAudio::add(const FakeEndpoint &endpoint)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_endpoints.append(endpoint);
}

void FakeAudio::add(const QString &id, const QString &name, EDataFlow flow)
{
    FakeEndpoint endpoint;
    endpoint.id = id;
    endpoint.name = name;
    endpoint.flow = flow;
    endpoint.mix = floatFormat();
    endpoint.endlessFrames = 240;
    add(endpoint);
}

void FakeAudio::remove(const QString &id)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->present = false;
}

void FakeAudio::bringBack(const QString &id)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->present = true;
}

void FakeAudio::setState(const QString &id, DWORD state)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->state = state;
}

void FakeAudio::setFormat(const QString &id, const WAVEFORMATEXTENSIBLE &format)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->mix = format;
}

void FakeAudio::setEndlessFrames(const QString &id, UINT32 frames, int pollsPerPacket)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->endlessFrames = frames;
    find(id)->pollsPerPacket = pollsPerPacket;
}

void FakeAudio::push(const QString &id, const FakePacket &packet)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    find(id)->packets.enqueue(packet);
}

void FakeAudio::setDefault(const QString &id)
{
    for (const ERole role : {eConsole, eMultimedia, eCommunications})
        setDefault(role, id);
}

void FakeAudio::setDefault(ERole role, const QString &id)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_defaults[role] = id;
}

QString FakeAudio::defaultId() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_defaults[eConsole];
}

void FakeAudio::setBufferFrames(UINT32 frames)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bufferFrames = frames;
}

// --- faults ------------------------------------------------------------------------------------

void FakeAudio::fail(FakeCall call, FakeFault fault, int first, int count)
{
    Rule rule;
    rule.call = call;
    rule.first = first;
    rule.count = count;
    rule.fault = fault;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.append(rule);
}

void FakeAudio::failNumbered(int first, FakeFault fault, int count, qint64 durationMs)
{
    Rule rule;
    rule.numbered = true;
    rule.first = first;
    rule.count = count;
    rule.durationMs = durationMs;
    rule.fault = fault;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.append(rule);
}

void FakeAudio::clearFaults()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules.clear();
}

void FakeAudio::setHook(FakeCall call, std::function<void()> hook)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hooks[static_cast<int>(call)] = std::move(hook);
}

bool FakeAudio::begin(FakeCallRecord &record, FakeFault *fault)
{
    std::function<void()> hook;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        hook = m_hooks[static_cast<int>(record.call)];
    }
    if (hook)
        hook();

    const std::lock_guard<std::mutex> lock(m_mutex);
    record.atMs = nowMs();
    record.thread = QThread::currentThreadId();
    const int number = ++m_totalCalls;
    const int nth = ++m_calls[static_cast<int>(record.call)];
    for (Rule &rule : m_rules) {
        const int position = rule.numbered ? number : nth;
        if ((!rule.numbered && rule.call != record.call) || position < rule.first)
            continue;
        if (rule.count >= 0 && rule.applied >= rule.count)
            continue;
        if (rule.startedMs < 0)
            rule.startedMs = record.atMs;
        if (rule.durationMs >= 0 && record.atMs - rule.startedMs > rule.durationMs)
            continue;
        ++rule.applied;
        ++m_faults;
        *fault = rule.fault;
        return true;
    }
    return false;
}

void FakeAudio::finish(const FakeCallRecord &record)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.append(record);
}

// --- notifications -----------------------------------------------------------------------------

template <typename Notify> void FakeAudio::notifyAll(Notify notify)
{
    enter();
    QList<IMMNotificationClient *> clients;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        clients = m_registered;
    }
    for (IMMNotificationClient *client : std::as_const(clients)) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_registered.contains(client))
                continue;
            m_inCallback.append(client);
        }
        const HRESULT result = notify(client);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_inCallback.removeOne(client);
            if (result != S_OK)
                m_violations.append(QStringLiteral("a callback did not return S_OK"));
        }
        m_callbackEnded.notify_all();
    }
}

void FakeAudio::notifyStateChanged(const QString &id, DWORD state)
{
    const std::wstring wide = id.toStdWString();
    notifyAll([&](IMMNotificationClient *client) {
        return client->OnDeviceStateChanged(wide.c_str(), state);
    });
}

void FakeAudio::notifyAdded(const QString &id)
{
    const std::wstring wide = id.toStdWString();
    notifyAll([&](IMMNotificationClient *client) { return client->OnDeviceAdded(wide.c_str()); });
}

void FakeAudio::notifyRemoved(const QString &id)
{
    const std::wstring wide = id.toStdWString();
    notifyAll([&](IMMNotificationClient *client) { return client->OnDeviceRemoved(wide.c_str()); });
}

void FakeAudio::notifyDefaultChanged(const QString &id, EDataFlow flow, ERole role)
{
    const std::wstring wide = id.toStdWString();
    notifyAll([&](IMMNotificationClient *client) {
        return client->OnDefaultDeviceChanged(flow, role, id.isNull() ? nullptr : wide.c_str());
    });
}

void FakeAudio::notifyPropertyChanged(const QString &id)
{
    const std::wstring wide = id.toStdWString();
    notifyAll([&](IMMNotificationClient *client) {
        return client->OnPropertyValueChanged(wide.c_str(), PROPERTYKEY {});
    });
}

// --- what happened -------------------------------------------------------------------------------

int FakeAudio::calls(FakeCall call) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls[static_cast<int>(call)];
}

int FakeAudio::totalCalls() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_totalCalls;
}

int FakeAudio::faults() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_faults;
}

QList<FakeCallRecord> FakeAudio::timeline() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

int FakeAudio::timelineLength() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records.size();
}

QList<FakeCallRecord> FakeAudio::records() const
{
    QList<FakeCallRecord> result;
    for (const FakeCallRecord &record : timeline()) {
        if (record.call != FakeCall::Message)
            result.append(record);
    }
    return result;
}

void FakeAudio::note(const QString &message)
{
    FakeCallRecord record;
    record.call = FakeCall::Message;
    record.atMs = nowMs();
    record.thread = QThread::currentThreadId();
    record.text = message;
    finish(record);
}

QList<FakeCallRecord> FakeAudio::records(FakeCall call) const
{
    QList<FakeCallRecord> result;
    for (const FakeCallRecord &record : records()) {
        if (record.call == call)
            result.append(record);
    }
    return result;
}

QString FakeAudio::capturedDevice() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_running || m_lastPollMs < 0 || nowMs() - m_lastPollMs > 250)
        return {};
    return m_running->deviceId();
}

int FakeAudio::registeredClients() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_registered.size();
}

int FakeAudio::buffersTaken() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffersTaken;
}

int FakeAudio::buffersReturned() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_buffersReturned;
}

int FakeAudio::liveObjects() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    int alive = 0;
    for (const auto &object : m_objects)
        alive += object->isAlive() ? 1 : 0;
    return alive;
}

QStringList FakeAudio::problems() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QStringList result = m_violations;
    for (const auto &object : m_objects) {
        if (object->isAlive())
            result.append(
                QStringLiteral("a %1 was not released").arg(QLatin1String(object->kind())));
    }
    if (m_buffersTaken != m_buffersReturned)
        result.append(QStringLiteral("%1 buffers taken, %2 returned")
                          .arg(m_buffersTaken)
                          .arg(m_buffersReturned));
    if (m_running)
        result.append(QStringLiteral("a client still runs"));
    if (!m_registered.isEmpty())
        result.append(QStringLiteral("a client is still registered"));
    return result;
}

QStringList FakeAudio::violations() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_violations;
}

void FakeAudio::violate(const QString &text)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_violations.append(text);
}

void FakeAudio::adopt(FakeObject *object)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_objects.emplace_back(object);
}
