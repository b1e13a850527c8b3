// Random orders of notifications, user choices, starts, stops and worker ends, from several threads
// at once, many controllers side by side.
//
// usage: tst_notificationfuzz [sequences [seed [lanes]]]
// TONEWELL_FUZZ_SEQUENCES and TONEWELL_FUZZ_SEED set the first two as well.
//
// Invariants of every sequence: never two sessions at once; no call hangs; every start and session
// follows its rules; what is captured is what the last start chose, for the device that is wanted
// now, and the default when that is followed; what is wanted is captured, if its last start came
// up; nothing is used after it is gone or left behind.
#include "capture/audiocapture.h"
#include "report/deliverreport.h"
#include "tests/capture/lanes.h"
#include "tests/capture/replay.h"
#include "tests/support/messagelog.h"
#include "tests/support/taskmemory.h"

#include <cstdio>
#include <cstdlib>
#include <list>
#include <objbase.h>
#include <QRandomGenerator>
#include <thread>

namespace {

const QString kFollow = QStringLiteral("默认输出设备");
constexpr int kDevices = 3;
constexpr qint64 kWatchdogMs = 5000;
// A worker that lost its device leaves its run flag set: the restart comes after 500 ms, waits 3 s
// for it in vain and pauses for 500 ms.
constexpr int kPatienceMs = 10000;
constexpr int kEnough = 100; // sequences for a share
const char *const kNames[kDevices] = {"Speakers", "Headset", "Monitor"};

/// Tells a call that hangs from one that waits its turn: nothing at all has happened in its world,
/// but for the worker's polls, for 5 s.
class Watchdog {
public:
    Watchdog()
        : m_thread([this] { watch(); })
    {
    }
    ~Watchdog()
    {
        m_end = true;
        m_thread.join();
    }
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    struct Entry {
        FakeAudio *world;
        quint32 seed;
        const char *what;
        qint64 sinceMs;
    };
    std::list<Entry>::iterator enter(FakeAudio *world, quint32 seed, const char *what)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.push_front({world, seed, what, world->nowMs()});
        return m_entries.begin();
    }
    void leave(std::list<Entry>::iterator entry)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_entries.erase(entry);
    }

private:
    static bool isPoll(const FakeCallRecord &record)
    {
        return record.call == FakeCall::GetNextPacketSize || record.call == FakeCall::GetBuffer
            || record.call == FakeCall::ReleaseBuffer;
    }
    void watch()
    {
        while (!m_end) {
            QThread::msleep(250);
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (const Entry &entry : m_entries) {
                qint64 last = entry.sinceMs;
                if (entry.world->nowMs() - last < kWatchdogMs)
                    continue;
                for (const FakeCallRecord &record : entry.world->timeline()) {
                    if (!isPoll(record))
                        last = qMax(last, record.atMs);
                }
                if (entry.world->nowMs() - last < kWatchdogMs)
                    continue;
                std::printf("sequence %u: \"%s\" hangs\n", entry.seed, entry.what);
                for (const FakeCallRecord &record : entry.world->timeline()) {
                    if (!isPoll(record))
                        std::printf("%lld %p %d %s\n", static_cast<long long>(record.atMs),
                                    record.thread, static_cast<int>(record.call),
                                    qPrintable(record.text));
                }
                std::fflush(stdout);
                std::abort();
            }
        }
    }

    std::mutex m_mutex;
    std::list<Entry> m_entries;
    std::atomic<bool> m_end {false};
    std::thread m_thread;
};

Watchdog *s_watchdog = nullptr;

/// Sequences that came to rest, and of these: capture was wanted beyond doubt; what was captured
/// had to be the default; it had to be a chosen device.
struct {
    std::atomic<int> settled {0};
    std::atomic<int> wanted {0};
    std::atomic<int> followed {0};
    std::atomic<int> chosen {0};
} s_counts;

class Sequence {
public:
    explicit Sequence(quint32 seed)
        : m_seed(seed)
        , m_random(seed)
    {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        m_audio.enter();
        for (int i = 0; i < kDevices; ++i) {
            m_ids[i] = QStringLiteral("{%1}.%2").arg(seed).arg(i);
            m_audio.add(m_ids[i], QString::fromLatin1(kNames[i]));
            m_audio.setEndlessFrames(m_ids[i], 16);
        }
        m_mic = QStringLiteral("{%1}.mic").arg(seed);
        m_audio.add(m_mic, QStringLiteral("Mic"), eCapture);
        m_audio.setDefault(m_ids[0]);
    }

