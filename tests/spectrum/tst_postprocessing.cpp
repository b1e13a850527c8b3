#include "platform/deviceenumerator.h"
#include "spectrum/postprocessing.h"
#include "spectrum/spectrum.h"
#include "tests/spectrum/enginepeer.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <QtTest>
#include <random>

namespace {

using Amplitudes = std::vector<double>;

FrequencySpectrum spectrumOf(const Amplitudes &amplitudes)
{
    FrequencySpectrum spectrum(static_cast<int>(amplitudes.size()));
    for (std::size_t i = 0; i < amplitudes.size(); ++i)
        spectrum[static_cast<int>(i)].amplitude = amplitudes[i];
    return spectrum;
}

Amplitudes averaged(const Amplitudes &amplitudes, int width)
{
    const FrequencySpectrum received(static_cast<int>(amplitudes.size()));
    FrequencySpectrum spectrum;
    Amplitudes window;
    averageAcrossFrequency(received, amplitudes, width, spectrum, window);
    Amplitudes result;
    readAmplitudes(spectrum, result);
    return result;
}

} // namespace

class TestPostprocessing : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void noAmplitudeAbove005GivesNoNoiseFloor();
    void noiseFloorIsTheTruncatedQuantile_data();
    void noiseFloorIsTheTruncatedQuantile();
    void noiseFloorMatchesSorting();
    void gainFollowsUpFastAndDownSlowly();
    void gainOfSilenceIsOne();
    void gainIsLimited();
    void scalingTakesOffTheFloorAndSmooths();
    void scalingMatchesItsRule();
    void averageKeepsItsSurplus();
    void averageOfOddWidthTakesOnePointTwice();
    void averageOfWidthOneFeedsItself();
    void averageLeavesShortSpectraAndWidths();
    void averageWiderThanTheSpectrumChangesNothing();
    void averageMatchesAListAtEveryWidth();
    void averageTakesOverLabelsAndKeepsItsMemory();
    void barIndexRule();
    void barIndexOfDegenerateBands();
    void pointAtALimitReachesNoBar();
    void barHoldsTheLargestAmplitude();
    void bandEmptiedByItsOwnerIsSkipped();

private:
    NoiseScratch m_scratch;
};

void TestPostprocessing::initTestCase()
{
    // A band registers with the engine, which must not meet a real audio system here.
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
}

void TestPostprocessing::cleanupTestCase()
{
    SpecEnginePeer::settleProcessEngine();
}

void TestPostprocessing::noAmplitudeAbove005GivesNoNoiseFloor()
{
    QCOMPARE(noiseFloor({0.0, 0.05, 0.03, 0.05}, 0.85, m_scratch), 0.0);
    QCOMPARE(noiseFloor({}, 0.85, m_scratch), 0.0);
}

void TestPostprocessing::noiseFloorIsTheTruncatedQuantile_data()
{
    QTest::addColumn<double>("quantile");
    QTest::addColumn<double>("expected");
    QTest::newRow("lowest") << 0.0 << 0.1;
    QTest::newRow("just below the second") << 0.33 << 0.1;
    QTest::newRow("second") << 0.34 << 0.2;
    QTest::newRow("default") << 0.85 << 0.3;
    QTest::newRow("highest") << 1.0 << 0.4;
    QTest::newRow("above the range") << 1.5 << 0.4;
    QTest::newRow("below the range") << -0.5 << 0.1;
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << 0.4;
    QTest::newRow("infinite below") << -std::numeric_limits<double>::infinity() << 0.1;
    QTest::newRow("no number") << std::numeric_limits<double>::quiet_NaN() << 0.1;
}

void TestPostprocessing::noiseFloorIsTheTruncatedQuantile()
{
    QFETCH(double, quantile);
    QFETCH(double, expected);
    QCOMPARE(noiseFloor({0.4, 0.01, 0.2, 0.0, 0.3, 0.1}, quantile, m_scratch), expected);
}

