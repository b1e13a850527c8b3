// One stereo analysis beside its two transforms, one post-processing beside straight passes over
// the amplitudes, one level tick beside a plain sum of squares.
#include "platform/deviceenumerator.h"
#include "spectrum/fft/fftrealwrapper.h"
#include "spectrum/levels.h"
#include "spectrum/specengine.h"
#include "spectrum/spectrumanalyserthread.h"

#include <benchmark/benchmark.h>
#include <QCoreApplication>
#include <random>

/// The engine's own steps, without its timer.
class SpecEnginePeer {
public:
    static void postProcess(SpecEngine *engine, const FrequencySpectrum &spectrum)
    {
        engine->onSpectrumChanged(spectrum);
    }
    static void setFormatAndData(SpecEngine *engine, const QByteArray &data)
    {
        WAVEFORMATEX format {};
        format.nChannels = 2;
        format.nSamplesPerSec = 48000;
        format.wBitsPerSample = 16;
        engine->onFormatChanged(format);
        engine->onNotifyData(data);
    }
    static void measureLevels(SpecEngine *engine) { engine->measureLevels(); }
};

namespace {

constexpr int kPoints = 2048;
constexpr int kLevelSamples = 48000 / 20 * 2;

QByteArray noise(int frames)
{
    QByteArray data(frames * 4, Qt::Uninitialized);
    auto *samples = reinterpret_cast<qint16 *>(data.data());
    std::mt19937 random(1);
    std::uniform_int_distribution<int> uniform(-20000, 20000);
    for (int i = 0; i < frames * 2; ++i)
        samples[i] = static_cast<qint16>(uniform(random));
    return data;
}

/// Amplitudes and labels as they come from music: half of the points above the threshold.
FrequencySpectrum spectrum()
{
    FrequencySpectrum result(kPoints);
    std::mt19937 random(1);
    std::uniform_real_distribution<double> uniform(-0.4, 0.5);
    for (int i = 0; i < kPoints; ++i) {
        result[i].frequency = (i < 1024 ? i - 1023 : i - 1024) * 46.875;
        result[i].amplitude = std::max(0.0, uniform(random));
    }
    return result;
}

void analysis(benchmark::State &state)
{
    // Called directly; the worker's own thread has nothing to do.
    auto *worker = new SpectrumAnalyserThread(nullptr);
    const QByteArray block = noise(2048);
    for (auto step : state)
        worker->calculateSpectrum(block, 48000, 16, 2);
    worker->deleteLater();
}
BENCHMARK(analysis)->Name("analysis/stereo");

void twoTransforms(benchmark::State &state)
{
    FFTRealWrapper fft;
    std::vector<float> in(2048);
    std::vector<float> out(2048);
    std::mt19937 random(1);
    std::generate(in.begin(), in.end(),
                  [&] { return static_cast<float>(random() % 2000) / 1000 - 1.0F; });
    for (auto step : state) {
        fft.calculateFFT(out.data(), in.data());
        benchmark::ClobberMemory();
        fft.calculateFFT(out.data(), in.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(twoTransforms)->Name("analysis/its_two_transforms_alone");

void postProcessing(benchmark::State &state)
{
    SpecEngine *engine = SpecEngine::instance();
    engine->setSmoothing(0.5);
    engine->setHistoryLength(10);
    engine->setQuantile(0.1);
    const Spectrum band(-7000, 7000, 100);
    const FrequencySpectrum received = spectrum();
    for (auto step : state) {
        SpecEnginePeer::postProcess(engine, received);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(postProcessing)->Name("postprocessing/one_band");

/// Reads and writes the amplitudes six times, where they stand.
void sixPasses(benchmark::State &state)
{
    FrequencySpectrum points = spectrum();
    for (auto step : state) {
        for (int pass = 0; pass < 6; ++pass) {
            for (FrequencySpectrum::Element &point : points)
                point.amplitude *= 0.999;
            benchmark::ClobberMemory();
        }
    }
}
BENCHMARK(sixPasses)->Name("postprocessing/six_straight_passes");

/// The same over amplitudes that stand next to each other.
void sixContiguousPasses(benchmark::State &state)
{
    std::vector<double> amplitudes(kPoints, 0.5);
    for (auto step : state) {
        for (int pass = 0; pass < 6; ++pass) {
            for (double &amplitude : amplitudes)
                amplitude *= 0.999;
            benchmark::ClobberMemory();
        }
    }
}
BENCHMARK(sixContiguousPasses)->Name("postprocessing/six_contiguous_passes");

void levelTick(benchmark::State &state)
{
    SpecEngine *engine = SpecEngine::instance();
    SpecEnginePeer::setFormatAndData(engine, noise(kLevelSamples / 2));
    for (auto step : state) {
        SpecEnginePeer::measureLevels(engine);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(levelTick)->Name("leveltick/50ms");

void plainSumOfSquares(benchmark::State &state)
{
    const QByteArray data = noise(kLevelSamples / 2);
    for (auto step : state) {
        const auto *samples = reinterpret_cast<const qint16 *>(data.constData());
        qint64 sum = 0;
        for (int i = 0; i < kLevelSamples; ++i)
            sum += static_cast<qint64>(samples[i]) * samples[i];
        benchmark::DoNotOptimize(sum);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(plainSumOfSquares)->Name("leveltick/plain_sum_of_squares");

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
