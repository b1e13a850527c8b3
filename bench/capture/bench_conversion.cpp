// The conversion of a packet of 480 float stereo frames, as the capture thread does it, beside a
// memcpy of the packet and a plain scale of its samples.
#include "capture/sampleconversion.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr int kFrames = 480;
constexpr int kSamples = 2 * kFrames;

std::vector<float> packet()
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    std::vector<float> result(kSamples);
    for (float &sample : result)
        sample = uniform(random);
    return result;
}

void conversion(benchmark::State &state)
{
    const std::vector<float> captured = packet();
    const SourceFormat format {2, 32, true};
    QByteArray raw;
    for (auto step : state) {
        copyPacket(raw, captured.data(), kFrames, 8);
        benchmark::DoNotOptimize(toStereo16(raw, kFrames, format));
    }
}
BENCHMARK(conversion)->Name("conversion/480_float_stereo_frames");

void memcpyAndScale(benchmark::State &state)
{
    const std::vector<float> captured = packet();
    std::vector<float> raw(kSamples);
    std::vector<float> scaled(kSamples);
    for (auto step : state) {
        std::memcpy(raw.data(), captured.data(), kSamples * sizeof(float));
        benchmark::ClobberMemory();
        for (int i = 0; i < kSamples; ++i)
            scaled[static_cast<std::size_t>(i)] = raw[static_cast<std::size_t>(i)] * 32767.0F;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(memcpyAndScale)->Name("conversion/memcpy_and_plain_scale");

} // namespace

BENCHMARK_MAIN();