void TestPostprocessing::noiseFloorMatchesSorting()
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (int run = 0; run < 200; ++run) {
        Amplitudes amplitudes(1 + random() % 2048);
        // Many equal values in some runs.
        const double grain = run % 3 == 0 ? 0.125 : 1e-9;
        for (double &amplitude : amplitudes)
            amplitude = std::floor(uniform(random) / grain) * grain;
        const double quantile = run % 5 == 0 ? 0.1 : uniform(random);
        Amplitudes sorted;
        std::copy_if(amplitudes.begin(), amplitudes.end(), std::back_inserter(sorted),
                     [](double a) { return a > 0.05; });
        std::sort(sorted.begin(), sorted.end());
        const double expected = sorted.empty()
            ? 0.0
            : sorted[static_cast<std::size_t>(static_cast<double>(sorted.size() - 1) * quantile)];
        QCOMPARE(noiseFloor(amplitudes, quantile, m_scratch), expected);
    }
}

void TestPostprocessing::gainFollowsUpFastAndDownSlowly()
{
    double reference = 0.0;
    QCOMPARE(trackGain({0.2, 0.5}, 0.8, reference), 0.8 / 0.15);
    QCOMPARE(reference, 0.15);
    trackGain({0.5}, 0.8, reference);
    QCOMPARE(reference, 0.5 * 0.3 + 0.15 * 0.7);
    const double before = reference;
    QCOMPARE(trackGain({0.1}, 0.8, reference), 0.8 / (before * 0.999));
    QCOMPARE(reference, before * 0.999);
    trackGain({0.001}, 0.8, reference);
    QCOMPARE(reference, before * 0.999 * 0.99);
}

void TestPostprocessing::gainOfSilenceIsOne()
{
    double reference = 0.0;
    QCOMPARE(trackGain({0.0, 0.0}, 0.8, reference), 1.0);
    QCOMPARE(reference, 0.0);
    reference = 0.001;
    QCOMPARE(trackGain({}, 0.8, reference), 1.0);
}

void TestPostprocessing::gainIsLimited()
{
    double reference = 0.01;
    QCOMPARE(trackGain({0.005}, 0.8, reference), 10.0);
    reference = 100.0;
    QCOMPARE(trackGain({0.5}, 0.8, reference), 0.1);
}

void TestPostprocessing::scalingTakesOffTheFloorAndSmooths()
{
    Amplitudes smoothed {0.4};
    scaleAndSmooth({0.3, 0.1, 0.5}, 2.0, 0.2, 0.25, smoothed);
    const Amplitudes expected {0.75 * (0.6 - 0.2) / 0.8 + 0.25 * 0.4, 0.0,
                               0.75 * (1.0 - 0.2) / 0.8};
    QCOMPARE(smoothed.size(), expected.size());
    for (std::size_t i = 0; i < 3; ++i)
        QCOMPARE(smoothed[i] + 1.0, expected[i] + 1.0);

    scaleAndSmooth({0.0, 0.0, 0.0}, 2.0, 0.2, 0.25, smoothed);
    QCOMPARE(smoothed[2], 0.25 * expected[2]);

    // No upper limit: an amplitude that the gain lifts above 1.0 stays there.
    smoothed.clear();
    scaleAndSmooth({0.5}, 4.0, 0.5, 0.0, smoothed);
    QCOMPARE(smoothed, (Amplitudes {3.0}));

    // A floor of 1.0 leaves nothing rather than a value that is no number.
    smoothed.clear();
    scaleAndSmooth({1.0, 0.5}, 1.0, 1.0, 0.0, smoothed);
    QCOMPARE(smoothed, (Amplitudes {0.0, 0.0}));
}

void TestPostprocessing::scalingMatchesItsRule()
{
    std::mt19937 random(4);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (std::size_t count = 0; count <= 67; ++count) {
        const double gain = 2.0 * uniform(random);
        const double floor = 0.5 * uniform(random);
        const double smoothing = uniform(random);
        Amplitudes amplitudes(count);
        for (double &amplitude : amplitudes)
            amplitude = uniform(random) < 0.3 ? 0.0 : uniform(random);
        Amplitudes smoothed(count);
        for (double &value : smoothed)
            value = uniform(random);
        const Amplitudes before = smoothed;
        scaleAndSmooth(amplitudes, gain, floor, smoothing, smoothed);
        QCOMPARE(smoothed.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            const double stretched = (amplitudes[i] * gain - floor) / (1.0 - floor);
            const double expected =
                (1.0 - smoothing) * std::fmax(stretched, 0.0) + smoothing * before[i];
            QVERIFY(std::fabs(smoothed[i] - expected) <= 1e-15);
        }
    }
}

