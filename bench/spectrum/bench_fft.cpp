// One real transform of 2048 points: ours beside FFTW's (single precision, FFTW_MEASURE) and
// KissFFT's, on the same samples. The counter "relative_rms_error" is against the definition in
// double precision, on white noise.
#include "spectrum/fft/fftengine.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <complex>
#include <fftw3.h>
#include <kiss_fftr.h>
#include <random>
#include <vector>

namespace {

constexpr int kLength = FFTEngine::kLength;
using Bins = std::vector<std::complex<double>>; // 0 ... N/2

struct FftwFree {
    void operator()(void *memory) const { fftwf_free(memory); }
};
using FftwFloats = std::unique_ptr<float[], FftwFree>;

FftwFloats noise()
{
    FftwFloats samples(fftwf_alloc_real(kLength));
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    std::generate_n(samples.get(), kLength, [&] { return uniform(random); });
    return samples;
}

Bins definition(const float *samples)
{
    std::vector<std::complex<double>> unit;
    unit.reserve(kLength);
    for (int i = 0; i < kLength; ++i)
        unit.push_back(std::polar(1.0, -2.0 * std::acos(-1.0) * i / kLength));
    Bins bins(kLength / 2 + 1);
    for (int k = 0; k <= kLength / 2; ++k) {
        for (int n = 0; n < kLength; ++n)
            bins[static_cast<std::size_t>(k)] +=
                static_cast<double>(samples[n]) * unit[static_cast<std::size_t>(k * n % kLength)];
    }
    return bins;
}

template <typename BinAt> double relativeRmsError(const float *samples, BinAt binAt)
{
    const Bins expected = definition(samples);
    double error = 0.0;
    double power = 0.0;
    for (int k = 0; k <= kLength / 2; ++k) {
        error += std::norm(std::complex<double>(binAt(k)) - expected[static_cast<std::size_t>(k)]);
        power += std::norm(expected[static_cast<std::size_t>(k)]);
    }
    return std::sqrt(error / power);
}

void ours(benchmark::State &state, VectorUnit unit)
{
    FFTEngine fft(unit);
    const FftwFloats in = noise();
    const FftwFloats out(fftwf_alloc_real(kLength));
    for (auto step : state) {
        fft.transform(out.get(), in.get());
        benchmark::ClobberMemory();
    }
    state.counters["relative_rms_error"] = relativeRmsError(in.get(), [&](int k) {
        const bool single = k == 0 || k == kLength / 2;
        return std::complex<float>(out[k], single ? 0.0F : out[kLength / 2 + k]);
    });
}

/// One for each vector unit that this processor has.
void registerOurs()
{
    benchmark::RegisterBenchmark("fft2048/ours_portable", ours, VectorUnit::None);
    if (vectorUnit() >= VectorUnit::Sse2)
        benchmark::RegisterBenchmark("fft2048/ours_sse2", ours, VectorUnit::Sse2);
    if (vectorUnit() >= VectorUnit::Avx2Fma)
        benchmark::RegisterBenchmark("fft2048/ours_avx2", ours, VectorUnit::Avx2Fma);
}

void fftw(benchmark::State &state)
{
    const FftwFloats in(fftwf_alloc_real(kLength));
    auto *out = fftwf_alloc_complex(kLength / 2 + 1);
    // Planning overwrites both.
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(kLength, in.get(), out, FFTW_MEASURE);
    const FftwFloats samples = noise();
    std::copy_n(samples.get(), kLength, in.get());
    for (auto step : state) {
        fftwf_execute(plan);
        benchmark::ClobberMemory();
    }
    state.counters["relative_rms_error"] = relativeRmsError(
        samples.get(), [&](int k) { return std::complex<float>(out[k][0], out[k][1]); });
    fftwf_destroy_plan(plan);
    fftwf_free(out);
}
BENCHMARK(fftw)->Name("fft2048/fftw");

void kissfft(benchmark::State &state)
{
    const kiss_fftr_cfg plan = kiss_fftr_alloc(kLength, 0, nullptr, nullptr);
    const FftwFloats in = noise();
    std::vector<kiss_fft_cpx> out(kLength / 2 + 1);
    for (auto step : state) {
        kiss_fftr(plan, in.get(), out.data());
        benchmark::ClobberMemory();
    }
    state.counters["relative_rms_error"] = relativeRmsError(in.get(), [&](int k) {
        return std::complex<float>(out[static_cast<std::size_t>(k)].r,
                                   out[static_cast<std::size_t>(k)].i);
    });
    kiss_fftr_free(plan);
}
BENCHMARK(kissfft)->Name("fft2048/kissfft");

} // namespace

int main(int argc, char *argv[])
{
    registerOurs();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
