// Every call that crosses into the audio system fails, one after the other, in every scenario.
//
// usage: tst_faultmatrix <scenario> [seconds]
// TONEWELL_MATRIX_SECONDS sets the second one as well.
//
// Call number n of the scenario's own phase fails, n = 1, 2, ..., until a run is over before it
// comes to call n: once with every code; and, with a few codes and every third n, from call n on
// for 3 s and for good. Besides, what begins a session fails for good while all else goes well:
// capture must be restarted again and again, and come back when the fault ends. After each run its
// timeline is replayed against the rules of starts and sessions, the device must be the wanted one,
// and nothing may be left behind. All in virtual time: a run is the same every time.
//
// With seconds, pairs of faults follow for so long: one at call n and another one at a later call,
// of every code with every code, in an order that is mixed and always the same.
//
// CoInitializeEx is no call of the audio system's objects and has no number here. The unit tests
// failedApartment and otherApartmentIsTolerated make it fail.
#include "capture/audiocapture.h"
#include "report/deliverreport.h"
#include "tests/capture/lanes.h"
#include "tests/capture/replay.h"
#include "tests/support/messagelog.h"
#include "tests/support/taskmemory.h"
#include "tests/support/threads.h"
#include "tests/support/waiting.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <objbase.h>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <thread>
#include <vector>

namespace {

const QString kFollow = QStringLiteral("默认输出设备");
const QString kPicked = QStringLiteral("Headset");
constexpr int kSettleMs = 60; // some polls of a session
constexpr int kRestarts = 3; // as many are taken for restarts without end

std::atomic<int> s_reports {0};
std::atomic<int> s_failures {0}; // calls of the failure handler

/// SameKind: every call of one kind, until capture has been restarted often enough.
enum class Mode { Once, ThreeSeconds, ForGood, SameKind };

struct Run {
    int number = 1; ///< of the first call that fails; for SameKind the FakeCall
    FakeFault fault;
    Mode mode = Mode::Once;
    int secondNumber = 0; ///< of another call that fails once; 0 for none
    FakeFault secondFault {};
};

/// One controller in one world. Ids are its own: the debounce of default changes is the process's.
class Stage {
public:
    explicit Stage(int index)
        : idA(QStringLiteral("{%1}.a").arg(index))
        , idB(QStringLiteral("{%1}.b").arg(index))
    {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        audio.enter();
        audio.add(idA, QStringLiteral("Speakers"));
        audio.add(idB, kPicked);
        for (const QString &id : {idA, idB})
            audio.setEndlessFrames(id, 240, 4);
        audio.add(QStringLiteral("{%1}.mic").arg(index), QStringLiteral("Mic"), eCapture);
        audio.setDefault(idA);
    }

    void make()
    {
        capture = std::make_unique<AudioCapture>();
        QObject::connect(capture.get(), &AudioCapture::formatChanged, capture.get(),
                         [this] { ++formats; });
    }
    bool begin(const QString &device = kFollow)
    {
        make();
        capture->setCurrentDevice(device);
        const QString id = device == kFollow ? idA : idB;
        return waitUntil([&] { return audio.capturedDevice() == id; }, 5000);
    }
    /// On a thread of the audio system; events of this one go on.
    void notify(const std::function<void()> &function)
    {
        std::atomic<bool> done {false};
        VirtualThread thread([&] {
            function();
            done = true;
        });
        waitUntil([&] { return done.load(); }, 60000);
        thread.join();
    }
    void arm(const Run &run)
    {
        const int first = audio.totalCalls() + run.number;
        const auto kind = static_cast<FakeCall>(run.number);
        if (run.mode == Mode::SameKind)
            audio.fail(kind, run.fault, audio.calls(kind) + 1);
        else if (run.mode == Mode::Once)
            audio.failNumbered(first, run.fault);
        else
            audio.failNumbered(first, run.fault, -1, run.mode == Mode::ThreeSeconds ? 3000 : -1);
        if (run.secondNumber > 0)
            audio.failNumbered(first - run.number + run.secondNumber, run.secondFault);
    }

