// The block that the engine hands to the analyser at a tick.
#include "tests/spectrum/enginetest.h"
#include "tests/spectrum/testsound.h"
#include "tests/spectrum/workerthread.h"

#include <algorithm>
#include <QtTest>

class TestSpecEngineHandOver : public SpecEngineTest {
    Q_OBJECT

private Q_SLOTS:
    void tickBelowOneBlockOffersNothing();
    void tickOffersNothingWhileTheAnalyserIsBusy();
    void newestBlockIsAnalysed();
    void unchangedBlockIsAnalysedAgain();
    void blockIsAnalysedAsItWasAtTheHandOver();
    void tickBeforeAFormatKeepsTheAnalyserBusy();
};

void TestSpecEngineHandOver::tickBelowOneBlockOffersNothing()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2047));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(peer.analyser().isReady());
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 2047, 1));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 1);
}

void TestSpecEngineHandOver::tickOffersNothingWhileTheAnalyserIsBusy()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2048));
    QCOMPARE(calculations(peer,
                          [&] {
                              for (int i = 0; i < 10; ++i)
                                  peer.tick();
                          }),
             1);
    QVERIFY(!peer.analyser().isReady());
    QTRY_VERIFY(peer.analyser().isReady());
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 1);
}

void TestSpecEngineHandOver::newestBlockIsAnalysed()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(10000, 0.5), 0, 3000));
    peer.feed(sound::pcm(sound::sine(46.875 / 2 * 64, 0.5), 0, 2048));
    Spectrum band(-48000, 48000, 1024);
    peer.addBand(&band);
    QVERIFY(peer.tickAndWait());
    const auto loudest = std::max_element(band.bars.begin(), band.bars.end()) - band.bars.begin();
    // 1500 Hz is labelled -/+ 3000 Hz; bars are 93 Hz wide.
    const auto expected = loudest < 512 ? (48000 - 3000) / 93 : (48000 + 3000) / 93;
    QVERIFY2(std::abs(loudest - expected) <= 4, qPrintable(QString::number(loudest)));
}

void TestSpecEngineHandOver::unchangedBlockIsAnalysedAgain()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2400));
    double reference = 0.0;
    for (int i = 0; i < 5; ++i) {
        QVERIFY(peer.tickAndWait());
        QVERIFY(peer.gainReference() > reference);
        reference = peer.gainReference();
    }
}

/// Data that arrives while the worker waits cuts the buffer back and moves the bytes of the block.
void TestSpecEngineHandOver::blockIsAnalysedAsItWasAtTheHandOver()
{
    FrequencySpectrum spectra[2];
    for (FrequencySpectrum &spectrum : spectra) {
        SpecEnginePeer peer;
        peer.setFormat(48000);
        peer.feed(sound::pcm(sound::silence(), 0, 240000 - 2048));
        peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2048));
        SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(peer.analyser());
        Gate gate(worker);
        peer.tick();
        if (&spectrum == &spectra[1]) {
            for (int i = 0; i < 100; ++i)
                peer.feed(sound::pcm(sound::whiteNoise(1.0), 0, 2400));
            peer.setFormat(8000);
        }
        gate.open();
        QTRY_VERIFY(peer.analyser().isReady());
        spectrum = peer.spectrum();
    }
    QCOMPARE(spectra[0].count(), 2048);
    QCOMPARE(spectra[1].count(), 2048);
    for (int i = 0; i < 2048; ++i) {
        QCOMPARE(spectra[1][i].amplitude, spectra[0][i].amplitude);
        QCOMPARE(spectra[1][i].frequency, spectra[0][i].frequency);
    }
}

void TestSpecEngineHandOver::tickBeforeAFormatKeepsTheAnalyserBusy()
{
    SpecEnginePeer peer;
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(!peer.analyser().isReady());
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2400));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(peer->rmsLevel() > 0.0); // the levels go on
}

QTEST_GUILESS_MAIN(TestSpecEngineHandOver)
#include "tst_specengine_handover.moc"
