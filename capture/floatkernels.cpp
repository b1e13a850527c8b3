#include "capture/floatkernels.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#if TONEWELL_VECTOR_CODE
#include <xmmintrin.h>
#endif

void floatsToSamplesPlainly(const char *floats, char *samples, int count)
{
    for (int i = 0; i < count; ++i) {
        float value;
        std::memcpy(&value, floats + sizeof value * static_cast<std::size_t>(i), sizeof value);
        if (std::isnan(value))
            value = 0.0F;
        const float clamped = value < -1.0F ? -1.0F : value > 1.0F ? 1.0F : value;
        // The product is exact in double precision.
        const auto sample = static_cast<std::int16_t>(static_cast<double>(clamped) * 32767.0);
        std::memcpy(samples + sizeof sample * static_cast<std::size_t>(i), &sample, sizeof sample);
    }
}

FloatKernel floatKernel(VectorUnit unit)
{
    if constexpr (TONEWELL_VECTOR_CODE) {
        switch (unit) {
        case VectorUnit::Avx2Fma:
            return floatsToSamplesAvx2;
        case VectorUnit::Sse2:
            return floatsToSamplesSse2;
        case VectorUnit::None:
            break;
        }
    }
    return floatsToSamplesPlainly;
}

#if TONEWELL_VECTOR_CODE

RoundingTowardZero::RoundingTowardZero()
    : m_before(_mm_getcsr())
{
    _mm_setcsr((m_before & ~static_cast<unsigned>(_MM_ROUND_MASK)) | _MM_ROUND_TOWARD_ZERO);
}

RoundingTowardZero::~RoundingTowardZero()
{
    _mm_setcsr(m_before); // with the exceptions as they were noted before
}

#else

RoundingTowardZero::RoundingTowardZero()
    : m_before(0)
{
    static_cast<void>(m_before);
}

RoundingTowardZero::~RoundingTowardZero() = default;

#endif
