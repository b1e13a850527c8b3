#pragma once

#include "platform/soundoutput.h"
#include "tools/monitor/heightscale.h"
#include "tools/monitor/messagestatistics.h"
#include "tools/monitor/peakhold.h"
#include "tools/monitor/servicestate.h"
#include "tools/monitor/spectrumreading.h"
#include "tools/monitor/waitreason.h"

#include <deque>

/// What is known of the service: the newest reading, held levels, how messages come and what is
/// wrong. Knows neither clock nor screen: every `now` is milliseconds on any clock that never runs
/// backwards.
class MonitorModel {
    Q_DECLARE_TR_FUNCTIONS(MonitorModel)

public:
    static constexpr double kSilenceMs = 3000; ///< of zeros that are worth a word

    MonitorModel();

    /// Takes a message. False for one that is not understood, which is counted.
    bool addMessage(const QString &message, double now);

    /// Notes that the service has come or gone. When it goes, the last reading goes with it.
    void setState(ServiceState state);

    /// Takes why the service is not there, to be said until its state changes.
    void setWaitReason(const WaitReason &reason);
    const WaitReason &waitReason() const { return m_reason; }

    /// Messages come, and for some seconds all that they show is zero.
    bool isSilent(double now) const;

    /// Takes what the sound system says, which explains silence.
    void setSoundOutput(const SoundOutputState &output) { m_output = output; }

    /// Takes whether the service listens to another sound server than the one that says that.
    void setServiceHearsElsewhere(bool elsewhere) { m_hearsElsewhere = elsewhere; }

    /// The height of the bars, which fits the newest ones.
    HeightScale &scale() { return m_scale; }

    ServiceState state() const { return m_state; }
    const MessageStatistics &statistics() const { return m_statistics; }

    /// The newest reading; all zero (100 bars) before the first and without the service.
    const SpectrumReading &reading() const { return m_reading; }

    /// The held levels, let fall down to now.
    Levels heldLevels(double now);

    /// Messages a second over the last second, bad ones left out; 0 with fewer than two.
    double rate(double now);

    /// Milliseconds since the newest good message; 0 before the first.
    double age(double now) const;

    /// The state or the rate and the age, and the bad messages if there are any: one line.
    QString status(double now);

    /// Says in place of the bars why there are none; empty while there is sound.
    QString notice(double now) const;

private:
    QString whatLacks(double now) const; ///< empty while messages come
    QString whySilent() const;

    ServiceState m_state = ServiceState::Missing;
    SpectrumReading m_reading;
    MessageStatistics m_statistics;
    PeakHold m_rms;
    PeakHold m_peak;
    PeakHold m_dynamic;
    std::deque<double> m_arrivals; ///< of the last second
    WaitReason m_reason;
    SoundOutputState m_output;
    bool m_hearsElsewhere = false;
    HeightScale m_scale;
    double m_lastSound = 0; ///< or the first message since the service is there
    bool m_received = false; ///< a message since the service is there
};