    QStringList run()
    {
        m_capture = std::make_unique<AudioCapture>();
        if (m_random.bounded(4) != 0)
            start("first start", [&] { m_capture->startCapture(); });

        std::vector<std::thread> threads;
        const auto onThread = [&](void (Sequence::*part)(QRandomGenerator &)) {
            const quint32 seed = m_random.generate();
            threads.emplace_back([this, part, seed] {
                QRandomGenerator random(seed);
                m_audio.enter();
                (this->*part)(random);
                --m_busy;
            });
        };
        m_busy = 4;
        onThread(&Sequence::changeDefaults);
        onThread(&Sequence::changeDevices);
        onThread(&Sequence::changeStates);
        onThread(&Sequence::actFromElsewhere);
        actAsUser(m_random);

        const bool endsEarly = m_random.bounded(4) == 0;
        if (endsEarly)
            m_foreignCallsEnd = true; // notifications go on, calls of its owners do not
        while (endsEarly ? m_inForeignCall.load() : m_busy > 0)
            spin(5);
        if (!endsEarly)
            settle();
        call("destruction", [&] { m_capture.reset(); });
        for (std::thread &thread : threads)
            thread.join();

        m_wrong += m_audio.problems();
        const Replay seen = replay(m_audio.timeline());
        m_wrong += seen.complaints;
        if (seen.sessionsOpen != 0)
            m_wrong.append(QStringLiteral("a session that did not end"));
        if (seen.failures > seen.startsFailed + seen.sessionErrors)
            m_wrong.append(QStringLiteral("a failure handler without a failure"));
        if (taskBlocksAlive(&m_audio) != 0)
            m_wrong.append(QStringLiteral("task memory left behind"));
        return m_wrong;
    }

private:
    void call(const char *what, const std::function<void()> &function)
    {
        const auto entry = s_watchdog->enter(&m_audio, m_seed, what);
        function();
        s_watchdog->leave(entry);
    }
    /// Restarts come with the events, so these are watched as calls are.
    void spin(int ms)
    {
        ::spin(ms, [this] { call("events", handleEvents); });
    }
    bool spinUntil(const std::function<bool()> &condition, int timeoutMs)
    {
        return ::spinUntil(condition, timeoutMs, [this] { call("events", handleEvents); });
    }
    void start(const char *what, const std::function<void()> &function)
    {
        {
            const std::lock_guard<std::mutex> lock(m_marks);
            m_lastStartBegun = ++m_lastMark;
            m_lastStartMs = m_audio.nowMs();
        }
        call(what, function);
    }
    void stop(const char *what, const std::function<void()> &function)
    {
        call(what, function);
        const std::lock_guard<std::mutex> lock(m_marks);
        m_lastStopDone = ++m_lastMark;
    }
    /// Whether capture is wanted beyond doubt: its owners asked for it after everything that may
    /// have stopped it, and no start gave way to another one that had begun before.
    bool isWanted()
    {
        const std::lock_guard<std::mutex> lock(m_marks);
        if (m_lastStartBegun <= m_lastStopDone)
            return false;
        for (const FakeCallRecord &record : m_audio.timeline()) {
            if (record.atMs >= m_lastStartMs
                && record.text.startsWith(QStringLiteral("[startCapture] 已在执行中")))
                return false;
        }
        return true;
    }
    static void pause(QRandomGenerator &random)
    {
        static const int pauses[] = {0, 0, 1, 5, 20, 100, 300, 510, 700};
        QThread::msleep(static_cast<ulong>(pauses[random.bounded(9)]));
    }

    // --- threads of the audio system ------------------------------------------------------------

    /// The default changes; what is told last is what is so.
    void changeDefaults(QRandomGenerator &random)
    {
        for (int n = static_cast<int>(random.bounded(1, 4)); n > 0; --n) {
            pause(random);
            const std::lock_guard<std::mutex> lock(m_order);
            const int device = static_cast<int>(random.bounded(kDevices));
            if (m_present[device])
                announceDefault(device, static_cast<int>(random.bounded(1, 4)));
            if (random.bounded(3) == 0)
                m_audio.notifyDefaultChanged(m_mic, eCapture);
        }
    }
    void announceDefault(int device, int roles)
    {
        m_audio.setDefault(m_ids[device]);
        for (int role = 0; role < roles; ++role) {
            call("default change",
                 [&] { m_audio.notifyDefaultChanged(m_ids[device], eRender, ERole(role)); });
        }
    }

