#include "tools/monitor/heightscale.h"

#include "tools/monitor/spectrumreading.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

constexpr int kTops[] = {50, 75, 100, 150, 200, 250, 300, 400, 600, 800};
constexpr double kRoom = 0.93; ///< of a lower top that bars may fill

/// The lowest top under which the height stays. Automatic gain overshoots full scale for a moment
/// when something sets in: that is no reason to draw all else small.
int topFor(double height)
{
    const int *const found = std::lower_bound(std::begin(kTops), std::end(kTops), height);
    return found == std::end(kTops) ? kFullScale : std::min(*found, kFullScale);
}

} // namespace

void HeightScale::addHighest(int highest, double now)
{
    while (!m_peaks.empty() && m_peaks.front().time < now - kCalmMs)
        m_peaks.pop_front();
    if (highest <= 0)
        return;
    while (!m_peaks.empty() && m_peaks.back().height <= highest)
        m_peaks.pop_back();
    m_peaks.push_back({now, highest});
    if (m_mayFall < 0)
        m_mayFall = now + kFirstMs;
    fit(now);
    if (m_mode == Fitting)
        glideTo(m_fitted, now);
}

void HeightScale::fit(double now)
{
    const int highest = m_peaks.front().height;
    const int needed = topFor(highest);
    if (needed > m_fitted) {
        m_fitted = needed;
        m_mayFall = now + kCalmMs;
    } else if (now >= m_mayFall) {
        m_fitted = std::min(m_fitted, topFor(highest / kRoom));
    }
}

double HeightScale::top(double now) const
{
    const double share = m_glideMs > 0 ? (now - m_glideStart) / m_glideMs : 1;
    if (share >= 1)
        return m_target;
    const double eased = share <= 0 ? 0 : share * share * (3 - 2 * share);
    return m_glidesFrom * std::pow(m_target / m_glidesFrom, eased);
}

void HeightScale::glideTo(int target, double now)
{
    if (target == m_target)
        return;
    m_glidesFrom = top(now);
    m_glideStart = now;
    m_glideMs = target > m_glidesFrom ? kRiseMs : kFallMs;
    m_target = target;
}

void HeightScale::setMode(Mode mode, double now)
{
    m_mode = mode;
    if (mode != ByHand)
        glideTo(mode == AsSent ? kFullScale : m_fitted, now);
}

void HeightScale::toggle(double now)
{
    setMode(m_mode == Fitting ? AsSent : Fitting, now);
}

void HeightScale::step(int by, double now)
{
    const auto here = std::lower_bound(std::begin(kTops), std::end(kTops), m_target);
    const auto index =
        std::clamp<std::ptrdiff_t>(here - std::begin(kTops) + by, 0, std::size(kTops) - 1);
    m_mode = ByHand;
    glideTo(kTops[index], now);
}

void HeightScale::higher(double now)
{
    step(-1, now);
}

void HeightScale::lower(double now)
{
    step(1, now);
}

bool HeightScale::hasLabelOf(const HeightScale &other) const
{
    return m_mode == other.m_mode && m_target == other.m_target;
}

QString HeightScale::label() const
{
    switch (m_mode) {
    case Fitting:
        return tr("fits music: %1", "height").arg(m_target);
    case AsSent:
        return tr("as sent: %1", "height").arg(m_target);
    case ByHand:
        break;
    }
    return tr("by hand: %1", "height").arg(m_target);
}

QString HeightScale::shortLabel() const
{
    switch (m_mode) {
    case Fitting:
        return tr("fit %1", "height").arg(m_target);
    case AsSent:
        return tr("sent %1", "height").arg(m_target);
    case ByHand:
        break;
    }
    return tr("set %1", "height").arg(m_target);
}
