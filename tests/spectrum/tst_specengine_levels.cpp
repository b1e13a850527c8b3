// The three levels, as the engine's ticks and packets move them.
#include "tests/spectrum/enginetest.h"
#include "tests/spectrum/testsound.h"

#include <cmath>
#include <QtTest>

class TestSpecEngineLevels : public SpecEngineTest {
    Q_OBJECT

private Q_SLOTS:
    void tickBelow50msLeavesTheLevels();
    void tickAt50msMeasuresTheNewestWindow();
    void negativeSignalDecaysThePeakAndRaisesTheRms();
    void levelsWithoutAFormatDecay();
    void levelsConvergeWhenDataStops();
    void fullScaleSquareReachesFullScale();
    void dynamicLevelAveragesFivePackets();
    void dynamicLevelOfFullScalePacketsIsZero();
    void dynamicLevelIsReadByFrames();
};

void TestSpecEngineLevels::tickBelow50msLeavesTheLevels()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2399));
    peer.tick();
    QCOMPARE(peer->rmsLevel(), 0.0);
    QCOMPARE(peer->peakLevel(), 0.0);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 2399, 1));
    peer.tick();
    QVERIFY(peer->rmsLevel() > 0.0);
    QVERIFY(peer->peakLevel() > 0.0);
}

void TestSpecEngineLevels::tickAt50msMeasuresTheNewestWindow()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer->setSmoothing(0.25);
    peer.feed(sound::pcm(sound::whiteNoise(1.0), 0, 5000));
    peer.feed(sound::pcm([](int, int) { return 0.5; }, 0, 2400));
    peer.tick();
    const double half = sound::quantised(0.5) / 32768.0;
    QCOMPARE(peer->rmsLevel(), half * 0.75);
    QCOMPARE(peer->peakLevel(), half * 0.75);
    peer.tick();
    QCOMPARE(peer->rmsLevel(), half * 0.75 + 0.25 * (half * 0.75));
}

void TestSpecEngineLevels::negativeSignalDecaysThePeakAndRaisesTheRms()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.2), 0, 2400));
    peer.tick();
    double peak = peer->peakLevel();
    double rms = peer->rmsLevel();
    QVERIFY(peak > 0.0);
    peer.feed(sound::pcm([](int, int) { return -0.9; }, 0, 2400));
    for (int i = 0; i < 5; ++i) {
        peer.tick();
        QCOMPARE(peer->peakLevel(), 0.08 * peak);
        QVERIFY(peer->rmsLevel() > rms);
        peak = peer->peakLevel();
        rms = peer->rmsLevel();
    }
}

void TestSpecEngineLevels::levelsWithoutAFormatDecay()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2400));
    QVERIFY(peer.tickAndWait());
    const double rms = peer->rmsLevel();
    const double peak = peer->peakLevel();
    peer.setFormat(0);
    peer.tick();
    QCOMPARE(peer->rmsLevel(), 0.08 * rms);
    QCOMPARE(peer->peakLevel(), 0.08 * peak);
}

void TestSpecEngineLevels::levelsConvergeWhenDataStops()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer->setSmoothing(0.5);
    peer.feed(sound::pcm([](int, int) { return 0.5; }, 0, 2400));
    const double half = sound::quantised(0.5) / 32768.0;
    double missing = half;
    for (int i = 0; i < 20; ++i) {
        peer.tick();
        missing *= 0.5;
        QVERIFY(std::fabs(half - peer->rmsLevel() - missing) < 1e-12);
        QVERIFY(std::fabs(half - peer->peakLevel() - missing) < 1e-12);
    }
}

void TestSpecEngineLevels::fullScaleSquareReachesFullScale()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer->setSmoothing(0.0);
    QByteArray data;
    for (int i = 0; i < 4800; ++i)
        data += i % 96 < 48 ? QByteArray("\xFF\x7F", 2) : QByteArray("\x00\x80", 2);
    peer.feed(data);
    peer.tick();
    QVERIFY(std::fabs(peer->rmsLevel() - 1.0) < 1e-4);
    QVERIFY(peer->rmsLevel() <= 1.0);
    QCOMPARE(peer->peakLevel(), 32767 / 32768.0);
}

void TestSpecEngineLevels::dynamicLevelAveragesFivePackets()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    const QByteArray quarter = sound::pcm([](int, int) { return 0.25; }, 0, 480);
    const double rms = sound::quantised(0.25) / 32768.0;
    // The mean over ten packets rises by a tenth of the level with each.
    double sum = 0.0;
    for (int packet = 1; packet <= 5; ++packet) {
        peer.feed(quarter);
        sum += (rms - rms * packet / 10.0) / (1.0 - rms);
        QVERIFY(std::fabs(peer->dynamicLevel() - sum / 5.0) < 1e-12);
    }
    for (int packet = 6; packet <= 20; ++packet)
        peer.feed(quarter);
    QVERIFY(std::fabs(peer->dynamicLevel()) < 1e-12);
    peer.feed(sound::pcm(sound::silence(), 0, 480)); // a fall counts as nothing
    QVERIFY(std::fabs(peer->dynamicLevel()) < 1e-12);
}

void TestSpecEngineLevels::dynamicLevelOfFullScalePacketsIsZero()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    QByteArray loudest;
    for (int i = 0; i < 960; ++i)
        loudest += QByteArray("\x00\x80", 2);
    peer.feed(loudest);
    QCOMPARE(peer->dynamicLevel(), 0.0);
}

/// A block that ends within a frame: the frame counts in full.
void TestSpecEngineLevels::dynamicLevelIsReadByFrames()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(QByteArray("\x00\x40", 2)); // 0.5 and a missing sample
    const double rms = std::sqrt(0.125);
    QVERIFY(std::fabs(peer->dynamicLevel() - (rms - rms / 10) / (1.0 - rms) / 5) < 1e-12);
}

QTEST_GUILESS_MAIN(TestSpecEngineLevels)
#include "tst_specengine_levels.moc"