    /// Devices go and come back.
    void changeDevices(QRandomGenerator &random)
    {
        for (int n = static_cast<int>(random.bounded(0, 3)); n > 0; --n) {
            pause(random);
            const std::lock_guard<std::mutex> lock(m_order);
            const int device = static_cast<int>(random.bounded(kDevices));
            const int other = (device + 1) % kDevices;
            if (!m_present[device]) {
                m_audio.setState(m_ids[device], DEVICE_STATE_ACTIVE);
                m_audio.bringBack(m_ids[device]);
                m_present[device] = true;
                call("added", [&] { m_audio.notifyAdded(m_ids[device]); });
            } else if (m_present[other]) {
                m_present[device] = false;
                const bool wasDefault = m_audio.defaultId() == m_ids[device];
                if (wasDefault)
                    m_audio.setDefault(m_ids[other]);
                if (random.bounded(2) == 0) // forgotten, or known as not present
                    m_audio.remove(m_ids[device]);
                else
                    m_audio.setState(m_ids[device], DEVICE_STATE_NOTPRESENT);
                call("removed", [&] { m_audio.notifyRemoved(m_ids[device]); });
                if (wasDefault)
                    announceDefault(other, 3);
            }
        }
    }

    /// States come and go without the device doing so.
    void changeStates(QRandomGenerator &random)
    {
        static const DWORD states[] = {DEVICE_STATE_ACTIVE, DEVICE_STATE_DISABLED,
                                       DEVICE_STATE_UNPLUGGED, DEVICE_STATE_ACTIVE, 0x10};
        for (int n = static_cast<int>(random.bounded(0, 4)); n > 0; --n) {
            pause(random);
            const int device = static_cast<int>(random.bounded(kDevices + 1));
            const QString id = device < kDevices ? m_ids[device] : m_mic;
            const DWORD state = states[random.bounded(5)];
            const auto tell = [&] { m_audio.notifyStateChanged(id, state); };
            if (state == DEVICE_STATE_ACTIVE)
                call("state change", tell);
            else
                stop("state change", tell); // if it concerns the device in use
            if (random.bounded(4) == 0)
                m_audio.notifyPropertyChanged(id);
        }
    }

    // --- the controller's owners ----------------------------------------------------------------

