// An audio system for tests: devices that are scripted, calls that fail on demand, and a count of
// everything.
#pragma once

#include "platform/timesource.h"

#include <audioclient.h>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mmdeviceapi.h>
#include <mutex>
#include <QByteArray>
#include <QList>
#include <QQueue>
#include <QString>
#include <QStringList>
#include <vector>

/// The calls that cross into the audio system.
enum class FakeCall {
    CreateEnumerator,
    EnumAudioEndpoints,
    GetDefaultAudioEndpoint,
    GetDevice,
    Register,
    Unregister,
    CollectionGetCount,
    CollectionItem,
    Activate,
    OpenPropertyStore,
    GetId,
    GetState,
    GetValue,
    GetMixFormat,
    Initialize,
    GetBufferSize,
    GetService,
    Start,
    Stop,
    GetNextPacketSize,
    GetBuffer,
    ReleaseBuffer,
    Other, ///< calls of the interfaces that the product does not make
    Count,
    Message ///< no call: a debug message in between
};

struct FakePacket {
    QByteArray bytes; ///< handed out from memory of exactly this size
    UINT32 frames = 0;
    DWORD flags = 0;
    const void *memory = nullptr; ///< handed out instead of bytes when set
    bool nullData = false; ///< hands out a null pointer
};

struct FakeEndpoint {
    QString id;
    QString name;
    EDataFlow flow = eRender;
    DWORD state = DEVICE_STATE_ACTIVE;
    bool present = true;
    WAVEFORMATEXTENSIBLE mix {};
    UINT32 endlessFrames = 0; ///< when not 0, a packet of that many frames of `level` always waits
    int pollsPerPacket = 1; ///< an endless packet waits at every so-manieth question only
    float level = 0.25F;
    QQueue<FakePacket> packets; ///< taken before the endless ones
};

/// What a failing call returns.
struct FakeFault {
    HRESULT code = E_FAIL;
    bool nullSuccess = false; ///< S_OK, but the out pointer is null (and out numbers are 0)
};

struct FakeCallRecord {
    FakeCall call = FakeCall::Other;
    HRESULT result = S_OK;
    bool nullOut = false; ///< a success without its object
    qint64 atMs = 0; ///< since the world was made
    Qt::HANDLE thread = nullptr;
    QString device; ///< endpoint id, where there is one
    int client = 0; ///< number of the audio client, from 1
    /// Initialize: duration; Activate: class context; defaults: role; packet size, packet: frames.
    qint64 argument = 0;
    const WAVEFORMATEX *format = nullptr; ///< Initialize: as passed; not to be read
    bool argumentsRight = true; ///< Initialize: the other arguments ask for shared loopback
    QString text; ///< of a message
    int position = 0; ///< in the timeline, for those who sort it
};

class FakeObject;
class FakeAudioClient;

/// One audio system. Several may live side by side: a thread that has called enter(), or that has
/// used one of its objects last, belongs to it, every other thread to the one made first.
///
/// All members may be called on any thread. Objects are kept to the end of the world, so that a
/// call on one that has been released is found and not a crash.
class FakeAudio {
public:
    FakeAudio();
    ~FakeAudio();
    FakeAudio(const FakeAudio &) = delete;
    FakeAudio &operator=(const FakeAudio &) = delete;

    /// The calling thread's enumerators come from this world from now on.
    void enter();
    /// The world of the calling thread; null when there is none.
    static FakeAudio *ofThread();

    // --- the scene -------------------------------------------------------------------------
    /// 32-bit float in an extensible format.
    static WAVEFORMATEXTENSIBLE floatFormat(int channels = 2, int rate = 48000);
    /// Plain format, cbSize 0.
    static WAVEFORMATEXTENSIBLE plainFormat(WORD tag, int channels, int bits, int rate = 48000);

    void add(const FakeEndpoint &endpoint);
    /// Adds an active float endpoint with endless packets of 240 frames.
    void add(const QString &id, const QString &name, EDataFlow flow = eRender);
    /// Its clients are invalidated and GetDevice fails.
    void remove(const QString &id);
    /// A removed endpoint returns.
    void bringBack(const QString &id);
    void setState(const QString &id, DWORD state);
    void setFormat(const QString &id, const WAVEFORMATEXTENSIBLE &format);
    void setEndlessFrames(const QString &id, UINT32 frames, int pollsPerPacket = 1);
    void push(const QString &id, const FakePacket &packet);
    /// Default render endpoint of every role, or of one; empty for none.
    void setDefault(const QString &id);
    void setDefault(ERole role, const QString &id);
    QString defaultId() const;
    void setBufferFrames(UINT32 frames);

