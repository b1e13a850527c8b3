// Compiled for AVX2 and FMA; called only on a processor that has both.
#include "spectrum/analysiskernels.h"
#include "spectrum/analysisloops.h"

void windowStereoAvx2(const char *frames, int channel, const float *window, float *out, int count)
{
    windowStereo(frames, channel, window, out, count);
}

void logarithmicLevelsAvx2(const float *re, const float *im, double *levels, int count)
{
    logarithmicLevels(re, im, levels, count);
}
