#include "spectrum/fft/fftengine.h"

#include <cmath>
#include <utility>

namespace {

constexpr int kBits = 11;
constexpr int kQuarter = FFTEngine::kLength / 4;
constexpr float kHalfRootTwo = 0.70710677F;

static_assert(FFTEngine::kLength == 1 << kBits, "the passes are laid out for this length");

std::int32_t reversed(std::int32_t value)
{
    std::int32_t result = 0;
    for (int bit = 0; bit < kBits; ++bit)
        result |= ((value >> bit) & 1) << (kBits - 1 - bit);
    return result;
}

} // namespace

FFTEngine::FFTEngine(VectorUnit unit)
    : m_scratch(kLength)
    , m_bitReversal(kQuarter)
    , m_cosine(kQuarter)
    , m_kernel(fftKernel(unit))
    , m_kernelTables(m_kernel ? std::make_unique<const FFTTables>() : nullptr)
{
    const double pi = std::acos(-1.0);
    for (int c = 0; c < m_bitReversal.count; ++c)
        m_bitReversal.values[c] = reversed(4 * c);
    for (int i = 0; i < m_cosine.count; ++i)
        m_cosine.values[i] = static_cast<float>(std::cos(i * pi / 1024.0));
}

void FFTEngine::transform(float *out, const float *in)
{
    if (m_kernel) {
        m_kernel(out, in, m_scratch.values.get(), *m_kernelTables);
        return;
    }
    // The passes alternate between the two areas so that the last one lands in the output.
    float *from = m_scratch.values.get();
    float *to = out;
    firstPass(from, in);
    pass8(to, from);
    for (int size = 16; size <= kLength; size *= 2) {
        std::swap(from, to);
        pass(to, from, size);
    }
}

/// Two radix-2 stages in one: groups of four from the samples in bit-reversed order.
void FFTEngine::firstPass(float *to, const float *in) const
{
    for (int group = 0; group < m_bitReversal.count; ++group, to += 4) {
        const float *x = in + m_bitReversal.values[group];
        const float evenSum = x[0] + x[1024];
        const float evenDifference = x[0] - x[1024];
        const float oddSum = x[512] + x[1536];
        to[0] = evenSum + oddSum;
        to[1] = evenDifference;
        to[2] = evenSum - oddSum;
        to[3] = x[1536] - x[512];
    }
}

/// Groups of eight: the only twiddle that is neither 1 nor -i is exp(-i pi / 4).
void FFTEngine::pass8(float *to, const float *from) const
{
    for (int group = 0; group < kLength; group += 8, from += 8, to += 8) {
        to[0] = from[0] + from[4];
        to[4] = from[0] - from[4];
        to[2] = from[2];
        to[6] = -from[6];
        const float re = (from[5] + from[7]) * kHalfRootTwo;
        const float im = (from[7] - from[5]) * kHalfRootTwo;
        to[1] = from[1] + re;
        to[3] = from[1] - re;
        to[5] = im + from[3];
        to[7] = im - from[3];
    }
}

/// Joins the transforms E of the even and O of the odd samples of each group:
/// X[k] = E[k] + w O[k] and, mirrored by the symmetry of real data, X[h - k] = conj(E[k] - w O[k])
/// with w = exp(-2 pi i k / size) and h = size / 2.
void FFTEngine::pass(float *to, const float *from, int size) const
{
    const int h = size / 2;
    const int q = size / 4;
    const int step = kLength / size;
    const float *cosine = m_cosine.values.get();
    for (int group = 0; group < kLength; group += size, from += size, to += size) {
        const float *evenRe = from;
        const float *evenIm = from + q;
        const float *oddRe = from + h;
        const float *oddIm = from + h + q;
        to[0] = evenRe[0] + oddRe[0];
        to[h] = evenRe[0] - oddRe[0];
        to[q] = evenRe[q];
        to[h + q] = -oddRe[q];
        for (int k = 1; k < q; ++k) {
            const float c = cosine[k * step];
            const float s = cosine[kQuarter - k * step];
            const float re = c * oddRe[k] + s * oddIm[k];
            const float im = c * oddIm[k] - s * oddRe[k];
            to[k] = evenRe[k] + re;
            to[h - k] = evenRe[k] - re;
            to[h + k] = im + evenIm[k];
            to[size - k] = im - evenIm[k];
        }
    }
}
