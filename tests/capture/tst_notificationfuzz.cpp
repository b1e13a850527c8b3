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
#include "report/deliverreport.h"
#include "tests/capture/lanes.h"
#include "tests/capture/sequence.h"
#include "tests/support/messagelog.h"

#include <cstdio>
#include <cstdlib>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

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
    SequenceCounts counts;
    Complaints complaints;
    QElapsedTimer clock;
    clock.start();
    runInLanes(lanes, sequences, [&](int job) {
        const quint32 own = seed + static_cast<quint32>(job);
        complaints.add(QStringLiteral("sequence %1").arg(own),
                       Sequence(own, watchdog, counts).run());
    });
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
