// The loops around the transforms that profit from vector code, one set for each vector unit.
#pragma once

#include "platform/vectorunit.h"

/// One channel, 0 or 1, of `count` 16-bit stereo frames: out[i] = sample / 32768 × window[i],
/// rounded to float after the division and after the product. No alignment is required.
using WindowKernel = void (*)(const char *frames, int channel, const float *window, float *out,
                              int count);

/// levels[i] = 0.15 ln(sqrt(re[i]^2 + im[i]^2)) in double precision, within 5e-16 of what the
/// standard library makes of it. The values are finite; no magnitude gives a level far below 0.
using LevelKernel = void (*)(const float *re, const float *im, double *levels, int count);

/// The loops for a vector unit, which the processor must have.
WindowKernel windowKernel(VectorUnit unit);
LevelKernel levelKernel(VectorUnit unit);

void windowStereoPlainly(const char *frames, int channel, const float *window, float *out,
                         int count);
void windowStereoAvx2(const char *frames, int channel, const float *window, float *out, int count);
void logarithmicLevelsPlainly(const float *re, const float *im, double *levels, int count);
void logarithmicLevelsAvx2(const float *re, const float *im, double *levels, int count);