void TestPostprocessing::averageKeepsItsSurplus()
{
    // Surplus 2 x 1.0; the window goes (1 2), (2 3), (3 4), (4 5).
    QCOMPARE(averaged({1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, 2),
             (Amplitudes {1.0, 2.5, 3.5, 4.5, 5.5, 6.0}));
}

void TestPostprocessing::averageOfOddWidthTakesOnePointTwice()
{
    // half = 1: (0 3 6), then 6 comes in again: (3 6 6), then (6 6 9).
    QCOMPARE(averaged({0.0, 3.0, 6.0, 9.0, 12.0}, 3), (Amplitudes {0.0, 3.0, 5.0, 7.0, 12.0}));
}

void TestPostprocessing::averageOfWidthOneFeedsItself()
{
    // The sum starts at 2; the point that comes in is the one just written.
    QCOMPARE(averaged({1.0, 5.0, 7.0}, 1), (Amplitudes {2.0, 3.0, 4.0}));
}

void TestPostprocessing::averageLeavesShortSpectraAndWidths()
{
    QCOMPARE(averaged({}, 7), Amplitudes());
    for (int width : {0, -1, -2048})
        QCOMPARE(averaged({1.0, 2.0, 3.0}, width), (Amplitudes {1.0, 2.0, 3.0}));
}

void TestPostprocessing::averageWiderThanTheSpectrumChangesNothing()
{
    for (int width : {6, 7, 100})
        QCOMPARE(averaged({1.0, 2.0, 3.0, 4.0, 5.0, 6.0}, 2 * width),
                 (Amplitudes {1.0, 2.0, 3.0, 4.0, 5.0, 6.0}));
}

/// The points that an average leaves alone, at each width around the number of points.
void TestPostprocessing::averageMatchesAListAtEveryWidth()
{
    const Amplitudes values {0.5, 0.25, 0.75, 1.0, 0.125, 0.0, 0.375, 0.625};
    const int count = static_cast<int>(values.size());
    for (int width = 1; width <= 2 * count + 2; ++width) {
        Amplitudes expected = values;
        Amplitudes window = values;
        window.resize(static_cast<std::size_t>(width));
        for (int i = width / 2; i < count - width / 2; ++i) {
            const double sum = std::accumulate(window.begin(), window.end(), width * values[0]);
            expected[static_cast<std::size_t>(i)] = sum / width;
            const int next = i + width / 2;
            window.erase(window.begin());
            window.push_back(expected[static_cast<std::size_t>(next)]);
        }
        const Amplitudes result = averaged(values, width);
        for (std::size_t i = 0; i < values.size(); ++i)
            QCOMPARE(result[i], expected[i]);
    }
}

/// The average takes over all of the spectrum received, whatever the width.
void TestPostprocessing::averageTakesOverLabelsAndKeepsItsMemory()
{
    FrequencySpectrum received = spectrumOf({0.25, 0.5, 0.75, 1.0});
    received[1].frequency = -46.875;
    received[2].clipped = true;
    Amplitudes amplitudes {9.0};
    readAmplitudes(received, amplitudes);
    QCOMPARE(amplitudes, (Amplitudes {0.25, 0.5, 0.75, 1.0}));

    FrequencySpectrum result;
    Amplitudes window;
    const FrequencySpectrum::Element *memory = nullptr;
    for (const int width : {0, 2, 3, 4, 10}) {
        averageAcrossFrequency(received, amplitudes, width, result, window);
        QCOMPARE(result.count(), 4);
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(result[i].frequency, i == 1 ? -46.875 : 0.0);
            QCOMPARE(result[i].clipped, i == 2);
        }
        QCOMPARE(result[0].amplitude, 0.25);
        if (memory)
            QCOMPARE(&result[0], memory);
        memory = &result[0];
    }

    const FrequencySpectrum other = result;
    averageAcrossFrequency(received, {1.0, 1.0, 1.0, 1.0}, 0, result, window);
    QCOMPARE(other[0].amplitude, 0.25);
    QCOMPARE(result[0].amplitude, 1.0);

    averageAcrossFrequency(FrequencySpectrum(), {}, 10, result, window);
    QCOMPARE(result.count(), 0);
}

