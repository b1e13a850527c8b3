#include "spectrum/levels.h"
#include "tests/spectrum/testsound.h"

#include <cmath>
#include <QtTest>

class TestLevels : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sumsMatchAPlainLoopAtEveryLengthAndAlignment();
    void sumsAreExactAtFullScale();
    void negativeExcursionsDoNotCountAsPeak();
    void rmsOfNothingIsZero();
    void rmsOfFullScaleIsOne();
    void blockRmsOfStereoAndMono();
    void blockRmsCountsACutFrameInFull();
    void blockRmsReads16BitsWhateverTheStride();
    void historyKeepsItsLengthAndSum();
};

void TestLevels::sumsMatchAPlainLoopAtEveryLengthAndAlignment()
{
    const QByteArray noise = sound::pcm(sound::whiteNoise(1.0), 0, 100);
    for (int offset = 0; offset < 40; ++offset) {
        for (int count = 0; count < 150; ++count) {
            qint64 squares = 0;
            int peak = 0;
            for (int i = 0; i < count; ++i) {
                const int value = qFromLittleEndian<qint16>(noise.constData() + offset + 2 * i);
                squares += value * value;
                peak = std::max(peak, value);
            }
            const SampleSums sums = sumSamples(noise.constData() + offset, count);
            QCOMPARE(sums.squares, squares);
            QCOMPARE(sums.peak, peak);
            const SampleSums twin = sumSamplesPlainly(noise.constData() + offset, count);
            QCOMPARE(twin.squares, squares);
            QCOMPARE(twin.peak, peak);
        }
    }
}

void TestLevels::sumsAreExactAtFullScale()
{
    QByteArray loudest;
    for (int i = 0; i < 192000; ++i)
        loudest += QByteArray("\x00\x80", 2); // -32768
    SampleSums sums = sumSamples(loudest.constData(), 192000);
    QCOMPARE(sums.squares, 192000LL * 32768 * 32768);
    QCOMPARE(sums.peak, 0);
    loudest[100001] = '\x7F';
    loudest[100000] = '\xFF';
    sums = sumSamples(loudest.constData(), 192000);
    QCOMPARE(sums.squares, 191999LL * 32768 * 32768 + 32767LL * 32767);
    QCOMPARE(sums.peak, 32767);
}

void TestLevels::negativeExcursionsDoNotCountAsPeak()
{
    const QByteArray data =
        sound::pcm([](int frame, int) { return frame % 2 == 0 ? -0.9 : 0.25; }, 0, 64);
    QCOMPARE(sumSamples(data.constData(), 128).peak, static_cast<int>(sound::quantised(0.25)));
}

void TestLevels::rmsOfNothingIsZero()
{
    QCOMPARE(rmsLevel(0, 0), 0.0);
    QCOMPARE(rmsLevel(5, 0), 0.0);
    QCOMPARE(rmsLevel(0, 100), 0.0);
    QCOMPARE(blockRms(nullptr, 0, 2, 16), 0.0);
}

void TestLevels::rmsOfFullScaleIsOne()
{
    QCOMPARE(rmsLevel(32768LL * 32768 * 7, 7), 1.0);
    QCOMPARE(rmsLevel(32768LL * 32768 * 7, 6), 1.0); // limited
    QCOMPARE(rmsLevel(16384LL * 16384 * 9, 9), 0.5);
}

void TestLevels::blockRmsOfStereoAndMono()
{
    const QByteArray leftOnly =
        sound::pcm([](int, int channel) { return channel == 0 ? 0.5 : 0.0; }, 0, 100);
    const double half = sound::quantised(0.5) / 32768.0;
    QCOMPARE(blockRms(leftOnly.constData(), leftOnly.size(), 2, 16), half / std::sqrt(2.0));
    const QByteArray mono = sound::pcm([](int, int) { return -0.5; }, 0, 101, 1);
    QCOMPARE(blockRms(mono.constData(), mono.size(), 1, 16), half);
}

void TestLevels::blockRmsCountsACutFrameInFull()
{
    // Samples 16384, 16384, 16384 and half of the fourth, whose missing byte is 0.
    const std::vector<char> data {0, 64, 0, 64, 0, 64, 16};
    const double expected =
        std::sqrt((3 * 16384.0 * 16384.0 + 16.0 * 16.0) / 32768.0 / 32768.0 / 4);
    QCOMPARE(blockRms(data.data(), 7, 2, 16), expected);
    QCOMPARE(blockRms(data.data(), 6, 2, 16), std::sqrt(3 * 0.25 / 4));
    QCOMPARE(blockRms(data.data(), 2, 2, 16), std::sqrt(0.25 / 2));
}

void TestLevels::blockRmsReads16BitsWhateverTheStride()
{
    // 32 bits a sample: the first two bytes of each four.
    const std::vector<char> wide {0, 64, 99, 99, 0, -64, 99, 99};
    QCOMPARE(blockRms(wide.data(), 8, 2, 32), 0.5);
    // 8 bits a sample: overlapping words, the last one short of a byte.
    const std::vector<char> narrow {0, 64};
    QCOMPARE(blockRms(narrow.data(), 2, 2, 8),
             std::sqrt((16384.0 * 16384.0 + 64.0 * 64.0) / 32768.0 / 32768.0 / 2));
}

void TestLevels::historyKeepsItsLengthAndSum()
{
    std::vector<double> history(3, 0.0);
    double sum = 0.0;
    for (int value = 1; value <= 5; ++value)
        pushHistory(history, sum, value);
    QCOMPARE(history, (std::vector<double> {3.0, 4.0, 5.0}));
    QCOMPARE(sum, 12.0);
}

QTEST_APPLESS_MAIN(TestLevels)
#include "tst_levels.moc"
