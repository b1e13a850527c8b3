#include "capture/floatkernels.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(_M_X64)
#include <xmmintrin.h>
#define VECTOR_UNIT_X86_64
#endif

void floatsToSamplesPlainly(const char *floats, char *samples, int count)
{
    for (int i = 0; i < count; ++i) {
        float value;
        std::memcpy(&value, floats + sizeof value * std::size_t(i), sizeof value);
        if (std::isnan(value))
            value = 0.0F;
        const float clamped = value < -1.0F ? -1.0F : value > 1.0F ? 1.0F : value;
        // The product is exact in double precision.
        const auto sample = std::int16_t(double(clamped) * 32767.0);
        std::memcpy(samples + sizeof sample * std::size_t(i), &sample, sizeof sample);
    }
}

#ifdef VECTOR_UNIT_X86_64

FloatKernel floatKernel(VectorUnit unit)
{
    switch (unit) {
    case VectorUnit::Avx2Fma:
        return floatsToSamplesAvx2;
    case VectorUnit::Sse2:
        return floatsToSamplesSse2;
    case VectorUnit::None:
        break;
    }
    return floatsToSamplesPlainly;
}

RoundingTowardZero::RoundingTowardZero()
    : m_before(_mm_getcsr())
{
    _mm_setcsr((m_before & ~unsigned(_MM_ROUND_MASK)) | _MM_ROUND_TOWARD_ZERO);
}

RoundingTowardZero::~RoundingTowardZero()
{
    // The exceptions that were noted meanwhile are no one's business.
    _mm_setcsr(m_before);
}

#else

FloatKernel floatKernel(VectorUnit)
{
    return floatsToSamplesPlainly;
}

RoundingTowardZero::RoundingTowardZero()
    : m_before(0)
{
    static_cast<void>(m_before);
}

RoundingTowardZero::~RoundingTowardZero() = default;

#endif
