#include "tests/capture/sequence.h"

#include "tests/capture/replay.h"
#include "tests/support/taskmemory.h"
#include "tests/support/waiting.h"

#include <algorithm>
#include <objbase.h>

namespace {

const QString kFollow = QStringLiteral("默认输出设备");
// A worker that lost its device leaves its run flag set: the restart comes after 500 ms, waits 3 s
// for it in vain and pauses for 500 ms.
constexpr int kPatienceMs = 10000;
const char *const kNames[] = {"Speakers", "Headset", "Monitor"};

} // namespace

Sequence::Sequence(quint32 seed, Watchdog &watchdog, SequenceCounts &counts)
    : m_seed(seed)
    , m_watchdog(watchdog)
    , m_counts(counts)
    , m_random(seed)
{
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    m_audio.enter();
    for (int i = 0; i < kDevices; ++i) {
        m_ids[i] = QStringLiteral("{%1}.%2").arg(seed).arg(i);
        m_audio.add(m_ids[i], QString::fromLatin1(kNames[i]));
    }
    // A packet at every poll, or seldom, or so seldom that the worker restarts its client.
    static const int every[] = {1, 50, 100, 200, 300, 500};
    const int pollsPerPacket = every[m_random.bounded(6)];
    for (const QString &id : m_ids)
        m_audio.setEndlessFrames(id, 16, pollsPerPacket);
    m_mic = QStringLiteral("{%1}.mic").arg(seed);
    m_audio.add(m_mic, QStringLiteral("Mic"), eCapture);
    m_audio.setDefault(m_ids[0]);
}

