#include "spectrum/postprocessing.h"

#include "spectrum/spectrum.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>

namespace {

constexpr double kAudibleAmplitude = 0.05;
constexpr double kSilentPeak = 0.001;

/// Amplitudes fall into these by size, evenly up to 1.0; what is larger falls into the last one.
constexpr int kClasses = 256;

std::uint8_t classOf(double amplitude)
{
    return static_cast<std::uint8_t>(static_cast<int>(std::min(amplitude, 1.0) * (kClasses - 1)));
}

/// The bars of a band over frequency.
class BarScale {
public:
    explicit BarScale(const Spectrum &band)
        : m_minimum(band.minFrequency)
        , m_last(static_cast<double>(band.bars.size()) - 1.0)
    {
        const auto bars = static_cast<qint64>(band.bars.size());
        if (bars > 0) {
            // Whole hertz: the rest is dropped.
            const qint64 step = (static_cast<qint64>(band.maxFrequency) - band.minFrequency) / bars;
            m_step = static_cast<double>(step);
        }
    }

    int indexOf(double frequency) const
    {
        const double position = (frequency - m_minimum) / m_step;
        // Compared before the conversion, which a step of 0 would make meaningless.
        return position > 0.0 && m_last > 0.0 ? static_cast<int>(std::min(position, m_last)) : 0;
    }

private:
    double m_minimum;
    double m_last;
    double m_step = 0.0;
};

} // namespace

void readAmplitudes(const FrequencySpectrum &spectrum, std::vector<double> &amplitudes)
{
    amplitudes.resize(static_cast<std::size_t>(spectrum.count()));
    double *amplitude = amplitudes.data();
    for (const FrequencySpectrum::Element &point : spectrum)
        *amplitude++ = point.amplitude;
}

double noiseFloor(const std::vector<double> &amplitudes, double quantile, NoiseScratch &scratch)
{
    // The entry is found without sorting: first the class that it is in, then it among that class.
    scratch.audible.resize(amplitudes.size());
    scratch.classes.resize(amplitudes.size());
    double *const audible = scratch.audible.data();
    std::uint8_t *const classes = scratch.classes.data();

    int count = 0;
    for (const double amplitude : amplitudes) {
        audible[count] = amplitude; // the next one takes its place if it is not audible
        count += static_cast<int>(amplitude > kAudibleAmplitude);
    }
    if (count == 0)
        return 0.0;
    // Written so that not-a-number counts as 0.
    const double share = quantile > 0.0 ? std::min(quantile, 1.0) : 0.0;
    int index = static_cast<int>((count - 1) * share);

    std::array<int, kClasses> sizes {};
    for (int i = 0; i < count; ++i) {
        classes[i] = classOf(audible[i]);
        ++sizes[classes[i]];
    }
    std::uint8_t wanted = 0;
    for (; index >= sizes[wanted]; ++wanted)
        index -= sizes[wanted];

    int members = 0;
    for (int i = 0; i < count; ++i) {
        if (classes[i] == wanted)
            audible[members++] = audible[i];
    }
    std::nth_element(audible, audible + index, audible + members);
    return audible[index];
}

double trackGain(const std::vector<double> &amplitudes, double target, double &reference)
{
    // Tracks several largest values at a time: with a single one each comparison would wait.
    std::array<double, 8> largest {};
    std::size_t i = 0;
    for (; i + largest.size() <= amplitudes.size(); i += largest.size()) {
        for (std::size_t j = 0; j < largest.size(); ++j)
            largest[j] = std::max(largest[j], amplitudes[i + j]);
    }
    double peak = *std::max_element(largest.begin(), largest.end());
    for (; i < amplitudes.size(); ++i)
        peak = std::max(peak, amplitudes[i]);

    if (!(peak > kSilentPeak))
        reference *= 0.99;
    else if (peak > reference)
        reference = peak * 0.3 + reference * 0.7;
    else
        reference *= 0.999;

    if (!(reference > kSilentPeak))
        return 1.0;
    return std::clamp(target / reference, 0.1, 10.0);
}

void scaleAndSmooth(const std::vector<double> &amplitudes, double gain, double floor,
                    double smoothing, std::vector<double> &smoothed)
{
    smoothed.resize(amplitudes.size());
    for (std::size_t i = 0; i < amplitudes.size(); ++i) {
        const double stretched = (amplitudes[i] * gain - floor) / (1.0 - floor);
        const double positive = stretched > 0.0 ? stretched : 0.0;
        smoothed[i] = (1.0 - smoothing) * positive + smoothing * smoothed[i];
    }
}

void averageAcrossFrequency(const FrequencySpectrum &received,
                            const std::vector<double> &amplitudes, int width,
                            FrequencySpectrum &result, std::vector<double> &window)
{
    const int count = received.count();
    if (result.count() != count)
        result = FrequencySpectrum(count);
    const double *const from = amplitudes.data();
    const FrequencySpectrum::const_iterator labels = received.begin();
    const FrequencySpectrum::iterator points = result.begin();
    const auto put = [&](int i, double amplitude) {
        points[i].frequency = labels[i].frequency;
        points[i].amplitude = amplitude;
        points[i].clipped = labels[i].clipped;
    };

    const int half = width / 2;
    const bool averaged = width >= 1 && half < count - half;
    for (int i = 0; i < (averaged ? half : count); ++i)
        put(i, from[i]);
    if (!averaged)
        return;
    for (int i = count - half; i < count; ++i)
        put(i, from[i]);

    // The amplitudes that make up `sum`; `oldest` goes round in it. The sum starts `width` × the
    // first amplitude too high on purpose: see the header.
    window.assign(from, from + width); // averaged: there are as many
    double sum = std::accumulate(window.begin(), window.end(), width * from[0]);
    std::size_t oldest = 0;
    for (int i = half; i < count - half; ++i) {
        const double average = sum / width;
        put(i, average);
        // With a width of 1 the point that comes in is the one just written.
        const double newest = half == 0 ? average : from[i + half];
        sum = sum - window[oldest] + newest;
        window[oldest] = newest;
        oldest = oldest + 1 == window.size() ? 0 : oldest + 1;
    }
}

int barIndexFor(double frequency, const Spectrum &band)
{
    return BarScale(band).indexOf(frequency);
}

void fillBars(const FrequencySpectrum &spectrum, const std::vector<Spectrum *> &bands)
{
    for (Spectrum *band : bands) {
        std::fill(band->bars.begin(), band->bars.end(), 0.0F);
        if (band->bars.empty()) // the band's owner has emptied it
            continue;
        const double minimum = band->minFrequency;
        const double maximum = band->maxFrequency;
        const BarScale scale(*band);
        for (const FrequencySpectrum::Element &point : spectrum) {
            if (!(point.frequency > minimum && point.frequency < maximum))
                continue;
            float &bar = band->bars[static_cast<std::size_t>(scale.indexOf(point.frequency))];
            bar = std::max(bar, static_cast<float>(point.amplitude));
        }
    }
}
