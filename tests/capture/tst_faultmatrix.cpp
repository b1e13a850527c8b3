// Every call that crosses into the audio system fails, one after the other, in every scenario.
//
// usage: tst_faultmatrix <scenario> [lanes]
//
// Call number n of the scenario's own phase fails, n = 1, 2, ..., until a run is over before it
// comes to call n: once with every code; and, with a few codes and every third n, from call n on
// for 3 s and for good. Besides, what begins a session fails for good while all else goes well:
// capture must be restarted again and again, and come back when the fault ends. After each run its
// timeline is replayed against the rules of starts and sessions, the device must be the wanted one,
// and nothing may be left behind.
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

#include <cstdio>
#include <cstdlib>
#include <objbase.h>
#include <thread>

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
        std::thread thread([&] {
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
    /// So many runs must come to their fault, or the scenario has tested next to nothing: 2,000 in
    /// all scenarios. A fast machine has more, since a session polls until the faults have settled.
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

QString describe(const Scenario &scenario, const Run &run)
{
    const char *modes[] = {"once", "for 3 s", "for good", "(its kind) again and again"};
    return QStringLiteral("%1, call %2 fails %3 with %4%5")
        .arg(QLatin1String(scenario.name))
        .arg(run.number)
        .arg(QLatin1String(modes[static_cast<int>(run.mode)]),
             QString::number(static_cast<quint32>(run.fault.code), 16),
             run.fault.nullSuccess ? QStringLiteral(" and null") : QString());
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

/// Whether the run came to its fault.
bool perform(const Scenario &scenario, const Run &run, int index, Complaints &complaints)
{
    Stage stage(index);
    QStringList wrong;
    if (!scenario.prepare(stage)) {
        complaints.add(describe(scenario, run), {QStringLiteral("did not get to its fault")});
        return true;
    }
    stage.arm(run);
    scenario.act(stage);
    spin(kSettleMs);
    if (run.mode == Mode::SameKind) {
        waitUntil([&] { return stage.seen().failures > kRestarts; }, 15000);
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
        QElapsedTimer clock;
        clock.start();
        do { // the fault may hit a session that had come to rest, and a busy machine may lag
            if (run.mode != Mode::ForGood) {
                waitUntil(atRest, 8000);
                spin(20);
            } else if (failed
                       && (losesDeviceForGood(scenario, run) || stage.seen().sessionErrors > 0)) {
                // 0.5 s to the restart, which waits 3 s for a worker that is gone.
                waitUntil([&] { return stage.seen().startsFailed > 0; }, 8000);
                spin(kSettleMs);
            }
            verdict = judge(scenario, run, stage, failed);
        } while (!verdict.isEmpty() && clock.elapsed() < 5000);
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
    return failed;
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

/// Runs call numbers 1, 2, ... for one fault until a run is over before its fault.
struct Column {
    FakeFault fault;
    Mode mode = Mode::Once;
    int first = 1;
    int step = 1;
    std::atomic<int> end {1 << 30};
};

int runScenario(const Scenario &scenario, int lanes)
{
    FakeAudio elsewhere; // the world of threads that have not met theirs yet
    MessageLog log(MessageLog::Keep::InTheWorldsOnly);
    setReportSink([](const QString &) { ++s_reports; });
    std::thread([] {}).join(); // a sanitizer starts its own thread with the first of ours
    const int threadsBefore = threadCount();

    std::vector<std::unique_ptr<Column>> columns;
    const auto column = [&](FakeFault fault, Mode mode, int step) {
        columns.push_back(std::make_unique<Column>());
        columns.back()->fault = fault;
        columns.back()->mode = mode;
        columns.back()->step = step;
    };
    for (const FakeFault &fault : everyFault())
        column(fault, Mode::Once, 1);
    for (const HRESULT code :
         {AUDCLNT_E_DEVICE_INVALIDATED, AUDCLNT_E_BUFFER_OPERATION_PENDING, E_FAIL}) {
        column({code, false}, Mode::ThreeSeconds, 3);
        column({code, false}, Mode::ForGood, 3);
        for (const FakeCall kind : {FakeCall::GetService, FakeCall::Start}) {
            if (!scenario.begins)
                continue;
            column({code, false}, Mode::SameKind, 1);
            columns.back()->first = columns.back()->end = static_cast<int>(kind);
        }
    }

    Complaints complaints;
    std::atomic<int> runs {0};
    std::atomic<int> faulty {0};
    constexpr int kMostCalls = 300;
    const int width = static_cast<int>(columns.size());
    runInLanes(lanes, kMostCalls * width, [&](int job) {
        Column &mine = *columns[static_cast<size_t>(job % width)];
        const int number = mine.first + (job / width) * mine.step;
        if (number > mine.end)
            return;
        const bool failed = perform(scenario, {number, mine.fault, mine.mode}, job, complaints);
        ++runs;
        if (failed)
            ++faulty;
        else if (number < mine.end)
            mine.end = number;
    });

    int problems = 0;
    const auto expect = [&](bool right, const QString &what) {
        if (!right) {
            ++problems;
            std::printf("%s\n", qPrintable(what));
        }
    };
    for (const auto &each : columns)
        expect(each->end < kMostCalls * each->step,
               QStringLiteral("no run was over before its fault"));
    expect(faulty >= scenario.leastFaulty,
           QStringLiteral("only %1 runs with a fault, not %2")
               .arg(faulty.load())
               .arg(scenario.leastFaulty));
    expect((s_failures > 0) == (scenario.reports > 0),
           QStringLiteral("%1 failures").arg(s_failures.load()));
    expect(s_reports == scenario.reports,
           QStringLiteral("%1 reports, not %2").arg(s_reports.load()).arg(scenario.reports));
    expect(waitUntil([&] { return threadCount() <= threadsBefore; }, 5000),
           QStringLiteral("%1 threads, %2 before").arg(threadCount()).arg(threadsBefore));
    expect(complaints.summary().isEmpty(), complaints.summary());
    std::printf("%s: %d runs, %d of them with a fault, %d failures, %d reports\n", scenario.name,
                runs.load(), faulty.load(), s_failures.load(), s_reports.load());
    return problems;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString wanted = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const int lanes = argc > 2 ? std::atoi(argv[2]) : 48;
    for (const Scenario &scenario : scenarios()) {
        if (wanted == QLatin1String(scenario.name))
            return runScenario(scenario, lanes) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::printf("usage: %s <scenario> [lanes]; scenarios:", argv[0]);
    for (const Scenario &scenario : scenarios())
        std::printf(" %s", scenario.name);
    std::printf("\n");
    return EXIT_FAILURE;
}
