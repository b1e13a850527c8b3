#include "spectrum/fft/fftengine.h"
#include "spectrum/fft/fftrealwrapper.h"
#include "tests/spectrum/reference.h"

#include <cmath>
#include <QtTest>
#include <random>

namespace {

constexpr int kLength = FFTRealWrapper::kLength;
const double kPi = std::acos(-1.0);

using Block = std::vector<float>;

template <typename F> Block blockOf(F sampleAt)
{
    Block block;
    for (int n = 0; n < kLength; ++n)
        block.push_back(static_cast<float>(sampleAt(n)));
    return block;
}

Block noise(unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    return blockOf([&](int) { return uniform(random); });
}

/// What the current run of the tests is about.
VectorUnit testedUnit()
{
    QFETCH_GLOBAL(int, unit);
    return static_cast<VectorUnit>(unit);
}

Block transformedBy(VectorUnit by, const Block &in)
{
    FFTEngine fft(by);
    Block out(kLength, -99.0F);
    fft.transform(out.data(), in.data());
    return out;
}

Block transformed(const Block &in)
{
    return transformedBy(testedUnit(), in);
}

/// The packed layout of the result, in double precision.
std::vector<double> packedReference(const Block &in)
{
    const auto bins = reference::definition({in.begin(), in.end()});
    std::vector<double> packed(kLength);
    for (std::size_t k = 0; k <= kLength / 2; ++k)
        packed[k] = bins[k].real();
    for (std::size_t k = 1; k < kLength / 2; ++k)
        packed[kLength / 2 + k] = bins[k].imag();
    return packed;
}

double relativeRmsError(const Block &out, const std::vector<double> &expected)
{
    double error = 0.0;
    double power = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        error += std::pow(static_cast<double>(out[i]) - expected[i], 2);
        power += std::pow(expected[i], 2);
    }
    return std::sqrt(error / power);
}

} // namespace

/// Every test runs for the portable passes and for each kernel that this processor can run.
class TestFFTRealWrapper : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase_data();
    void wrapperTakesTheBestKernel();
    void kernelMatchesThePortablePasses();
    void equalValuesGiveTheirSumInBinZero();
    void cosineGivesItsRealPart_data();
    void cosineGivesItsRealPart();
    void sineGivesItsImaginaryPart_data();
    void sineGivesItsImaginaryPart();
    void alternatingSignGivesTheNyquistTerm();
    void everySingleSampleTransformsExactly();
    void whiteNoiseMatchesTheDefinition();
    void isLinear();
    void leavesTheInputAndNeedsNoAlignment();
    void keepsNothingFromCallToCall();

private:
    static void bins();
};

void TestFFTRealWrapper::initTestCase_data()
{
    QTest::addColumn<int>("unit");
    QTest::newRow("portable") << static_cast<int>(VectorUnit::None);
    if (fftKernel(VectorUnit::Sse2) && vectorUnit() >= VectorUnit::Sse2)
        QTest::newRow("SSE2") << static_cast<int>(VectorUnit::Sse2);
    if (fftKernel(VectorUnit::Avx2Fma) && vectorUnit() >= VectorUnit::Avx2Fma)
        QTest::newRow("AVX2") << static_cast<int>(VectorUnit::Avx2Fma);
}

void TestFFTRealWrapper::wrapperTakesTheBestKernel()
{
    const Block in = noise(10);
    Block out(kLength, -99.0F);
    FFTRealWrapper fft;
    fft.calculateFFT(out.data(), in.data());
    QCOMPARE(out, transformedBy(vectorUnit(), in));
}

void TestFFTRealWrapper::kernelMatchesThePortablePasses()
{
    for (unsigned seed = 1; seed <= 50; ++seed) {
        const Block in = noise(seed);
        const Block out = transformed(in);
        const Block twin = transformedBy(VectorUnit::None, in);
        // The largest bins are near 100: a few units in their last place.
        for (std::size_t i = 0; i < kLength; ++i)
            QVERIFY2(std::fabs(out[i] - twin[i]) < 4e-5F, qPrintable(QString::number(i)));
    }
}

void TestFFTRealWrapper::equalValuesGiveTheirSumInBinZero()
{
    const Block out = transformed(blockOf([](int) { return 0.625; }));
    QCOMPARE(out[0], 0.625F * kLength);
    for (std::size_t i = 1; i < kLength; ++i)
        QVERIFY2(std::fabs(out[i]) < 1e-3F, qPrintable(QString::number(i)));
}

void TestFFTRealWrapper::bins()
{
    QTest::addColumn<int>("k");
    for (int k : {1, 2, 3, 37, 255, 256, 511, 512, 513, 1000, 1022, 1023})
        QTest::addRow("%d", k) << k;
}

void TestFFTRealWrapper::cosineGivesItsRealPart_data()
{
    bins();
}

void TestFFTRealWrapper::cosineGivesItsRealPart()
{
    QFETCH(int, k);
    const Block out =
        transformed(blockOf([k](int n) { return std::cos(2.0 * kPi * k * n / kLength); }));
    for (int i = 0; i < kLength; ++i) {
        const float expected = i == k ? 1024.0F : 0.0F;
        QVERIFY2(std::fabs(out[static_cast<std::size_t>(i)] - expected) < 1e-3F,
                 qPrintable(QString::number(i)));
    }
}

