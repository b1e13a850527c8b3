#include "spectrum/fft/fftkernels.h"

FFTKernel fftKernel(VectorUnit unit)
{
#if defined(__x86_64__) || defined(_M_X64)
    switch (unit) {
    case VectorUnit::Avx2Fma:
        return fft2048Avx2;
    case VectorUnit::Sse2:
        return fft2048Sse2;
    case VectorUnit::None:
        break;
    }
#else
    static_cast<void>(unit);
#endif
    return nullptr;
}