    // --- faults ----------------------------------------------------------------------------
    /// The named call fails from its first-th time, count times (all of them when negative).
    /// Rules are tried in the order in which they were given.
    void fail(FakeCall call, FakeFault fault, int first = 1, int count = -1);
    /// Every call from number first on fails, count times or, when count is negative, until
    /// durationMs after the first failure (for good when that is negative).
    void failNumbered(int first, FakeFault fault, int count = 1, qint64 durationMs = -1);
    void clearFaults();
    /// Runs before the named call, without any lock of this world.
    void setHook(FakeCall call, std::function<void()> hook);

    // --- notifications: on the calling thread, to every registered client ----------------------
    void notifyStateChanged(const QString &id, DWORD state);
    void notifyAdded(const QString &id);
    void notifyRemoved(const QString &id);
    void notifyDefaultChanged(const QString &id, EDataFlow flow = eRender, ERole role = eConsole);
    void notifyPropertyChanged(const QString &id);

    // --- what happened -------------------------------------------------------------------------
    int calls(FakeCall call) const;
    int totalCalls() const;
    /// Calls that failed by a rule.
    int faults() const;
    /// Calls in the order of their end, without messages.
    QList<FakeCallRecord> records() const;
    /// The same with the debug messages of this world's threads (kept by a MessageLog).
    QList<FakeCallRecord> timeline() const;
    int timelineLength() const;
    void note(const QString &message);
    QList<FakeCallRecord> records(FakeCall call) const;
    /// Since it was made; finer than tickCountMs(), which moves by 16 ms on Windows.
    qint64 nowMs() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(steadyNow() - m_made).count();
    }
    /// Endpoint id of the client that runs and was polled within the last 250 ms; else empty.
    QString capturedDevice() const;
    int registeredClients() const;
    /// GetBuffer calls that succeeded and ReleaseBuffer calls that followed.
    int buffersTaken() const;
    int buffersReturned() const;
    /// Objects that are still referenced.
    int liveObjects() const;
    /// Everything that must not be: live objects, unpaired buffers, calls on dead objects, two
    /// sessions at once, clients left registered. Empty when all is well. Meant for the end.
    QStringList problems() const;
    /// Only what is wrong at any time.
    QStringList violations() const;

private:
    friend class FakeObject;
    friend class FakeEnumerator;
    friend class FakeCollection;
    friend class FakeDevice;
    friend class FakePropertyStore;
    friend class FakeAudioClient;
    friend class FakeCaptureClient;

    struct Rule {
        FakeCall call = FakeCall::Other;
        bool numbered = false;
        int first = 1;
        int count = 1;
        qint64 durationMs = -1;
        qint64 startedMs = -1;
        int applied = 0;
        FakeFault fault;
    };

    static HRESULT create(IMMDeviceEnumerator **enumerator);
    /// Counts the call, runs its hook and says whether it is to fail.
    bool begin(FakeCallRecord &record, FakeFault *fault);
    void finish(const FakeCallRecord &record);
    void violate(const QString &text);
    FakeEndpoint *find(const QString &id);
    const FakeEndpoint *find(const QString &id) const;
    void adopt(FakeObject *object);
    template <typename Notify> void notifyAll(Notify notify);

    mutable std::mutex m_mutex;
    const SteadyTime m_made = steadyNow();
    QList<FakeEndpoint> m_endpoints;
    QString m_defaults[3];
    UINT32 m_bufferFrames = 48000;
    QList<Rule> m_rules;
    std::function<void()> m_hooks[static_cast<int>(FakeCall::Count)];
    int m_calls[static_cast<int>(FakeCall::Count)] = {};
    int m_totalCalls = 0;
    int m_faults = 0;
    int m_buffersTaken = 0;
    int m_buffersReturned = 0;
    QList<FakeCallRecord> m_records;
    QStringList m_violations;
    std::vector<std::unique_ptr<FakeObject>> m_objects;
    int m_clients = 0;
    FakeAudioClient *m_running = nullptr;
    qint64 m_lastPollMs = -1;

    std::condition_variable m_callbackEnded;
    QList<IMMNotificationClient *> m_registered;
    QList<IMMNotificationClient *> m_inCallback;
};
