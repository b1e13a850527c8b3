// One controller on one fake audio system, and one random order of what happens to both.
#pragma once

#include "capture/audiocapture.h"
#include "platform/patientmutex.h"
#include "tests/capture/watchdog.h"
#include "tests/support/fakeaudio.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <QRandomGenerator>
#include <QStringList>

/// Sequences that came to rest, and of these: capture was wanted beyond doubt; what was captured
/// had to be the default; it had to be a chosen device.
struct SequenceCounts {
    std::atomic<int> settled {0};
    std::atomic<int> wanted {0};
    std::atomic<int> followed {0};
    std::atomic<int> chosen {0};
};

/// For one thread, with events and an apartment of its own.
class Sequence {
public:
    /// The same seed makes the same choices; threads may still meet otherwise. Adds to the counts.
    Sequence(quint32 seed, Watchdog &watchdog, SequenceCounts &counts);

    /// What was wrong, empty when nothing was. To be called once.
    QStringList run();

private:
    static constexpr int kDevices = 3;

    void call(const char *what, const std::function<void()> &function);
    /// Restarts come with the events, so these are watched as calls are.
    void spin(int ms);
    bool waitUntil(const std::function<bool()> &condition, int timeoutMs);
    void start(const char *what, const std::function<void()> &function);
    void stop(const char *what, const std::function<void()> &function);
    /// Whether capture is wanted beyond doubt: its owners asked for it after everything that may
    /// have stopped it, and no start gave way to another one that had begun before.
    bool isWanted();
    static void pause(QRandomGenerator &random);

    // --- threads of the audio system ------------------------------------------------------------

    /// The default changes; the last notification tells the final default.
    void changeDefaults(QRandomGenerator &random);
    void announceDefault(int device, int roles);

    /// Devices go and come back.
    void changeDevices(QRandomGenerator &random);

    /// States come and go without the device doing so.
    void changeStates(QRandomGenerator &random);

    // --- the controller's owners ----------------------------------------------------------------

    void actAsUser(QRandomGenerator &random);

    void actFromElsewhere(QRandomGenerator &random);

    QString someText(QRandomGenerator &random);

    // --- the model ------------------------------------------------------------------------------

    /// All threads are done, and what is pending comes to rest.
    void settle();

    /// The device that was chosen last is captured.
    void settleByChoice();

    /// Once no timer is pending, a stop is for good.
    void settleByStop();

    /// Wanted capture comes back after the worker has ended by itself.
    void settleByWorkerEnd();

    /// The captured device is the choice of the last start, and that start was for the device that
    /// is wanted now.
    void checkState();

    /// The id of the device that the last start was to capture by its name; empty when it was to
    /// capture another or had to fall back to the default.
    QString pinnedDevice();

    const quint32 m_seed;
    Watchdog &m_watchdog;
    SequenceCounts &m_counts;
    QRandomGenerator m_random;
    FakeAudio m_audio;
    QString m_ids[kDevices];
    QString m_mic;
    bool m_present[kDevices] = {true, true, true};
    PatientMutex m_order; ///< guards m_present; default changes are told in their order
    std::unique_ptr<AudioCapture> m_capture;
    std::atomic<int> m_busy {0};
    std::atomic<bool> m_foreignCallsEnd {false};
    std::atomic<bool> m_inForeignCall {false};
    std::mutex m_marks; ///< guards the four below: the order of starts and stops
    int m_lastMark = 0;
    int m_lastStartBegun = 0;
    int m_lastStartEntry = 0; ///< length of the timeline then
    int m_lastStopDone = 0;
    QStringList m_wrong;
};
