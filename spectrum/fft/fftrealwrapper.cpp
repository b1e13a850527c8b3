#include "spectrum/fft/fftrealwrapper.h"

#include "spectrum/fft/fftengine.h"

static_assert(FFTRealWrapper::Length == FFTEngine::Length, "wrapper and engine are one length");

FFTRealWrapper::FFTRealWrapper()
    : m_engine(std::make_unique<FFTEngine>())
{
}

FFTRealWrapper::~FFTRealWrapper() = default;

void FFTRealWrapper::calculateFFT(float *out, const float *in)
{
    m_engine->transform(out, in);
}
