// Compiled for every processor.
#include "spectrum/analysiskernels.h"
#include "spectrum/analysisloops.h"

const AnalysisKernels analysisBaseline {windowStereo, logarithmicLevels, scaleAndSmooth};
