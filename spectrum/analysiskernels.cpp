#include "spectrum/analysiskernels.h"

const AnalysisKernels &analysisKernels(VectorUnit unit)
{
#if defined(__x86_64__) || defined(_M_X64)
    if (unit == VectorUnit::Avx2Fma)
        return analysisAvx2;
#else
    static_cast<void>(unit);
#endif
    return analysisBaseline;
}
