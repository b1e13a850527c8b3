#include "spectrum/analysiskernels.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <QtTest>
#include <random>
#include <vector>

namespace {

constexpr int kLongest = 67;

/// What the loops are tested against: the same in the plainest way.
namespace twin {

float windowed(const char *frames, int channel, int i, float weight)
{
    qint16 sample;
    std::memcpy(&sample, frames + 4 * i + 2 * channel, sizeof sample);
    return static_cast<float>(sample / 32768.0) * weight;
}

double level(float re, float im)
{
    const double x = static_cast<double>(re);
    const double y = static_cast<double>(im);
    return std::log(std::sqrt(x * x + y * y)) * 0.15;
}

} // namespace twin

VectorUnit testedUnit()
{
    QFETCH_GLOBAL(int, unit);
    return static_cast<VectorUnit>(unit);
}

void windowStereo(const char *frames, int channel, const float *window, float *out, int count)
{
    windowKernel(testedUnit())(frames, channel, window, out, count);
}

void logarithmicLevels(const float *re, const float *im, double *levels, int count)
{
    levelKernel(testedUnit())(re, im, levels, count);
}

} // namespace

/// Every test runs for each variant of the kernels that this processor can run.
class TestAnalysisKernels : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();
    void windowMatchesItsTwinAtEveryLengthAndAlignment();
    void windowKeepsFullScale();
    void levelsMatchTheirTwinAtEveryLengthAndAlignment();
    void levelsMatchTheirTwinOverAllMagnitudes();
    void levelsNearOneAreAccurate();
    void noMagnitudeIsFarBelowZero();
};

void TestAnalysisKernels::initTestCase_data()
{
    QTest::addColumn<int>("unit");
    QTest::newRow("baseline") << static_cast<int>(VectorUnit::None);
    if (vectorUnit() >= VectorUnit::Avx2Fma)
        QTest::newRow("AVX2") << static_cast<int>(VectorUnit::Avx2Fma);
}

void TestAnalysisKernels::windowMatchesItsTwinAtEveryLengthAndAlignment()
{
    std::mt19937 random(1);
    std::vector<char> bytes(4 * kLongest + 8);
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    std::vector<float> window(kLongest + 8);
    for (float &weight : window)
        weight = static_cast<float>(random() % 1000) / 999.0F;

    for (int offset = 0; offset < 8; ++offset) {
        for (int count = 0; count <= kLongest; ++count) {
            for (int channel : {0, 1}) {
                std::vector<float> out(kLongest + 9, 7.0F);
                const char *frames = bytes.data() + offset;
                windowStereo(frames, channel, window.data() + offset, out.data() + offset, count);
                for (int i = 0; i < static_cast<int>(out.size()); ++i) {
                    const int at = i - offset;
                    const bool inside = at >= 0 && at < count;
                    QCOMPARE(out[static_cast<std::size_t>(i)],
                             inside ? twin::windowed(frames, channel, at,
                                                     window[static_cast<std::size_t>(i)])
                                    : 7.0F);
                }
            }
        }
    }
}

void TestAnalysisKernels::windowKeepsFullScale()
{
    const qint16 frame[] {-32768, 32767};
    const float window = 1.0F;
    float out = 0.0F;
    windowStereo(reinterpret_cast<const char *>(frame), 0, &window, &out, 1);
    QCOMPARE(out, -1.0F);
    windowStereo(reinterpret_cast<const char *>(frame), 1, &window, &out, 1);
    QCOMPARE(out, 32767.0F / 32768.0F);
}

void TestAnalysisKernels::levelsMatchTheirTwinAtEveryLengthAndAlignment()
{
    std::mt19937 random(2);
    std::uniform_real_distribution<float> uniform(-900.0F, 900.0F);
    std::vector<float> values(2 * kLongest + 16);
    for (float &value : values)
        value = uniform(random);

    for (int offset = 0; offset < 8; ++offset) {
        for (int count = 0; count <= kLongest; ++count) {
            std::vector<double> levels(kLongest + 9, 7.0);
            const float *re = values.data() + offset;
            const float *im = re + kLongest + 1;
            logarithmicLevels(re, im, levels.data() + offset, count);
            for (int i = 0; i < static_cast<int>(levels.size()); ++i) {
                const int at = i - offset;
                if (at < 0 || at >= count)
                    QCOMPARE(levels[static_cast<std::size_t>(i)], 7.0);
                else
                    QVERIFY(
                        std::fabs(levels[static_cast<std::size_t>(i)] - twin::level(re[at], im[at]))
                        <= 5e-16);
            }
        }
    }
}

void TestAnalysisKernels::levelsMatchTheirTwinOverAllMagnitudes()
{
    // Up to what full scale gives, and far below and above.
    std::mt19937 random(3);
    std::uniform_real_distribution<double> exponent(-80.0, 80.0);
    std::vector<float> re(1001);
    std::vector<float> im(1001);
    std::vector<double> levels(1001);
    for (int run = 0; run < 200; ++run) {
        for (std::size_t i = 0; i < re.size(); ++i) {
            re[i] = static_cast<float>(std::exp(exponent(random) * (run % 2 ? 1.0 : 0.1)));
            im[i] = run % 3 == 0 ? 0.0F : static_cast<float>(-std::exp(0.1 * exponent(random)));
        }
        logarithmicLevels(re.data(), im.data(), levels.data(), static_cast<int>(re.size()));
        for (std::size_t i = 0; i < re.size(); ++i) {
            const double expected = twin::level(re[i], im[i]);
            // Within 5e-16 where it counts, 0 to 1, and as many digits elsewhere.
            QVERIFY2(std::fabs(levels[i] - expected) <= 5e-16 * std::fmax(1.0, std::fabs(expected)),
                     qPrintable(QString::number(re[i])));
        }
    }
}

void TestAnalysisKernels::levelsNearOneAreAccurate()
{
    // Each side of the magnitudes where the level passes 0 and 1.
    for (const float centre : {1.0F, 785.77F}) {
        std::vector<float> re {centre};
        for (int i = 0; i < 500; ++i) {
            re.push_back(std::nextafter(re.back(), 0.0F));
            re.insert(re.begin(), std::nextafter(re.front(), 1000.0F));
        }
        const std::vector<float> im(re.size(), 0.0F);
        std::vector<double> levels(re.size());
        logarithmicLevels(re.data(), im.data(), levels.data(), static_cast<int>(re.size()));
        for (std::size_t i = 0; i < re.size(); ++i) {
            QVERIFY(std::fabs(levels[i] - twin::level(re[i], 0.0F)) <= 5e-16);
            QCOMPARE(levels[i] > 0.0, twin::level(re[i], 0.0F) > 0.0);
            QCOMPARE(levels[i] > 1.0, twin::level(re[i], 0.0F) > 1.0);
        }
    }
}

void TestAnalysisKernels::noMagnitudeIsFarBelowZero()
{
    const std::vector<float> zeros {0.0F, -0.0F, 0.0F};
    const std::vector<float> ones {0.0F, 0.0F, std::numeric_limits<float>::denorm_min()};
    std::vector<double> levels(3, 5.0);
    logarithmicLevels(zeros.data(), ones.data(), levels.data(), 3);
    for (const double level : levels)
        QVERIFY(level < -10.0);
}

QTEST_APPLESS_MAIN(TestAnalysisKernels)
#include "tst_analysiskernels.moc"
