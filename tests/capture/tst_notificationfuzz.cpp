// Random orders of notifications, user choices, starts, stops and worker ends, from several threads
// at once, many controllers side by side.
//
// usage: tst_notificationfuzz [sequences [seed [lanes]]]
// TONEWELL_FUZZ_SEQUENCES, TONEWELL_FUZZ_SEED and TONEWELL_FUZZ_LANES set them as well.
//
// In virtual time, where a sequence does the same in every run: lanes are processes, one without
// more. With TONEWELL_FUZZ_REAL_TIME set, in real time, where threads really meet, as a sanitizer
// wants it: lanes are threads then.
//
// Invariants of every sequence: never two sessions at once; no call hangs; every start and session
// follows its rules; what is captured is what the last start chose, for the device that is wanted
// now, and the default when that is followed; what is wanted is captured, if its last start came
// up; nothing is used after it is gone or left behind.
#include "report/deliverreport.h"
#include "tests/capture/lanes.h"
#include "tests/capture/sequence.h"
#include "tests/support/messagelog.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <vector>

namespace {

constexpr int kEnough = 100; // sequences for a share

int setting(int argc, char **argv, int index, const char *variable, int fallback)
{
    if (argc > index)
        return static_cast<int>(std::strtoul(argv[index], nullptr, 10));
    bool given = false;
    const int value = qEnvironmentVariableIntValue(variable, &given);
    return given ? value : fallback;
}

/// Shares the sequences among processes like this one.
int runProcesses(int lanes, int sequences, quint32 seed)
{
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int lane = 0; lane < lanes; ++lane) {
        const int first = sequences * lane / lanes;
        const int count = sequences * (lane + 1) / lanes - first;
        const quint32 own = seed + static_cast<quint32>(first);
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->setProcessChannelMode(QProcess::ForwardedChannels);
        processes.back()->start(
            QCoreApplication::applicationFilePath(),
            {QString::number(count), QString::number(own), QStringLiteral("1")});
    }
    int worst = EXIT_SUCCESS;
    for (const auto &process : processes) {
        process->waitForFinished(-1);
        if (process->exitStatus() != QProcess::NormalExit || process->exitCode() != EXIT_SUCCESS)
            worst = EXIT_FAILURE;
    }
    return worst;
}

} // namespace

int main(int argc, char **argv)
{
    const bool realTime = qEnvironmentVariableIsSet("TONEWELL_FUZZ_REAL_TIME");
    const int lanes = setting(argc, argv, 3, "TONEWELL_FUZZ_LANES", realTime ? 64 : 1);
    std::optional<VirtualTime> time;
    if (!realTime && lanes == 1)
        time.emplace();
    QCoreApplication app(argc, argv);
    const int sequences = setting(argc, argv, 1, "TONEWELL_FUZZ_SEQUENCES", 300);
    const auto seed = static_cast<quint32>(
        setting(argc, argv, 2, "TONEWELL_FUZZ_SEED",
                static_cast<int>(QRandomGenerator::global()->bounded(1U << 30))));
    if (lanes > 1 && !realTime)
        return runProcesses(lanes, sequences, seed);
    std::printf("%d sequences from seed %u on\n", sequences, seed);
    std::fflush(stdout);

    FakeAudio elsewhere; // the world of threads that have not met theirs yet
    MessageLog log(MessageLog::Keep::InTheWorldsOnly);
    setReportSink([](const QString &) {});
    Watchdog watchdog;
    SequenceCounts counts;
    Complaints complaints;
    QElapsedTimer clock;
    clock.start();
    const auto run = [&](int job) {
        const quint32 own = seed + static_cast<quint32>(job);
        complaints.add(QStringLiteral("sequence %1").arg(own),
                       Sequence(own, watchdog, counts).run());
    };
    if (realTime) {
        runInLanes(lanes, sequences, run);
    } else {
        for (int job = 0; job < sequences; ++job)
            run(job);
    }
    const int settled = counts.settled;
    if (settled >= kEnough
        && (counts.wanted < settled / 4 || counts.followed < settled / 20
            || counts.chosen < settled / 20))
        complaints.add(QStringLiteral("all sequences"), {QStringLiteral("too little was known")});
    std::printf(
        "%s%s%d sequences in %.1f s; %d came to rest: capture was wanted in %d, of the default "
        "in %d, of a chosen device in %d\n",
        qPrintable(complaints.summary()), complaints.summary().isEmpty() ? "" : "\n", sequences,
        static_cast<double>(clock.elapsed()) / 1000, settled, counts.wanted.load(),
        counts.followed.load(), counts.chosen.load());
    return complaints.summary().isEmpty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
