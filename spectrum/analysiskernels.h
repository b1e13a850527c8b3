// The loops around the transforms that are worth vector code, for the best vector unit.
#pragma once

#include "platform/vectorunit.h"

struct AnalysisKernels {
    /// One channel, 0 or 1, of `count` 16-bit stereo frames: out[i] = sample / 32768 × window[i],
    /// rounded to float after the division and after the product. No alignment is required.
    void (*windowStereo)(const char *frames, int channel, const float *window, float *out,
                         int count);

    /// levels[i] = 0.15 ln(sqrt(re[i]^2 + im[i]^2)) in double precision, within 5e-16 of what the
    /// standard library makes of it. The values are finite; no magnitude gives a level far below 0.
    void (*logarithmicLevels)(const float *re, const float *im, double *levels, int count);

    /// a = (amplitude × gain - floor) / (1 - floor), 0 unless above 0;
    /// smoothed[i] = (1 - smoothing) a + smoothing × smoothed[i], within 1e-15 of the plain
    /// rounding of each step for values of 0 to 1.
    void (*scaleAndSmooth)(const double *amplitudes, double gain, double floor, double smoothing,
                           double *smoothed, int count);
};

/// Those for a vector unit, which the processor must have.
const AnalysisKernels &analysisKernels(VectorUnit unit);

extern const AnalysisKernels analysisBaseline;
extern const AnalysisKernels analysisAvx2;