    void actAsUser(QRandomGenerator &random)
    {
        for (int n = static_cast<int>(random.bounded(1, 5)); n > 0; --n) {
            static const int pauses[] = {0, 1, 10, 100, 400, 550};
            spin(pauses[random.bounded(6)]);
            switch (random.bounded(6)) {
            case 0:
                start("start", [&] { m_capture->startCapture(); });
                break;
            case 1:
                stop("stop", [&] { m_capture->stopCapture(); });
                break;
            case 2: // the worker ends by itself
                m_audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED},
                             m_audio.calls(FakeCall::GetNextPacketSize) + 1, 1);
                break;
            case 3: // the worker cannot begin
                m_audio.fail(FakeCall::Start,
                             {random.bounded(2) ? AUDCLNT_E_DEVICE_INVALIDATED : E_FAIL},
                             m_audio.calls(FakeCall::Start) + 1, 1);
                break;
            default:
                start("choice", [&] { m_capture->setCurrentDevice(someText(random)); });
                break;
            }
        }
    }

    void actFromElsewhere(QRandomGenerator &random)
    {
        for (int n = static_cast<int>(random.bounded(0, 3)); n > 0; --n) {
            pause(random);
            m_inForeignCall = true;
            if (m_foreignCallsEnd) {
                m_inForeignCall = false;
                return;
            }
            switch (random.bounded(5)) {
            case 0:
                start("start elsewhere", [&] { m_capture->startCapture(); });
                break;
            case 1:
                stop("stop elsewhere", [&] { m_capture->stopCapture(); });
                break;
            case 2:
                call("catalogue elsewhere", [&] { m_capture->flushDevices(); });
                break;
            case 3:
                start("choice elsewhere", [&] { m_capture->setCurrentDevice(someText(random)); });
                break;
            default:
                call("question elsewhere", [&] {
                    m_capture->isCapturing();
                    m_capture->devices();
                });
                break;
            }
            m_inForeignCall = false;
        }
    }

    QString someText(QRandomGenerator &random)
    {
        const auto entries = m_capture->devices();
        const int choice = static_cast<int>(random.bounded(entries.size() + 2));
        if (choice < entries.size())
            return entries.at(choice).name;
        return choice == entries.size() ? kFollow : QStringLiteral("Head"); // listed nowhere
    }

    // --- the model ------------------------------------------------------------------------------

    /// All threads are done, and what is pending comes to rest.
    void settle()
    {
        for (const QString &id : m_ids) {
            m_audio.bringBack(id);
            m_audio.setState(id, DEVICE_STATE_ACTIVE);
        }
        m_audio.clearFaults();
        switch (m_random.bounded(4)) {
        case 0:
            settleByChoice();
            break;
        case 1:
            settleByStop();
            break;
        case 2:
            settleByWorkerEnd();
            break;
        default:
            break;
        }
        checkState();
    }

    /// The last choice is what is captured.
    void settleByChoice()
    {
        const auto entries = m_capture->devices();
        if (entries.isEmpty())
            return;
        const DeviceEntry entry = entries.at(static_cast<int>(m_random.bounded(entries.size())));
        start("last choice", [&] { m_capture->setCurrentDevice(entry.name); });
        const bool reached = spinUntil(
            [&] {
                const QString wanted = entry.id.isEmpty() ? m_audio.defaultId() : entry.id;
                return m_audio.capturedDevice() == wanted
                    && m_capture->currentDevice() == entry.name;
            },
            10000);
        if (!reached)
            m_wrong.append(QStringLiteral("chose %1 (%2), captures %3, current %4")
                               .arg(entry.name, entry.id, m_audio.capturedDevice(),
                                    m_capture->currentDevice()));
    }

    /// Once no timer is pending, a stop is for good.
    void settleByStop()
    {
        spin(1200); // a restart that is armed, and the start that it leads to
        stop("last stop", [&] { m_capture->stopCapture(); });
        if (!spinUntil([&] { return m_audio.capturedDevice().isEmpty(); }, 3000))
            m_wrong.append(QStringLiteral("captures after the stop"));
        spin(600);
        if (!m_audio.capturedDevice().isEmpty() || m_capture->isCapturing())
            m_wrong.append(QStringLiteral("came back after the stop"));
    }

    /// What is wanted comes back when the worker has ended by itself.
    void settleByWorkerEnd()
    {
        start("last start", [&] { m_capture->startCapture(); });
        const auto captures = [&] { return !m_audio.capturedDevice().isEmpty(); };
        if (!spinUntil(captures, kPatienceMs)) {
            m_wrong.append(QStringLiteral("nothing is captured after the last start"));
            return;
        }
        const int starts = m_audio.calls(FakeCall::Initialize);
        m_audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED},
                     m_audio.calls(FakeCall::GetNextPacketSize) + 1, 1);
        const auto restarted = [&] {
            return m_audio.calls(FakeCall::Initialize) > starts && captures();
        };
        if (!spinUntil(restarted, kPatienceMs))
            m_wrong.append(QStringLiteral("no restart after the worker's end"));
    }

    /// Whatever is captured is what the last start chose, and that start was for the device that
    /// is wanted now.
    void checkState()
    {
        const bool wanted = isWanted();
        bool followed = false;
        bool chosen = false;
        // Not while a start is under way or a session has not begun or ended yet.
        QStringList wrong;
        const bool right = spinUntil(
            [&] {
                wrong.clear();
                const Replay seen = replay(m_audio.timeline());
                const QString captured = m_audio.capturedDevice();
                if (captured.isEmpty()) {
                    if (!wanted || !seen.lastStartSucceeded)
                        return true;
                    wrong.append(QStringLiteral("wanted, started, and nothing is captured"));
                    spin(20);
                    return false;
                }
                if (seen.starts == 0)
                    return true;
                if (!seen.lastStartSucceeded || captured != seen.lastDevice)
                    wrong.append(QStringLiteral("captures %1, the last start chose %2")
                                     .arg(captured, seen.lastDevice));
                QString servedText;
                for (const FakeCallRecord &record : m_audio.timeline()) {
                    if (record.text.startsWith(QStringLiteral("音频设备——（")))
                        servedText = record.text.mid(7).section(QStringLiteral("）已就绪"), 0, 0);
                }
                if (servedText != m_capture->currentDevice())
                    wrong.append(QStringLiteral("wanted is %1, the last start was for %2")
                                     .arg(m_capture->currentDevice(), servedText));
                if (servedText == kFollow && captured != m_audio.defaultId())
                    wrong.append(QStringLiteral("follows, captures %1, the default is %2")
                                     .arg(captured, m_audio.defaultId()));
                const QString pinned = pinnedDevice();
                if (!pinned.isEmpty() && captured != pinned)
                    wrong.append(
                        QStringLiteral("is to capture %1, captures %2").arg(pinned, captured));
                followed = servedText == kFollow;
                chosen = !pinned.isEmpty();
                spin(20);
                return wrong.isEmpty();
            },
            kPatienceMs);
        if (!right)
            m_wrong += wrong;
        ++s_counts.settled;
        s_counts.wanted += wanted ? 1 : 0;
        s_counts.followed += followed ? 1 : 0;
        s_counts.chosen += chosen ? 1 : 0;
    }

    /// The id of the device that the last start was to capture by its name; empty when it was to
    /// capture another or had to fall back to the default.
    QString pinnedDevice()
    {
        const QString chosen = QStringLiteral("[Step 1] 使用指定输出设备: ");
        QString id;
        for (const FakeCallRecord &record : m_audio.timeline()) {
            if (record.text.startsWith(QStringLiteral("[Step 1] "))
                || record.text.startsWith(QStringLiteral("Initialize 失败")))
                id.clear();
            if (!record.text.startsWith(chosen))
                continue;
            for (int i = 0; i < kDevices; ++i) {
                if (record.text.mid(chosen.size()).contains(QLatin1String(kNames[i])))
                    id = m_ids[i];
            }
        }
        return id;
    }

    const quint32 m_seed;
    QRandomGenerator m_random;
    FakeAudio m_audio;
    QString m_ids[kDevices];
    QString m_mic;
    bool m_present[kDevices] = {true, true, true};
    std::mutex m_order; ///< guards m_present; default changes are told in their order
    std::unique_ptr<AudioCapture> m_capture;
    std::atomic<int> m_busy {0};
    std::atomic<bool> m_foreignCallsEnd {false};
    std::atomic<bool> m_inForeignCall {false};
    std::mutex m_marks; ///< guards the four below: the order of starts and stops
    int m_lastMark = 0;
    int m_lastStartBegun = 0;
    qint64 m_lastStartMs = 0;
    int m_lastStopDone = 0;
    QStringList m_wrong;
};