    Replay seen() const
    {
        return replay(audio.timeline(), {{QStringLiteral("Speakers"), idA}, {kPicked, idB}});
    }

    const QString idA;
    const QString idB;
    FakeAudio audio;
    std::unique_ptr<AudioCapture> capture;
    std::atomic<int> formats {0};
};

struct Scenario {
    const char *name;
    /// Brings the stage to where the faults begin; false when it does not get there.
    std::function<bool(Stage &)> prepare;
    std::function<void(Stage &)> act;
    bool wanted; ///< capture is wanted in the end
    bool picks; ///< "Headset" is wanted by name in the end, if no fault stands against it
    bool begins; ///< sessions, even without a fault
    /// So many runs come to their fault.
    int leastFaulty;
    int reports; ///< of the process: one for all its failures, none where nothing is started
};

const std::vector<Scenario> &scenarios()
{
    static const std::vector<Scenario> all {
        {"start", [](Stage &) { return true; },
         [](Stage &stage) {
             stage.make();
             stage.capture->startCapture();
         },
         true, false, true, 250, 1},
        {"steady", [](Stage &stage) { return stage.begin(); }, [](Stage &) {}, true, false, false,
         100, 1},
        {"pick", [](Stage &stage) { return stage.begin(); },
         [](Stage &stage) { stage.capture->setCurrentDevice(kPicked); }, true, true, true, 200, 1},
        {"default", [](Stage &stage) { return stage.begin(); },
         [](Stage &stage) {
             stage.audio.setDefault(stage.idB);
             stage.notify([&] { stage.audio.notifyDefaultChanged(stage.idB); });
         },
         true, false, true, 550, 1},
        {"removed", [](Stage &stage) { return stage.begin(kPicked); },
         [](Stage &stage) {
             stage.audio.setState(stage.idB, DEVICE_STATE_NOTPRESENT);
             stage.notify([&] { stage.audio.notifyRemoved(stage.idB); });
         },
         true, false, true, 450, 1},
        {"state", [](Stage &stage) { return stage.begin(); },
         [](Stage &stage) {
             stage.notify(
                 [&] { stage.audio.notifyStateChanged(stage.idA, DEVICE_STATE_UNPLUGGED); });
             stage.notify([&] { stage.audio.notifyStateChanged(stage.idA, DEVICE_STATE_ACTIVE); });
             spin(520);
         },
         true, false, true, 450, 1},
        {"stop", [](Stage &stage) { return stage.begin(); },
         [](Stage &stage) { stage.capture->stopCapture(); }, false, false, false, 28, 0},
        {"destruction", [](Stage &stage) { return stage.begin(); },
         [](Stage &stage) { stage.capture.reset(); }, false, false, false, 28, 0},
    };
    return all;
}

QString describe(const FakeFault &fault)
{
    return QString::number(static_cast<quint32>(fault.code), 16)
        + (fault.nullSuccess ? QStringLiteral(" and null") : QString());
}

QString describe(const Scenario &scenario, const Run &run)
{
    const char *modes[] = {"once", "for 3 s", "for good", "(its kind) again and again"};
    QString text = QStringLiteral("%1, call %2 fails %3 with %4")
                       .arg(QLatin1String(scenario.name))
                       .arg(run.number)
                       .arg(QLatin1String(modes[static_cast<int>(run.mode)]), describe(run.fault));
    if (run.secondNumber > 0)
        text += QStringLiteral(", call %1 with %2")
                    .arg(run.secondNumber)
                    .arg(describe(run.secondFault));
    return text;
}

/// waitUntil() in steps: to judge a run takes long.
bool comesTo(const std::function<bool()> &condition, int limitMs)
{
    const quint64 untilMs = tickCountMs() + static_cast<quint64>(limitMs);
    while (!condition()) {
        if (tickCountMs() > untilMs)
            return false;
        spin(20);
    }
    return true;
}

/// No session outlives this, and no start succeeds any more.
bool losesDeviceForGood(const Scenario &scenario, const Run &run)
{
    return scenario.wanted && run.mode == Mode::ForGood
        && run.fault.code == AUDCLNT_E_DEVICE_INVALIDATED;
}

/// Whether "Headset" is wanted by name and nothing has led capture back to the default device.
bool staysPicked(const Scenario &scenario, const Stage &stage, const Replay &seen)
{
    const QString removed = QStringLiteral("[设备移除] 被移除的设备名称:");
    bool picked = scenario.picks;
    for (const FakeCallRecord &record : stage.audio.timeline()) {
        if (record.text.startsWith(removed)) {
            // A device whose name could not be read is not recognised as the one in use.
            const QString name = record.text.mid(removed.size()).trimmed();
            picked = !kPicked.contains(name);
        } else if (record.text.startsWith(QStringLiteral("[设备切换] 已自动跟随到:"))) {
            picked = true; // the new default bears no suffix when the default cannot be told
        }
    }
    return picked && seen.fallbacks == 0;
}

/// What must hold when the events have come to rest; failed: the run came to its fault in time.
QStringList judge(const Scenario &scenario, const Run &run, Stage &stage, bool failed)
{
    const Replay seen = stage.seen();
    const bool picked = staysPicked(scenario, stage, seen);
    QStringList wrong = seen.complaints;
    const auto expect = [&](bool right, const char *what) {
        if (!right)
            wrong.append(QString::fromUtf8(what));
    };
    expect(seen.announced == stage.formats, "formatChanged and its message differ in number");
    expect(seen.failures == seen.startsFailed + seen.sessionErrors,
           "not exactly one failure handler for each failure");
    expect(seen.sessionsEnded >= seen.stopsAnswered + seen.stopsPassedOver,
           "more stops than sessions that ended");
    expect(seen.restarts <= seen.stopsAnswered, "a restart without a stop");
    if (!stage.capture)
        expect(seen.sessionsOpen == 0, "a session that did not end");
    if (failed && losesDeviceForGood(scenario, run)) {
        // A lost session is restarted; a start that failed is not.
        expect(seen.startsFailed > 0, "no start failed for good");
        if (seen.sessionErrors == 0)
            expect(seen.startsFailed == 1 && seen.failures == 1,
                   "not exactly one failure for good");
    }
    if (!stage.capture)
        return wrong;
    expect(stage.capture->currentDevice() == (picked ? kPicked : kFollow),
           "another device is wanted");
    if (run.mode == Mode::ForGood) {
        // The restart fails before it comes to a session.
        if (failed && scenario.wanted && seen.sessionErrors > 0)
            expect(seen.startsFailed > 0, "no restart of a session that failed for good");
        return wrong;
    }
    if (run.mode == Mode::SameKind && scenario.begins)
        expect(failed && seen.restarts + seen.fallbacks >= kRestarts
                   && seen.sessionErrors > kRestarts && seen.startsFailed == 0,
               "a session that cannot begin is not restarted again and again");

    const QString captured = stage.audio.capturedDevice();
    if (!scenario.wanted)
        expect(captured.isEmpty() && !stage.capture->isCapturing(), "capture goes on");
    else if (seen.starts > 0 && !seen.lastStartSucceeded)
        expect(captured.isEmpty(), "capture without a start");
    else if (stage.audio.faults() > 0 || seen.starts > 0) {
        expect(captured == seen.lastDevice, "the device of the last start is not captured");
        expect(captured == (picked && !seen.lastRecovered ? stage.idB : stage.audio.defaultId()),
               "the wanted device is not captured");
    }
    return wrong;
}

/// How many of its faults the run came to; 0 if it had come to rest before the first.
int perform(const Scenario &scenario, const Run &run, Complaints &complaints)
{
    static int s_runs = 0;
    Stage stage(++s_runs);
    QStringList wrong;
    if (!scenario.prepare(stage)) {
        complaints.add(describe(scenario, run), {QStringLiteral("did not get to its fault")});
        return 0;
    }
    stage.arm(run);
    scenario.act(stage);
    spin(kSettleMs);
    if (run.mode == Mode::SameKind) {
        comesTo([&] { return stage.seen().failures > kRestarts; }, 15000);
        stage.audio.clearFaults();
    }
    const bool failed = stage.audio.faults() > 0;
    if (failed && run.mode == Mode::ThreeSeconds)
        spin(3100);
    if (stage.capture) {
        // At rest: the last start failed for good, or capture goes on; or nothing is wanted.
        const auto atRest = [&] {
            if (stage.audio.capturedDevice().isEmpty() != scenario.wanted)
                return true;
            spin(30);
            const Replay now = stage.seen();
            return now.starts > 0 && !now.lastStartSucceeded;
        };
        QStringList verdict;
        const quint64 untilMs = tickCountMs() + 5000;
        do { // the fault may hit a session that had come to rest
            if (run.mode != Mode::ForGood) {
                comesTo(atRest, 8000);
                spin(20);
            } else if (failed
                       && (losesDeviceForGood(scenario, run) || stage.seen().sessionErrors > 0)) {
                // 0.5 s to the restart, which waits 3 s for a worker that is gone.
                comesTo([&] { return stage.seen().startsFailed > 0; }, 8000);
                spin(kSettleMs);
            }
            verdict = judge(scenario, run, stage, failed);
        } while (!verdict.isEmpty() && tickCountMs() < untilMs);
        wrong += verdict;
    }
    stage.capture.reset();
    wrong += judge(scenario, run, stage, failed);
    s_failures += stage.seen().failures;
    // A stop that fails or a callback that could not be registered changes nothing of this.
    wrong += stage.audio.problems();
    if (taskBlocksAlive(&stage.audio) != 0)
        wrong.append(QStringLiteral("%1 task memory blocks").arg(taskBlocksAlive(&stage.audio)));
    wrong.removeDuplicates();
    complaints.add(describe(scenario, run), wrong);
    return failed ? stage.audio.faults() : 0;
}

QList<FakeFault> everyFault()
{
    QList<FakeFault> faults;
    for (const HRESULT code : {AUDCLNT_E_DEVICE_INVALIDATED, AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED,
                               AUDCLNT_E_EVENTHANDLE_NOT_SET, AUDCLNT_E_BUFFER_OPERATION_PENDING,
                               AUDCLNT_E_UNSUPPORTED_FORMAT, AUDCLNT_E_SERVICE_NOT_RUNNING,
                               E_NOINTERFACE, E_POINTER, E_FAIL, CO_E_NOTINITIALIZED,
                               RPC_E_CHANGED_MODE, static_cast<HRESULT>(0x88890FFFU), S_FALSE})
        faults.append({code, false});
    faults.append({S_OK, true});
    return faults;
}

struct Tally {
    int runs = 0;
    int faulty = 0; ///< that came to their fault
};

constexpr int kMostCalls = 300;
constexpr int kFarthestSecond = 120; // calls after the first that fails

/// Runs call numbers 1, 1 + step, ... for one fault until a run is over before its fault; false if
/// none is.
bool runColumn(const Scenario &scenario, Run run, int step, Tally &tally, Complaints &complaints)
{
    for (; run.number <= kMostCalls * step; run.number += step) {
        ++tally.runs;
        if (perform(scenario, run, complaints) == 0)
            return true;
        ++tally.faulty;
        if (run.mode == Mode::SameKind)
            return true;
    }
    return false;
}

/// Every call fails, with every fault.
bool runSingles(const Scenario &scenario, Tally &tally, Complaints &complaints)
{
    bool allEnd = true;
    const auto column = [&](FakeFault fault, Mode mode, int first, int step) {
        allEnd = runColumn(scenario, {first, fault, mode}, step, tally, complaints) && allEnd;
    };
    for (const FakeFault &fault : everyFault())
        column(fault, Mode::Once, 1, 1);
    for (const HRESULT code :
         {AUDCLNT_E_DEVICE_INVALIDATED, AUDCLNT_E_BUFFER_OPERATION_PENDING, E_FAIL}) {
        column({code, false}, Mode::ThreeSeconds, 1, 3);
        column({code, false}, Mode::ForGood, 1, 3);
        for (const FakeCall kind : {FakeCall::GetService, FakeCall::Start}) {
            if (scenario.begins)
                column({code, false}, Mode::SameKind, static_cast<int>(kind), 1);
        }
    }
    return allEnd;
}

/// Pairs of faults, for so long; says how far it came.
void runPairs(const Scenario &scenario, int seconds, Tally &tally, Complaints &complaints)
{
    // What one fault is paired with: its number, and the codes of both.
    std::vector<Run> firsts;
    for (const FakeFault &fault : everyFault()) {
        Run run {1, fault};
        for (Complaints seen; run.number <= kMostCalls && perform(scenario, run, seen) > 0;
             ++run.number) {
            for (const FakeFault &second : everyFault())
                firsts.push_back({run.number, fault, Mode::Once, run.number, second});
        }
    }
    std::shuffle(firsts.begin(), firsts.end(), QRandomGenerator(1));
    QElapsedTimer clock;
    clock.start();
    std::size_t done = 0;
    for (; done < firsts.size() && clock.elapsed() < seconds * 1000; ++done) {
        Run run = firsts[done];
        do {
            ++tally.runs;
            ++run.secondNumber;
        } while (perform(scenario, run, complaints) > 1
                 && run.secondNumber < run.number + kFarthestSecond);
    }
    std::printf("%s: pairs of %zu first faults and second codes out of %zu\n", scenario.name, done,
                firsts.size());
}

int runScenario(const Scenario &scenario, int pairSeconds)
{
    FakeAudio elsewhere; // the world of threads that have not met theirs yet
    MessageLog log(MessageLog::Keep::InTheWorldsOnly);
    setReportSink([](const QString &) { ++s_reports; });
    std::thread([] {}).join(); // a sanitizer starts its own thread with the first of ours
    const int threadsBefore = threadCount();

    int problems = 0;
    const auto expect = [&](bool right, const QString &what) {
        if (!right) {
            ++problems;
            std::printf("%s\n", qPrintable(what));
        }
    };
    Tally tally;
    Complaints complaints;
    expect(runSingles(scenario, tally, complaints),
           QStringLiteral("no run was over before its fault"));
    expect(tally.faulty >= scenario.leastFaulty,
           QStringLiteral("only %1 runs with a fault, not %2")
               .arg(tally.faulty)
               .arg(scenario.leastFaulty));
    if (pairSeconds > 0)
        runPairs(scenario, pairSeconds, tally, complaints);
    expect((s_failures > 0) == (scenario.reports > 0),
           QStringLiteral("%1 failures").arg(s_failures.load()));
    expect(s_reports == scenario.reports,
           QStringLiteral("%1 reports, not %2").arg(s_reports.load()).arg(scenario.reports));
    expect(waitUntil([&] { return threadCount() <= threadsBefore; }, 5000),
           QStringLiteral("%1 threads, %2 before").arg(threadCount()).arg(threadsBefore));
    expect(complaints.summary().isEmpty(), complaints.summary());
    std::printf("%s: %d runs, %d of them single faults, %d failures, %d reports\n", scenario.name,
                tally.runs, tally.faulty, s_failures.load(), s_reports.load());
    return problems;
}

} // namespace

int main(int argc, char **argv)
{
    VirtualTime time;
    QCoreApplication app(argc, argv);
    const QString wanted = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const int seconds =
        argc > 2 ? std::atoi(argv[2]) : qEnvironmentVariableIntValue("TONEWELL_MATRIX_SECONDS");
    for (const Scenario &scenario : scenarios()) {
        if (wanted == QLatin1String(scenario.name))
            return runScenario(scenario, seconds) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::printf("usage: %s <scenario> [seconds]; scenarios:", argv[0]);
    for (const Scenario &scenario : scenarios())
        std::printf(" %s", scenario.name);
    std::printf("\n");
    return EXIT_FAILURE;
}
