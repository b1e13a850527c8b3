#include "tools/monitor/monitormodel.h"

#include <algorithm>

namespace {

constexpr double kSecondMs = 1000;
constexpr double kPatienceMs = 1000; ///< without a message before the status says so
constexpr std::size_t kMostArrivals = 10000; // a flood costs no more memory than this

/// Whether anything is to be seen of it: what is below is shown as 0.
bool isSound(const SpectrumReading &reading)
{
    constexpr double kSmallest = 0.0005 * kFullScale;
    return reading.rms >= kSmallest || reading.peak >= kSmallest || reading.dynamic >= kSmallest
        || *std::max_element(reading.bars.begin(), reading.bars.end()) > 0;
}

SpectrumReading nothing()
{
    SpectrumReading reading;
    reading.bars.fill(0, kBarCount);
    return reading;
}

} // namespace

MonitorModel::MonitorModel()
    : m_reading(nothing())
{
}

bool MonitorModel::addMessage(const QString &message, double now)
{
    if (!readSpectrumMessage(message, &m_reading)) {
        m_statistics.addBadMessage();
        return false;
    }
    if (!m_received || isSound(m_reading))
        m_lastSound = now;
    m_received = true;
    m_scale.addHighest(*std::max_element(m_reading.bars.begin(), m_reading.bars.end()), now);
    m_statistics.addMessage(now);
    m_arrivals.push_back(now);
    if (m_arrivals.size() > kMostArrivals)
        m_arrivals.pop_front();
    m_rms.update(m_reading.rms, now);
    m_peak.update(m_reading.peak, now);
    m_dynamic.update(m_reading.dynamic, now);
    return true;
}

void MonitorModel::setState(ServiceState state)
{
    if (state == ServiceState::OtherType && m_state != ServiceState::OtherType)
        m_statistics.addRefusedSource();
    m_state = state;
    m_reason = {};
    if (state == ServiceState::Connected)
        return;
    m_statistics.interrupt();
    m_received = false;
    m_arrivals.clear();
    m_reading = nothing();
}

Levels MonitorModel::heldLevels(double now)
{
    return {m_rms.update(m_reading.rms, now), m_peak.update(m_reading.peak, now),
            m_dynamic.update(m_reading.dynamic, now)};
}

double MonitorModel::rate(double now)
{
    while (!m_arrivals.empty() && m_arrivals.front() < now - kSecondMs)
        m_arrivals.pop_front();
    if (m_arrivals.size() < 2)
        return 0;
    const double span = std::max(m_arrivals.back() - m_arrivals.front(), 1e-3);
    return static_cast<double>(m_arrivals.size() - 1) * kSecondMs / span;
}

double MonitorModel::age(double now) const
{
    return m_statistics.messages() > 0 ? std::max(now - m_statistics.lastMessage(), 0.0) : 0;
}

void MonitorModel::setWaitReason(const WaitReason &reason)
{
    if (m_state == ServiceState::Missing)
        m_reason = reason;
}

bool MonitorModel::isSilent(double now) const
{
    return m_received && age(now) <= kPatienceMs && now - m_lastSound >= kSilenceMs;
}

QString MonitorModel::notice(double now) const
{
    const QString lack = whatLacks(now);
    return lack.isEmpty() && isSilent(now) ? whySilent() : lack;
}

QString MonitorModel::whatLacks(double now) const
{
    switch (m_state) {
    case ServiceState::Missing:
        return m_reason.text().isEmpty() ? tr("waiting for the service")
                                         : tr("waiting for the service: %1").arg(m_reason.text());
    case ServiceState::OtherType:
        return tr("what answers is of another type");
    case ServiceState::Connected:
        break;
    }
    if (!m_received)
        return tr("connected, no message yet");
    if (age(now) > kPatienceMs)
        return tr("no message for %1 s").arg(age(now) / 1000, 0, 'f', 1);
    return {};
}

QString MonitorModel::whySilent() const
{
    if (m_hearsElsewhere) // what is known of the sound server here says nothing of that one
        return tr(
            "nothing is playing on the service's sound server, which is another one than here");
    switch (m_output.kind) {
    case SoundOutputState::Unknown:
        break;
    case SoundOutputState::NoServer:
        return tr("no sound server");
    case SoundOutputState::NoDevice:
        return tr("no output device");
    case SoundOutputState::Idle:
        return tr("nothing is playing on %1").arg(m_output.name);
    case SoundOutputState::Playing:
        return tr("a program plays on %1, but only silence arrives").arg(m_output.name);
    }
    return tr("nothing is playing");
}

QString MonitorModel::status(double now)
{
    QString text = whatLacks(now);
    if (text.isEmpty()) {
        text =
            tr("%1 a second, newest %2 ms old").arg(rate(now), 0, 'f', 1).arg(age(now), 0, 'f', 0);
        if (isSilent(now))
            text += QStringLiteral("  ") + whySilent();
    }
    if (m_statistics.badMessages() > 0)
        text += QStringLiteral("  ") + tr("bad messages: %1").arg(m_statistics.badMessages());
    if (m_statistics.refusedSources() > 0)
        text += QStringLiteral("  ") + tr("of another type: %1").arg(m_statistics.refusedSources());
    return text;
}
