#include "spectrum/levels.h"

#include <algorithm>
#include <cmath>
#include <QtEndian>

namespace {

constexpr double FullScaleSquared = 32768.0 * 32768.0;

} // namespace

SampleSums sumSamples(const char *samples, qint64 count)
{
    SampleSums sums;
    for (qint64 i = 0; i < count; ++i) {
        const int value = qFromLittleEndian<qint16>(samples + 2 * i);
        sums.squares += value * value;
        sums.peak = std::max(sums.peak, value);
    }
    return sums;
}

double rmsLevel(qint64 squares, qint64 count)
{
    if (count <= 0)
        return 0.0;
    const double rms =
        std::sqrt(static_cast<double>(squares) / FullScaleSquared / static_cast<double>(count));
    return std::min(rms, 1.0);
}

double blockRms(const char *data, qint64 size, int channels, int bitsPerSample)
{
    const qint64 step = bitsPerSample / 8;
    const qint64 frameBytes = step * channels;
    const qint64 count = (size + frameBytes - 1) / frameBytes * channels;

    const qint64 contiguous = step == 2 ? size / 2 : 0;
    qint64 squares = sumSamples(data, contiguous).squares;
    for (qint64 offset = contiguous * step; offset < size; offset += step) {
        const auto low = static_cast<quint8>(data[offset]);
        const auto high = static_cast<quint8>(offset + 1 < size ? data[offset + 1] : 0);
        const qint64 value = static_cast<qint16>(high << 8 | low);
        squares += value * value;
    }
    return rmsLevel(squares, count);
}

void pushHistory(std::vector<double> &history, double &sum, double newest)
{
    history.push_back(newest);
    sum += newest - history.front();
    history.erase(history.begin());
}