void TestPostprocessing::barIndexRule()
{
    const Spectrum band(-7000, 7000, 100);
    QCOMPARE(barIndexFor(-7000.0, band), 0);
    QCOMPARE(barIndexFor(-6860.01, band), 0);
    QCOMPARE(barIndexFor(-6860.0, band), 1);
    QCOMPARE(barIndexFor(-2000.0, band), 35);
    QCOMPARE(barIndexFor(-0.01, band), 49);
    QCOMPARE(barIndexFor(0.0, band), 50);
    QCOMPARE(barIndexFor(6999.0, band), 99);
    QCOMPARE(barIndexFor(90000.0, band), 99);
    QCOMPARE(barIndexFor(-90000.0, band), 0);

    // The step is 14 Hz, an integer division of 14.925: what is left goes to the last bar.
    const Spectrum uneven(0, 1000, 67);
    QCOMPARE(barIndexFor(13.99, uneven), 0);
    QCOMPARE(barIndexFor(14.0, uneven), 1);
    QCOMPARE(barIndexFor(999.0, uneven), 66);
}

void TestPostprocessing::barIndexOfDegenerateBands()
{
    const Spectrum none(0, 1000, 0);
    QCOMPARE(barIndexFor(500.0, none), 0);
    const Spectrum narrow(0, 10, 20); // a step of 0
    QCOMPARE(barIndexFor(5.0, narrow), 19);
    QCOMPARE(barIndexFor(0.0, narrow), 0);
    const Spectrum wide(-2147483647 - 1, 2147483647, 2);
    QCOMPARE(barIndexFor(-1000.0, wide), 0);
    QCOMPARE(barIndexFor(1000.0, wide), 1);
}

void TestPostprocessing::pointAtALimitReachesNoBar()
{
    Spectrum band(-1000, 1000, 10);
    FrequencySpectrum spectrum = spectrumOf({0.9, 0.8});
    spectrum[0].frequency = -1000.0;
    spectrum[1].frequency = 1000.0;
    fillBars(spectrum, {&band});
    QCOMPARE(band.bars, std::vector<float>(10, 0.0F));

    spectrum[0].frequency = -999.999;
    spectrum[1].frequency = 999.999;
    fillBars(spectrum, {&band});
    QCOMPARE(band.bars.front(), 0.9F);
    QCOMPARE(band.bars.back(), 0.8F);
}

void TestPostprocessing::barHoldsTheLargestAmplitude()
{
    Spectrum first(0, 100, 2);
    Spectrum second(40, 1040, 1);
    first.bars = {7.0F, 7.0F};
    FrequencySpectrum spectrum = spectrumOf({0.25, 0.5, 0.125, 0.75});
    const std::vector<double> frequencies {10.0, 49.0, 30.0, 50.0};
    for (int i = 0; i < 4; ++i)
        spectrum[i].frequency = frequencies[static_cast<std::size_t>(i)];
    fillBars(spectrum, {&first, &second});
    QCOMPARE(first.bars, (std::vector<float> {0.5F, 0.75F}));
    QCOMPARE(second.bars, (std::vector<float> {0.75F}));
    fillBars(FrequencySpectrum(), {&first, &second});
    QCOMPARE(first.bars, (std::vector<float> {0.0F, 0.0F}));
}

void TestPostprocessing::bandEmptiedByItsOwnerIsSkipped()
{
    Spectrum band(0, 100, 2);
    Spectrum other(0, 100, 1);
    band.bars.clear();
    FrequencySpectrum spectrum = spectrumOf({0.5});
    spectrum[0].frequency = 50.0;
    fillBars(spectrum, {&band, &other});
    QVERIFY(band.bars.empty());
    QCOMPARE(other.bars.front(), 0.5F);
}

QTEST_GUILESS_MAIN(TestPostprocessing)
#include "tst_postprocessing.moc"
