// SSE2 is part of x86-64: this runs on every processor of that kind.
#include "capture/floatkernels.h"

#include <emmintrin.h>

namespace {

__m128i four(const char *floats)
{
    __m128 values = _mm_loadu_ps(reinterpret_cast<const float *>(floats));
    values = _mm_and_ps(values, _mm_cmpord_ps(values, values)); // NaN becomes 0
    values = _mm_max_ps(_mm_min_ps(values, _mm_set1_ps(1.0F)), _mm_set1_ps(-1.0F));
    return _mm_cvttps_epi32(_mm_mul_ps(values, _mm_set1_ps(32767.0F)));
}

} // namespace

void floatsToSamplesSse2(const char *floats, char *samples, int count)
{
    for (; count >= 8; count -= 8, floats += 32, samples += 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(samples),
                         _mm_packs_epi32(four(floats), four(floats + 16)));
    }
    floatsToSamplesPlainly(floats, samples, count);
}