int setting(int argc, char **argv, int index, const char *variable, int fallback)
{
    if (argc > index)
        return static_cast<int>(std::strtoul(argv[index], nullptr, 10));
    bool given = false;
    const int value = qEnvironmentVariableIntValue(variable, &given);
    return given ? value : fallback;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int sequences = setting(argc, argv, 1, "TONEWELL_FUZZ_SEQUENCES", 300);
    const auto seed = static_cast<quint32>(
        setting(argc, argv, 2, "TONEWELL_FUZZ_SEED",
                static_cast<int>(QRandomGenerator::global()->bounded(1U << 30))));
    const int lanes = setting(argc, argv, 3, "TONEWELL_FUZZ_LANES", 64);
    std::printf("%d sequences from seed %u on\n", sequences, seed);
    std::fflush(stdout);

    FakeAudio elsewhere; // the world of threads that have not met theirs yet
    MessageLog log(MessageLog::Keep::InTheWorldsOnly);
    setReportSink([](const QString &) {});
    Watchdog watchdog;
    s_watchdog = &watchdog;
    Complaints complaints;
    QElapsedTimer clock;
    clock.start();
    runInLanes(lanes, sequences, [&](int job) {
        const quint32 own = seed + static_cast<quint32>(job);
        complaints.add(QStringLiteral("sequence %1").arg(own), Sequence(own).run());
    });
    const int settled = s_counts.settled;
    if (settled >= kEnough
        && (s_counts.wanted < settled / 4 || s_counts.followed < settled / 20
            || s_counts.chosen < settled / 20))
        complaints.add(QStringLiteral("all sequences"), {QStringLiteral("too little was known")});
    std::printf(
        "%s%s%d sequences in %.1f s; %d came to rest: capture was wanted in %d, of the default "
        "in %d, of a chosen device in %d\n",
        qPrintable(complaints.summary()), complaints.summary().isEmpty() ? "" : "\n", sequences,
        static_cast<double>(clock.elapsed()) / 1000, settled, s_counts.wanted.load(),
        s_counts.followed.load(), s_counts.chosen.load());
    return complaints.summary().isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
