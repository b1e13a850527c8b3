#include "platform/vectorunit.h"

#if TONEWELL_VECTOR_CODE && defined(_MSC_VER)
#include <immintrin.h>
#include <intrin.h>
#endif

namespace {

#if TONEWELL_VECTOR_CODE && defined(TONEWELL_WITHOUT_AVX2)
// The compiler cannot be trusted with them.
bool hasAvx2AndFma()
{
    return false;
}
#elif TONEWELL_VECTOR_CODE && defined(_MSC_VER)
bool hasAvx2AndFma()
{
    constexpr int fmaOsxsaveAvx = 1 << 12 | 1 << 27 | 1 << 28;
    constexpr int avx2 = 1 << 5;
    constexpr unsigned long long xmmAndYmm = 6;
    int basic[4];
    int extended[4];
    __cpuid(basic, 0);
    if (basic[0] < 7)
        return false;
    __cpuid(basic, 1);
    __cpuidex(extended, 7, 0);
    return (basic[2] & fmaOsxsaveAvx) == fmaOsxsaveAvx && (extended[1] & avx2) != 0
        && (_xgetbv(0) & xmmAndYmm) == xmmAndYmm;
}
#elif TONEWELL_VECTOR_CODE
bool hasAvx2AndFma()
{
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}
#endif

VectorUnit found()
{
#if TONEWELL_VECTOR_CODE
    return hasAvx2AndFma() ? VectorUnit::Avx2Fma : VectorUnit::Sse2;
#else
    return VectorUnit::None;
#endif
}

} // namespace

VectorUnit vectorUnit()
{
    static const VectorUnit unit = found();
    return unit;
}
