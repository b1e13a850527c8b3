#include "spectrum/fft/fftrealwrapper.h"

#include "spectrum/fft/fftengine.h"

static_assert(FFTRealWrapper::kLength == FFTEngine::kLength, "wrapper and engine are one length");

FFTRealWrapper::FFTRealWrapper()
    : m_engine(std::make_unique<FFTEngine>())
{
}

FFTRealWrapper::~FFTRealWrapper() = default;

void FFTRealWrapper::calculateFFT(float *out, const float *in)
{
    m_engine->transform(out, in);
}
