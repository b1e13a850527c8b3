// Compiled for AVX2 and FMA; called only on a processor that has both.
#include "spectrum/analysiskernels.h"
#include "spectrum/analysisloops.h"

const AnalysisKernels analysisAvx2 {windowStereo, logarithmicLevels, scaleAndSmooth};
