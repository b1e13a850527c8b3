// The loops around the transforms, plain and without branches so that the compiler makes vector
// code of them. Included by the files that are compiled for one kind of processor
// (analysis_baseline.cpp, analysis_avx2.cpp) and by no other. Everything is static, so that each
// of these files has its own copy.
#pragma once

#include <cstdint>
#include <cstring>

/// sample / 32768, rounded to float, times the window. Reads a frame as one little-endian word;
/// `shift` brings the channel to its top: 16 for the first, 0 for the second.
template <int shift>
static void windowFrames(const char *frames, const float *window, float *out, int count)
{
    for (int i = 0; i < count; ++i) {
        std::uint32_t frame;
        std::memcpy(&frame, frames + 4 * i, sizeof frame);
        const auto sample = static_cast<std::int32_t>(frame << shift) >> 16;
        out[i] = static_cast<float>(sample) * 3.0517578125e-5F * window[i];
    }
}

static void windowStereo(const char *frames, int channel, const float *window, float *out,
                         int count)
{
    if (channel == 0)
        windowFrames<16>(frames, window, out, count);
    else
        windowFrames<0>(frames, window, out, count);
}

/// ln(x) within a unit in the last place, for positive normal numbers; far below 0 for 0.
///
/// x = 2^k m with m between sqrt(1/2) and sqrt(2). With f = m - 1 and s = f / (2 + f),
/// ln(m) = 2 atanh(s) = 2 s + s r, r the rest of the series; 2 s = f - s f is taken as
/// f - f^2/2 + s f^2/2, of which the first two terms are nearly exact.
static inline double naturalLogarithm(double x)
{
    constexpr std::uint64_t one = 0x3FF0000000000000;
    constexpr std::uint64_t rootHalf = 0x3FE6A09E667F3BCD;
    constexpr std::uint64_t fraction = 0x000FFFFFFFFFFFFF;
    constexpr std::uint64_t twoTo52 = 0x4330000000000000;
    constexpr double ln2High = 6.93147180369123816490e-01;
    constexpr double ln2Low = 1.90821492927058770002e-10;

    std::uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    bits += one - rootHalf;
    // The exponent in the lowest bits of 2^52 makes it a number: no vector unit converts 64 bits.
    const std::uint64_t exponent = bits >> 52 | twoTo52;
    double k;
    std::memcpy(&k, &exponent, sizeof k);
    k -= 4503599627370496.0 + 1023.0;
    bits = (bits & fraction) + rootHalf;
    double m;
    std::memcpy(&m, &bits, sizeof m);

    const double f = m - 1.0;
    const double s = f / (2.0 + f);
    const double z = s * s;
    double r = 2.0 / 19.0;
    for (int divisor = 17; divisor >= 3; divisor -= 2)
        r = r * z + 2.0 / divisor;
    r *= z;
    const double halfSquare = 0.5 * f * f;
    return k * ln2High - ((halfSquare - (s * (halfSquare + r) + k * ln2Low)) - f);
}

/// 0.15 ln(sqrt(re^2 + im^2)), as half of the logarithm of the square.
static void logarithmicLevels(const float *re, const float *im, double *levels, int count)
{
    for (int i = 0; i < count; ++i) {
        const double x = static_cast<double>(re[i]);
        const double y = static_cast<double>(im[i]);
        levels[i] = 0.075 * naturalLogarithm(x * x + y * y);
    }
}
