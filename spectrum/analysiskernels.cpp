#include "spectrum/analysiskernels.h"

WindowKernel windowKernel(VectorUnit unit)
{
    if constexpr (TONEWELL_VECTOR_CODE) {
        if (unit == VectorUnit::Avx2Fma)
            return windowStereoAvx2;
    }
    return windowStereoPlainly;
}

LevelKernel levelKernel(VectorUnit unit)
{
    if constexpr (TONEWELL_VECTOR_CODE) {
        if (unit == VectorUnit::Avx2Fma)
            return logarithmicLevelsAvx2;
    }
    return logarithmicLevelsPlainly;
}
