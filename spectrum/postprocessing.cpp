#include "spectrum/postprocessing.h"

#include "spectrum/spectrum.h"

#include <algorithm>

namespace {

constexpr double AudibleAmplitude = 0.05;
constexpr double SilentPeak = 0.001;

} // namespace

double noiseFloor(const FrequencySpectrum &spectrum, double quantile, std::vector<double> &scratch)
{
    scratch.clear();
    for (const FrequencySpectrum::Element &point : spectrum) {
        if (point.amplitude > AudibleAmplitude)
            scratch.push_back(point.amplitude);
    }
    if (scratch.empty())
        return 0.0;
    const double last = static_cast<double>(scratch.size() - 1);
    const auto index = static_cast<std::ptrdiff_t>(std::clamp(last * quantile, 0.0, last));
    // Only this one entry of the sorted list is of interest.
    std::nth_element(scratch.begin(), scratch.begin() + index, scratch.end());
    return scratch[static_cast<std::size_t>(index)];
}

double trackGain(const FrequencySpectrum &spectrum, double target, double &reference)
{
    double peak = 0.0;
    for (const FrequencySpectrum::Element &point : spectrum)
        peak = std::max(peak, point.amplitude);

    if (!(peak > SilentPeak))
        reference *= 0.99;
    else if (peak > reference)
        reference = peak * 0.3 + reference * 0.7;
    else
        reference *= 0.999;

    if (!(reference > SilentPeak))
        return 1.0;
    return std::clamp(target / reference, 0.1, 10.0);
}

void scaleAndSmooth(FrequencySpectrum &spectrum, double gain, double floor, double smoothing,
                    std::vector<double> &smoothed)
{
    smoothed.resize(static_cast<std::size_t>(spectrum.count()));
    double *previous = smoothed.data();
    for (FrequencySpectrum::Element &point : spectrum) {
        const double stretched = (point.amplitude * gain - floor) / (1.0 - floor);
        const double positive = stretched > 0.0 ? stretched : 0.0;
        const double mixed = (1.0 - smoothing) * positive + smoothing * *previous;
        point.amplitude = mixed;
        *previous++ = mixed;
    }
}

void averageAcrossFrequency(FrequencySpectrum &spectrum, int width, std::vector<double> &window)
{
    const int count = spectrum.count();
    if (count == 0 || width < 1)
        return;
    const FrequencySpectrum::iterator points = spectrum.begin();

    // The last `width` amplitudes as they were before averaging; `oldest` goes round.
    window.assign(static_cast<std::size_t>(width), 0.0);
    double sum = width * points[0].amplitude;
    for (int k = 0; k < std::min(width, count); ++k) {
        window[static_cast<std::size_t>(k)] = points[k].amplitude;
        sum += points[k].amplitude;
    }

    const int half = width / 2;
    std::size_t oldest = 0;
    for (int i = half; i < count - half; ++i) {
        points[i].amplitude = sum / width;
        const double newest = points[i + half].amplitude;
        sum = sum - window[oldest] + newest;
        window[oldest] = newest;
        oldest = oldest + 1 == window.size() ? 0 : oldest + 1;
    }
}

int barIndexFor(double frequency, const Spectrum &band)
{
    const auto bars = static_cast<qint64>(band.bars.size());
    if (bars == 0)
        return 0;
    const qint64 step = (qint64(band.maxFrequency) - band.minFrequency) / bars;
    const double position = (frequency - band.minFrequency) / static_cast<double>(step);
    // Compared before the conversion, which a step of 0 would make meaningless.
    if (!(position > 0.0))
        return 0;
    return static_cast<int>(std::min(position, static_cast<double>(bars - 1)));
}

void fillBars(const FrequencySpectrum &spectrum, const std::vector<Spectrum *> &bands)
{
    for (Spectrum *band : bands)
        std::fill(band->bars.begin(), band->bars.end(), 0.0F);
    for (const FrequencySpectrum::Element &point : spectrum) {
        for (Spectrum *band : bands) {
            if (!(point.frequency > band->minFrequency && point.frequency < band->maxFrequency))
                continue;
            if (band->bars.empty()) // its owner has emptied it
                continue;
            float &bar = band->bars[static_cast<std::size_t>(barIndexFor(point.frequency, *band))];
            bar = std::max(bar, static_cast<float>(point.amplitude));
        }
    }
}