void TestFFTRealWrapper::sineGivesItsImaginaryPart_data()
{
    bins();
}

void TestFFTRealWrapper::sineGivesItsImaginaryPart()
{
    QFETCH(int, k);
    const Block out =
        transformed(blockOf([k](int n) { return std::sin(2.0 * kPi * k * n / kLength); }));
    for (int i = 0; i < kLength; ++i) {
        const float expected = i == 1024 + k ? -1024.0F : 0.0F;
        QVERIFY2(std::fabs(out[static_cast<std::size_t>(i)] - expected) < 1e-3F,
                 qPrintable(QString::number(i)));
    }
}

void TestFFTRealWrapper::alternatingSignGivesTheNyquistTerm()
{
    const Block out = transformed(blockOf([](int n) { return n % 2 == 0 ? 1.0 : -1.0; }));
    for (std::size_t i = 0; i < kLength; ++i) {
        const float expected = i == 1024 ? 2048.0F : 0.0F;
        QVERIFY2(std::fabs(out[i] - expected) < 1e-3F, qPrintable(QString::number(i)));
    }
}

/// The transform of a single 1 is its twiddle factors: no sample may be read or placed wrongly.
void TestFFTRealWrapper::everySingleSampleTransformsExactly()
{
    FFTEngine fft(testedUnit());
    std::vector<double> cosine;
    cosine.reserve(kLength);
    for (int i = 0; i < kLength; ++i)
        cosine.push_back(std::cos(2.0 * kPi * i / kLength));
    Block in(kLength);
    Block out(kLength);
    double worst = 0.0;
    for (int n = 0; n < kLength; ++n) {
        in[static_cast<std::size_t>(n)] = 1.0F;
        fft.transform(out.data(), in.data());
        in[static_cast<std::size_t>(n)] = 0.0F;
        for (int k = 0; k <= kLength / 2; ++k)
            worst = std::fmax(worst,
                              std::fabs(static_cast<double>(out[static_cast<std::size_t>(k)])
                                        - cosine[static_cast<std::size_t>(k * n % kLength)]));
        for (int k = 1; k < kLength / 2; ++k) {
            // -sin(x) is cos(x + pi/2).
            const double expected =
                cosine[static_cast<std::size_t>((k * n + kLength / 4) % kLength)];
            const int imaginary = kLength / 2 + k;
            worst =
                std::fmax(worst,
                          std::fabs(static_cast<double>(out[static_cast<std::size_t>(imaginary)])
                                    - expected));
        }
    }
    QVERIFY2(worst < 5e-7, qPrintable(QString::number(worst)));
}

void TestFFTRealWrapper::whiteNoiseMatchesTheDefinition()
{
    double worst = 0.0;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        const Block in = noise(seed);
        worst = std::fmax(worst, relativeRmsError(transformed(in), packedReference(in)));
    }
    // A few units in the last place of single precision (6e-8).
    QVERIFY2(worst < 2.5e-7, qPrintable(QString::number(worst)));
}

void TestFFTRealWrapper::isLinear()
{
    const Block a = noise(5);
    const Block b = noise(6);
    const Block both = blockOf([&](int n) {
        return a[static_cast<std::size_t>(n)] + 0.5F * b[static_cast<std::size_t>(n)];
    });
    const Block outA = transformed(a);
    const Block outB = transformed(b);
    const Block out = transformed(both);
    for (std::size_t i = 0; i < kLength; ++i)
        QVERIFY(std::fabs(out[i] - (outA[i] + 0.5F * outB[i])) < 1e-3F);
}

void TestFFTRealWrapper::leavesTheInputAndNeedsNoAlignment()
{
    const Block in = noise(7);
    const Block expected = transformed(in);
    FFTEngine fft(testedUnit());
    for (std::size_t offset = 0; offset < 9; ++offset) {
        Block shiftedIn(kLength + 16, 5.0F);
        Block shiftedOut(kLength + 16, 5.0F);
        std::copy(in.begin(), in.end(), shiftedIn.begin() + static_cast<std::ptrdiff_t>(offset));
        const Block before = shiftedIn;
        fft.transform(shiftedOut.data() + offset, shiftedIn.data() + offset);
        QCOMPARE(shiftedIn, before);
        for (std::size_t i = 0; i < shiftedOut.size(); ++i) {
            const bool inside = i >= offset && i < offset + kLength;
            QCOMPARE(shiftedOut[i], inside ? expected[i - offset] : 5.0F);
        }
    }
}

void TestFFTRealWrapper::keepsNothingFromCallToCall()
{
    FFTEngine fft(testedUnit());
    Block out(kLength);
    fft.transform(out.data(), noise(8).data());
    const Block in = noise(9);
    fft.transform(out.data(), in.data());
    QCOMPARE(out, transformed(in));
}

QTEST_APPLESS_MAIN(TestFFTRealWrapper)
#include "tst_fftrealwrapper.moc"
