#include "spectrum/spectrum.h"

#include "spectrum/specengine.h"

#include <algorithm>

Spectrum::Spectrum(int minimum, int maximum, int barCount)
    : minFrequency(minimum)
    , maxFrequency(maximum)
    , bars(static_cast<std::size_t>(std::max(barCount, 0)))
{
    if (bars.empty())
        return;
    SpecEngine::instance()->addSpectrum(this);
    m_registered = true;
}

Spectrum::~Spectrum()
{
    if (m_registered)
        SpecEngine::instance()->removeSpectrum(this);
}

Spectrum::Spectrum(const Spectrum &other)
    : minFrequency(other.minFrequency)
    , maxFrequency(other.maxFrequency)
    , bars(other.bars)
{
}

Spectrum &Spectrum::operator=(const Spectrum &other)
{
    minFrequency = other.minFrequency;
    maxFrequency = other.maxFrequency;
    bars = other.bars;
    return *this;
}
