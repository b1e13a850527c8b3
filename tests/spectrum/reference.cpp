#include "tests/spectrum/reference.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <QtEndian>
#include <utility>

namespace reference {

namespace {

const double kPi = std::acos(-1.0);

using Complexes = std::vector<std::complex<double>>;

void halve(Complexes &values)
{
    const std::size_t n = values.size();
    if (n == 1)
        return;
    Complexes even;
    Complexes odd;
    for (std::size_t i = 0; i < n; i += 2) {
        even.push_back(values[i]);
        odd.push_back(values[i + 1]);
    }
    halve(even);
    halve(odd);
    for (std::size_t k = 0; k < n / 2; ++k) {
        const auto turned =
            odd[k] * std::polar(1.0, -2.0 * kPi * static_cast<double>(k) / static_cast<double>(n));
        values[k] = even[k] + turned;
        values[k + n / 2] = even[k] - turned;
    }
}

double sampleAt(const QByteArray &data, int index)
{
    return qFromLittleEndian<qint16>(data.constData() + 2 * index) / 32768.0;
}

} // namespace

std::vector<std::complex<double>> definition(const std::vector<double> &samples)
{
    const std::size_t n = samples.size();
    Complexes unit(n);
    for (std::size_t i = 0; i < n; ++i)
        unit[i] = std::polar(1.0, -2.0 * kPi * static_cast<double>(i) / static_cast<double>(n));
    Complexes bins(n / 2 + 1);
    for (std::size_t k = 0; k < bins.size(); ++k) {
        for (std::size_t i = 0; i < n; ++i)
            bins[k] += samples[i] * unit[k * i % n];
    }
    return bins;
}

std::vector<std::complex<double>> transform(const std::vector<double> &samples)
{
    Complexes values(samples.begin(), samples.end());
    halve(values);
    values.resize(samples.size() / 2 + 1);
    return values;
}

double windowWeight(int type, int n)
{
    const double turn = 2.0 * kPi * n / 2047.0;
    switch (type) {
    case 0:
        return 1.0;
    case 1: {
        const float x = static_cast<float>((n - 1023.5) / 409.4);
        return std::exp(-0.5 * static_cast<double>(x * x));
    }
    case 2:
        return 0.5 - 0.5 * std::cos(turn);
    case 3:
        return 0.53836 - 0.46164 * std::cos(turn);
    case 4:
        return 1.0 - std::fabs(n / 1023.5 - 1.0);
    case 5:
        return (1024.0 - std::fabs(n - 1023.5)) / 1024.0;
    case 6:
        return 0.42 - 0.5 * std::cos(turn) + 0.08 * std::cos(2.0 * turn);
    case 7:
        return 0.355768 - 0.487396 * std::cos(turn) + 0.1444232 * std::cos(2.0 * turn)
            + 0.012604 * std::cos(3.0 * turn);
    case 8:
        return std::sin(turn / 2.0);
    default:
        return 0.0;
    }
}

void analyse(const QByteArray &block, int rate, int channels, QVector<Point> &points)
{
    points.resize(2048);
    for (int channel = 0; channel < std::min(channels, 2); ++channel) {
        if (channel == 1 && channels != 2)
            break;
        std::vector<double> windowed;
        windowed.reserve(2048);
        for (int i = 0; i < 2048; ++i)
            windowed.push_back(sampleAt(block, i * channels + channel) * windowWeight(1, i));
        const Complexes bins = transform(windowed);
        for (int i = 0; i < 1024; ++i) {
            const auto bin = static_cast<std::size_t>(i);
            const double magnitude =
                i == 0 ? std::hypot(bins[0].real(), bins[1024].real()) : std::abs(bins[bin]);
            const double level = magnitude > 0.0 ? 0.15 * std::log(magnitude) : -1.0;
            Point &point = points[channel == 0 ? 1023 - i : 1024 + i];
            point.frequency = (channel == 0 ? -2.0 : 2.0) * i * rate / 2048.0;
            point.clipped = level > 1.0;
            point.amplitude = std::max(0.0, std::min(1.0, level));
        }
    }
}

Engine::Engine()
{
    for (int i = 0; i < 10; ++i)
        m_rms.append(0.0);
    for (int i = 0; i < 5; ++i)
        m_dynamic.append(0.0);
}

void Engine::formatChanged(const WAVEFORMATEX &newFormat)
{
    format = newFormat;
    const int frame = format.nChannels * 2;
    blockBytes = 2048 * frame;
    capacity = 5 * static_cast<qint64>(format.nSamplesPerSec) * frame;
    levelBytes = static_cast<int>(format.nSamplesPerSec / 20.0 * frame) / frame * frame;
}

void Engine::notifyData(const QByteArray &data)
{
    if (data.isEmpty())
        return;
    if (buffer.size() + blockBytes >= capacity)
        buffer = buffer.right(blockBytes);
    buffer.append(data.left(static_cast<int>(capacity) - buffer.size()));

    const int samples = data.size() / 2;
    double squares = 0.0;
    for (int i = 0; i < samples; ++i)
        squares += std::pow(sampleAt(data, i), 2);
    const double rms = std::sqrt(squares / samples);
    m_rms.removeFirst();
    m_rms.append(rms);
    const double mean = std::accumulate(m_rms.begin(), m_rms.end(), 0.0) / 10.0;
    m_dynamic.removeFirst();
    m_dynamic.append(rms < 1.0 ? std::max(rms - mean, 0.0) / (1.0 - rms) : 0.0);
    dynamicLevel = std::accumulate(m_dynamic.begin(), m_dynamic.end(), 0.0) / 5.0;
}

void Engine::tickLevels()
{
    if (buffer.size() < levelBytes)
        return;
    const QByteArray newest = buffer.right(levelBytes);
    const int samples = levelBytes / 2;
    double squares = 0.0;
    double peak = 0.0;
    for (int i = 0; i < samples; ++i) {
        squares += std::pow(sampleAt(newest, i), 2);
        peak = std::max(peak, sampleAt(newest, i));
    }
    const double rms = std::sqrt(squares / samples);
    rmsLevel = smoothing * rmsLevel + (1.0 - smoothing) * rms;
    peakLevel = smoothing * peakLevel + (1.0 - smoothing) * peak;
}

QByteArray Engine::block() const
{
    return buffer.right(blockBytes);
}

void Engine::spectrumChanged(const QVector<Point> &received)
{
    spectrum = received;
    const int count = spectrum.size();

    QList<double> audible;
    double peak = 0.0;
    for (const Point &point : received) {
        if (point.amplitude > 0.05)
            audible.append(point.amplitude);
        peak = std::max(peak, point.amplitude);
    }
    std::sort(audible.begin(), audible.end());
    const double floor =
        audible.isEmpty() ? 0.0 : audible[static_cast<int>((audible.size() - 1) * quantile)];

    if (peak <= 0.001)
        gainReference = gainReference * 0.99;
    else if (peak > gainReference)
        gainReference = 0.3 * peak + 0.7 * gainReference;
    else
        gainReference = gainReference * 0.999;
    double gain = 1.0;
    if (gainReference > 0.001)
        gain = std::min(10.0, std::max(0.1, 0.8 / gainReference));

    m_smoothed.resize(count);
    for (int i = 0; i < count; ++i) {
        double a = (gain * spectrum[i].amplitude - floor) / (1.0 - floor);
        if (!(a > 0.0))
            a = 0.0;
        m_smoothed[i] = a * (1.0 - smoothing) + m_smoothed[i] * smoothing;
        spectrum[i].amplitude = m_smoothed[i];
    }

    // The window as a list, the sum taken anew for every point.
    if (count > 0 && historyLength > 0) {
        const double surplus = historyLength * m_smoothed[0];
        QList<double> window;
        for (int k = 0; k < historyLength; ++k)
            window.append(k < count ? m_smoothed[k] : 0.0);
        const int half = historyLength / 2;
        for (int i = half; i < count - half; ++i) {
            const double sum = std::accumulate(window.begin(), window.end(), 0.0);
            spectrum[i].amplitude = (surplus + sum) / historyLength;
            window.append(m_smoothed[i + half]);
            window.removeFirst();
        }
    }

    for (Band &band : bands) {
        const int bars = band.bars.size();
        band.bars.fill(0.0F);
        const int step = (band.maxFrequency - band.minFrequency) / bars;
        for (const Point &point : std::as_const(spectrum)) {
            if (point.frequency <= band.minFrequency || point.frequency >= band.maxFrequency)
                continue;
            const int bar =
                std::min(bars - 1, static_cast<int>((point.frequency - band.minFrequency) / step));
            band.bars[bar] = std::max(band.bars[bar], static_cast<float>(point.amplitude));
        }
    }
}

} // namespace reference
