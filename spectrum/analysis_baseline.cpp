// Compiled for every processor.
#include "spectrum/analysiskernels.h"
#include "spectrum/analysisloops.h"

void windowStereoPlainly(const char *frames, int channel, const float *window, float *out,
                         int count)
{
    windowStereo(frames, channel, window, out, count);
}

void logarithmicLevelsPlainly(const float *re, const float *im, double *levels, int count)
{
    logarithmicLevels(re, im, levels, count);
}
