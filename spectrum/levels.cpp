#include "spectrum/levels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <QtEndian>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

namespace {

constexpr double kFullScaleSquared = 32768.0 * 32768.0;

} // namespace

#if defined(__SSE2__) || defined(_M_X64)

namespace {

/// Adds the squares of a multiple of eight samples, and takes their peak, to `sums`.
void sumOctets(const char *samples, qint64 octets, SampleSums &sums)
{
    const __m128i zero = _mm_setzero_si128();
    __m128i peaks = zero;
    __m128i squares = zero;
    for (qint64 i = 0; i < octets; ++i) {
        const __m128i values = _mm_loadu_si128(reinterpret_cast<const __m128i *>(samples) + i);
        peaks = _mm_max_epi16(peaks, values);
        // The sums of two squares are at most 2^31: unsigned, each on its way to 64 bits.
        const __m128i pairs = _mm_madd_epi16(values, values);
        squares = _mm_add_epi64(squares, _mm_unpacklo_epi32(pairs, zero));
        squares = _mm_add_epi64(squares, _mm_unpackhi_epi32(pairs, zero));
    }
    std::array<qint64, 2> squareOf;
    std::array<qint16, 8> peakOf;
    std::memcpy(squareOf.data(), &squares, sizeof squares);
    std::memcpy(peakOf.data(), &peaks, sizeof peaks);
    sums.squares += squareOf[0] + squareOf[1];
    sums.peak = std::max<int>(sums.peak, *std::max_element(peakOf.begin(), peakOf.end()));
}

} // namespace

SampleSums sumSamples(const char *samples, qint64 count)
{
    SampleSums sums;
    const qint64 octets = count / 8;
    if (octets > 0)
        sumOctets(samples, octets, sums);
    const SampleSums rest = sumSamplesPlainly(samples + 16 * octets, count - 8 * octets);
    return {sums.squares + rest.squares, std::max(sums.peak, rest.peak)};
}

#else

SampleSums sumSamples(const char *samples, qint64 count)
{
    return sumSamplesPlainly(samples, count);
}

#endif

SampleSums sumSamplesPlainly(const char *samples, qint64 count)
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
        std::sqrt(static_cast<double>(squares) / kFullScaleSquared / static_cast<double>(count));
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
