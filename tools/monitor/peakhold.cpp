#include "tools/monitor/peakhold.h"

#include <cmath>

double PeakHold::update(double level, double now)
{
    if (now > m_fallsFrom) {
        m_value *= std::pow(10.0, (m_fallsFrom - now) / 1000.0 * kFallDecibelsPerSecond / 20.0);
        m_fallsFrom = now;
    }
    if (level >= m_value) {
        m_value = level;
        m_fallsFrom = now + kHoldMs;
    }
    return m_value;
}
