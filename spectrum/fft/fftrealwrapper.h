#pragma once

#include <memory>

class FFTEngine;

/// Forward discrete Fourier transform of 2048 real samples, single precision, not normalised,
/// without a window of its own.
///
/// Construction computes the tables; a transform allocates nothing and computes no table. One
/// object serves one thread at a time, since it owns the scratch buffer of the passes.
class FFTRealWrapper {
public:
    static constexpr int kLength = 2048;

    FFTRealWrapper();
    ~FFTRealWrapper();

    FFTRealWrapper(const FFTRealWrapper &) = delete;
    FFTRealWrapper &operator=(const FFTRealWrapper &) = delete;

    /// Reads 2048 floats from `in`, which stays unchanged, and writes 2048 floats to `out`, which
    /// must not overlap it. No alignment is required. With X[k] = sum x[n] exp(-2 pi i k n / 2048):
    ///   out[k],        k = 0 ... 1024: real part of X[k];
    ///   out[1024 + k], k = 1 ... 1023: imaginary part of X[k].
    /// The imaginary parts of X[0] and X[1024] are zero and have no slot.
    void calculateFFT(float *out, const float *in);

private:
    std::unique_ptr<FFTEngine> m_engine;
};