QStringList Sequence::run()
{
    m_capture = std::make_unique<AudioCapture>();
    if (m_random.bounded(4) != 0)
        start("first start", [&] { m_capture->startCapture(); });

    std::vector<VirtualThread> threads;
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
        spin(20);
    if (!endsEarly)
        settle();
    call("destruction", [&] { m_capture.reset(); });
    for (VirtualThread &thread : threads)
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

void Sequence::call(const char *what, const std::function<void()> &function)
{
    const auto entry = m_watchdog.enter(&m_audio, m_seed, what);
    function();
    m_watchdog.leave(entry);
}

void Sequence::spin(int ms)
{
    ::spin(ms, [this] { call("events", handleEvents); });
}

bool Sequence::waitUntil(const std::function<bool()> &condition, int timeoutMs)
{
    const qint64 untilMs = m_audio.nowMs() + timeoutMs;
    while (!condition()) {
        if (m_audio.nowMs() > untilMs)
            return false;
        spin(20);
    }
    return true;
}

void Sequence::start(const char *what, const std::function<void()> &function)
{
    {
        const std::lock_guard<std::mutex> lock(m_marks);
        m_lastStartBegun = ++m_lastMark;
        m_lastStartEntry = m_audio.timelineLength();
    }
    call(what, function);
}

void Sequence::stop(const char *what, const std::function<void()> &function)
{
    call(what, function);
    const std::lock_guard<std::mutex> lock(m_marks);
    m_lastStopDone = ++m_lastMark;
}

bool Sequence::isWanted()
{
    const std::lock_guard<std::mutex> lock(m_marks);
    if (m_lastStartBegun <= m_lastStopDone)
        return false;
    const QList<FakeCallRecord> since = m_audio.timeline().mid(m_lastStartEntry);
    return std::none_of(since.begin(), since.end(), [](const FakeCallRecord &record) {
        return record.text.startsWith(QStringLiteral("[startCapture] 已在执行中"));
    });
}

void Sequence::pause(QRandomGenerator &random)
{
    static const int pauses[] = {0, 0, 1, 5, 20, 100, 300, 510, 700};
    sleepMs(static_cast<quint64>(pauses[random.bounded(9)]));
}

void Sequence::changeDefaults(QRandomGenerator &random)
{
    for (int n = static_cast<int>(random.bounded(1, 4)); n > 0; --n) {
        pause(random);
        const std::lock_guard<PatientMutex> lock(m_order);
        const int device = static_cast<int>(random.bounded(kDevices));
        if (m_present[device])
            announceDefault(device, static_cast<int>(random.bounded(1, 4)));
        if (random.bounded(3) == 0)
            m_audio.notifyDefaultChanged(m_mic, eCapture);
    }
}

void Sequence::announceDefault(int device, int roles)
{
    m_audio.setDefault(m_ids[device]);
    for (int role = 0; role < roles; ++role) {
        call("default change", [&] {
            m_audio.notifyDefaultChanged(m_ids[device], eRender, static_cast<ERole>(role));
        });
    }
}

void Sequence::changeDevices(QRandomGenerator &random)
{
    for (int n = static_cast<int>(random.bounded(0, 3)); n > 0; --n) {
        pause(random);
        const std::lock_guard<PatientMutex> lock(m_order);
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

void Sequence::changeStates(QRandomGenerator &random)
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

void Sequence::actAsUser(QRandomGenerator &random)
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

void Sequence::actFromElsewhere(QRandomGenerator &random)
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

QString Sequence::someText(QRandomGenerator &random)
{
    const auto entries = m_capture->devices();
    const int choice = static_cast<int>(random.bounded(entries.size() + 2));
    if (choice < entries.size())
        return entries.at(choice).name;
    return choice == entries.size() ? kFollow : QStringLiteral("Head"); // listed nowhere
}

void Sequence::settle()
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

void Sequence::settleByChoice()
{
    const auto entries = m_capture->devices();
    if (entries.isEmpty())
        return;
    const DeviceEntry &entry = entries.at(static_cast<int>(m_random.bounded(entries.size())));
    start("last choice", [&] { m_capture->setCurrentDevice(entry.name); });
    const bool reached = waitUntil(
        [&] {
            const QString wanted = entry.id.isEmpty() ? m_audio.defaultId() : entry.id;
            return m_audio.capturedDevice() == wanted && m_capture->currentDevice() == entry.name;
        },
        10000);
    if (!reached)
        m_wrong.append(
            QStringLiteral("chose %1 (%2), captures %3, current %4")
                .arg(entry.name, entry.id, m_audio.capturedDevice(), m_capture->currentDevice()));
}

void Sequence::settleByStop()
{
    spin(1200); // a restart that is armed, and the start that it leads to
    stop("last stop", [&] { m_capture->stopCapture(); });
    if (!waitUntil([&] { return m_audio.capturedDevice().isEmpty(); }, 3000))
        m_wrong.append(QStringLiteral("captures after the stop"));
    spin(600);
    if (!m_audio.capturedDevice().isEmpty() || m_capture->isCapturing())
        m_wrong.append(QStringLiteral("came back after the stop"));
}

void Sequence::settleByWorkerEnd()
{
    start("last start", [&] { m_capture->startCapture(); });
    const auto captures = [&] { return !m_audio.capturedDevice().isEmpty(); };
    if (!waitUntil(captures, kPatienceMs)) {
        m_wrong.append(QStringLiteral("nothing is captured after the last start"));
        return;
    }
    const int starts = m_audio.calls(FakeCall::Initialize);
    m_audio.fail(FakeCall::GetNextPacketSize, {AUDCLNT_E_DEVICE_INVALIDATED},
                 m_audio.calls(FakeCall::GetNextPacketSize) + 1, 1);
    const auto restarted = [&] {
        return m_audio.calls(FakeCall::Initialize) > starts && captures();
    };
    if (!waitUntil(restarted, kPatienceMs))
        m_wrong.append(QStringLiteral("no restart after the worker's end"));
}

void Sequence::checkState()
{
    const bool wanted = isWanted();
    bool followed = false;
    bool chosen = false;
    // Not while a start is under way or a session has not begun or ended yet.
    QStringList wrong;
    const bool right = waitUntil(
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
                wrong.append(QStringLiteral("is to capture %1, captures %2").arg(pinned, captured));
            followed = servedText == kFollow;
            chosen = !pinned.isEmpty();
            spin(20);
            return wrong.isEmpty();
        },
        kPatienceMs);
    if (!right)
        m_wrong += wrong;
    ++m_counts.settled;
    m_counts.wanted += wanted ? 1 : 0;
    m_counts.followed += followed ? 1 : 0;
    m_counts.chosen += chosen ? 1 : 0;
}

QString Sequence::pinnedDevice()
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
