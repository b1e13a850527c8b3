#include "spectrum/fft/fftkernels.h"

FFTKernel fftKernel(VectorUnit unit)
{
    if constexpr (TONEWELL_VECTOR_CODE) {
        switch (unit) {
        case VectorUnit::Avx2Fma:
            return fft2048Avx2;
        case VectorUnit::Sse2:
            return fft2048Sse2;
        case VectorUnit::None:
            break;
        }
    }
    return nullptr;
}
