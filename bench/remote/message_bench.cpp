// One message of 104 fields, beside writing the same 104 numbers into a plain buffer.
#include "remote/spectrummessage.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <vector>

namespace {

constexpr double s_rms = 0.123456;
constexpr double s_peak = 0.28125;
constexpr double s_dynamic = 0.008125;

std::vector<float> bars()
{
    std::vector<float> result(100);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = float(i * i % 97) / 97.0F;
    return result;
}

void spectrumMessageOf100Bars(benchmark::State &state)
{
    const std::vector<float> values = bars();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            spectrumMessage(s_rms, s_peak, s_dynamic, values.data(), int(values.size())));
}
BENCHMARK(spectrumMessageOf100Bars);

void plainNumbers(benchmark::State &state)
{
    const std::vector<float> values = bars();
    char buffer[2048];
    for (auto _ : state) {
        char *out = buffer;
        char *const end = buffer + sizeof buffer;
        for (const double level : {s_rms, s_peak, s_dynamic})
            out = std::to_chars(out, end, level * 400.0, std::chars_format::general, 6).ptr;
        for (const float value : values)
            out = std::to_chars(out, end, int(value * 400.0F)).ptr;
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(plainNumbers);

} // namespace

BENCHMARK_MAIN();
