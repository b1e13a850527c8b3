// One message of 104 fields, beside writing the same 104 numbers into a plain buffer.
#include "remote/spectrummessage.h"

#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdlib>
#include <vector>

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);
extern "C" void *__libc_realloc(void *block, std::size_t size);

namespace {
std::size_t s_allocations = 0;
}

/// Counts what the message allocates: strings take their memory from here.
extern "C" void *malloc(std::size_t size)
{
    ++s_allocations;
    return __libc_malloc(size);
}

extern "C" void *calloc(std::size_t count, std::size_t size)
{
    ++s_allocations;
    return __libc_calloc(count, size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    ++s_allocations;
    return __libc_realloc(block, size);
}

namespace {

constexpr double kRms = 0.123456;
constexpr double kPeak = 0.28125;
constexpr double kDynamic = 0.008125;

std::vector<float> bars()
{
    std::vector<float> result(100);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = static_cast<float>(i * i % 97) / 97.0F;
    return result;
}

void spectrumMessageOf100Bars(benchmark::State &state)
{
    const std::vector<float> values = bars();
    const auto message = [&values] {
        benchmark::DoNotOptimize(
            spectrumMessage(kRms, kPeak, kDynamic, values.data(), static_cast<int>(values.size())));
    };
    for (auto _ : state)
        message();
    const std::size_t before = s_allocations;
    message();
    state.counters["allocations"] = static_cast<double>(s_allocations - before);
}
BENCHMARK(spectrumMessageOf100Bars)->Name("message/104_fields");

void plainNumbers(benchmark::State &state)
{
    const std::vector<float> values = bars();
    char buffer[2048];
    for (auto _ : state) {
        char *out = buffer;
        char *const end = buffer + sizeof buffer;
        for (const double level : {kRms, kPeak, kDynamic})
            out = std::to_chars(out, end, level * 400.0, std::chars_format::general, 6).ptr;
        for (const float value : values)
            out = std::to_chars(out, end, static_cast<int>(value * 400.0F)).ptr;
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(plainNumbers)->Name("message/its_numbers_by_to_chars");

} // namespace

BENCHMARK_MAIN();
