#include "tools/monitor/messagestatistics.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kStepMs = 0.1;
constexpr int kSteps = 100000;
} // namespace

MessageStatistics::MessageStatistics()
    : m_histogram(kSteps + 1)
{
}

void MessageStatistics::addMessage(double time)
{
    ++m_messages;
    if (m_running) {
        const double gap = std::max(time - m_last, 0.0);
        ++m_histogram[std::min(static_cast<int>(gap / kStepMs), kSteps)];
        ++m_gaps;
        m_late += gap > kLateMs ? 1 : 0;
        m_sum += gap;
        m_longest = std::max(m_longest, gap);
    }
    m_last = time;
    m_running = true;
}

double MessageStatistics::rate() const
{
    return m_sum > 0 ? static_cast<double>(m_gaps) * 1000.0 / m_sum : 0.0;
}

double MessageStatistics::gapPercentile(double share) const
{
    if (m_gaps == 0)
        return 0;
    const qint64 wanted =
        std::max(static_cast<qint64>(std::ceil(static_cast<double>(m_gaps) * share)),
                 static_cast<qint64>(1));
    qint64 counted = 0;
    int i = 0;
    while (i < kSteps && (counted += m_histogram.at(i)) < wanted)
        ++i;
    // The upper end of the step, but never more than what was seen.
    return i == kSteps ? m_longest : std::min((i + 1) * kStepMs, m_longest);
}

QString MessageStatistics::report() const
{
    QString text = QStringLiteral("messages  %1, bad %2\n").arg(m_messages).arg(m_bad);
    if (m_refused > 0)
        text += QStringLiteral("sources   %1 of another type\n").arg(m_refused);
    if (m_gaps == 0)
        return text;
    text += QStringLiteral("rate      %1 a second\n").arg(rate(), 0, 'f', 2);
    text += QStringLiteral("gaps      50 % up to %1 ms, 90 % %2 ms, 99 % %3 ms, longest %4 ms\n")
                .arg(gapPercentile(0.5), 0, 'f', 1)
                .arg(gapPercentile(0.9), 0, 'f', 1)
                .arg(gapPercentile(0.99), 0, 'f', 1)
                .arg(m_longest, 0, 'f', 1);
    text += QStringLiteral("late      %1 gaps over %2 ms\n").arg(m_late).arg(kLateMs);
    return text;
}
