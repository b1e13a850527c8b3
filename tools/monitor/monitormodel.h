#pragma once

#include "tools/monitor/messagestatistics.h"
#include "tools/monitor/peakhold.h"
#include "tools/monitor/servicestate.h"
#include "tools/monitor/spectrumreading.h"

#include <deque>

/// What is known of the service: the newest reading, held levels, how messages come and what is
/// wrong. Knows neither clock nor screen: every `now` is milliseconds on any clock that never runs
/// backwards.
class MonitorModel {
public:
    MonitorModel();

    /// Takes a message. False for one that is not understood, which is counted.
    bool addMessage(const QString &message, double now);

    /// Takes the service's coming and going; without it nothing is left of the last reading.
    void setState(ServiceState state);

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

    /// What is to be said in place of the bars: empty while messages come.
    QString notice(double now) const;

private:
    ServiceState m_state = ServiceState::Missing;
    SpectrumReading m_reading;
    MessageStatistics m_statistics;
    PeakHold m_rms;
    PeakHold m_peak;
    PeakHold m_dynamic;
    std::deque<double> m_arrivals; ///< of the last second
    bool m_received = false; ///< a message since the service is there
};
