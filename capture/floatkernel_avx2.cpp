// Compiled for AVX2; called only on a processor that has it.
#include "capture/floatkernels.h"

#include <immintrin.h>

namespace {

__m256i eight(const char *floats)
{
    __m256 values = _mm256_loadu_ps(reinterpret_cast<const float *>(floats));
    values = _mm256_and_ps(values, _mm256_cmp_ps(values, values, _CMP_ORD_Q)); // NaN becomes 0
    values = _mm256_max_ps(_mm256_min_ps(values, _mm256_set1_ps(1.0F)), _mm256_set1_ps(-1.0F));
    return _mm256_cvttps_epi32(_mm256_mul_ps(values, _mm256_set1_ps(32767.0F)));
}

} // namespace

void floatsToSamplesAvx2(const char *floats, char *samples, int count)
{
    for (; count >= 16; count -= 16, floats += 64, samples += 32) {
        // Packing works on each half for itself, which leaves the middle quarters swapped.
        const __m256i packed = _mm256_packs_epi32(eight(floats), eight(floats + 32));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(samples),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
    floatsToSamplesSse2(floats, samples, count);
}
