// The vector transforms. They have the contract of FFTRealWrapper::calculateFFT and agree with
// FFTEngine's portable passes within the rounding of single precision.
#pragma once

#include "platform/vectorunit.h"

struct FFTTables;

/// `scratch` is 2048 floats; nothing overlaps, no alignment is required.
using FFTKernel = void (*)(float *out, const float *in, float *scratch, const FFTTables &tables);

/// The transform for a vector unit, which the processor must have; null if there is none.
FFTKernel fftKernel(VectorUnit unit);

void fft2048Sse2(float *out, const float *in, float *scratch, const FFTTables &tables);
void fft2048Avx2(float *out, const float *in, float *scratch, const FFTTables &tables);
