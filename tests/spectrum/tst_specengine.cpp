#include "platform/deviceenumerator.h"
#include "report/deliverreport.h"
#include "tests/spectrum/enginepeer.h"
#include "tests/spectrum/testsound.h"
#include "tests/spectrum/workerthread.h"

#include <atomic>
#include <cmath>
#include <functional>
#include <QtTest>

namespace {

constexpr int kBlockBytes = 2048 * 4;

QByteArray numbered(int frames, int first = 0)
{
    return sound::pcm([](int frame, int channel) { return (frame % 16000 + channel) / 32767.0; },
                      first, frames);
}

/// How many spectra the worker makes of what `action` hands it.
int calculations(const SpecEnginePeer &peer, const std::function<void()> &action)
{
    std::atomic<int> count {0};
    SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(peer.analyser());
    const auto connection = QObject::connect(worker, &SpectrumAnalyserThread::calculationComplete,
                                             worker, [&count] { ++count; });
    action();
    runThere(worker, [] {}); // what was handed over before has been calculated now
    QObject::disconnect(connection);
    return count;
}

} // namespace

class TestSpecEngine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void metaObjectIsAsDeclared();
    void registersItsMetaTypes();
    void fresh();

    void formatOf48kHz16BitStereo();
    void formatLengthsAreRoundedToWholeUnits();
    void incompleteFormatsMakeTheEngineIdle_data();
    void incompleteFormatsMakeTheEngineIdle();
    void formatTooLargeForTheBufferIsNoFormat();
    void formatClearsTheBufferAndKeepsTheFillPosition();
    void formatOfAShorterBufferLeavesSilence();

    void dataBeforeAFormatIsDropped();
    void emptyDataIsIgnored();
    void dataIsAppended();
    void bufferIsCutBackBeforeDataIsAppended();
    void dataBeyondTheEndIsDropped();
    void bufferShorterThanABlockFillsUpAndStops();

    void tickBelow50msLeavesTheLevels();
    void tickAt50msMeasuresTheNewestWindow();
    void negativeSignalDecaysThePeakAndRaisesTheRms();
    void levelsWithoutAFormatDecay();
    void levelsConvergeWhenDataStops();
    void fullScaleSquareReachesFullScale();
    void dynamicLevelAveragesFivePackets();
    void dynamicLevelOfFullScalePacketsIsZero();
    void dynamicLevelIsReadByFrames();

    void tickBelowOneBlockOffersNothing();
    void tickOffersNothingWhileTheAnalyserIsBusy();
    void newestBlockIsAnalysed();
    void unchangedBlockIsAnalysedAgain();
    void blockIsAnalysedAsItWasAtTheHandOver();
    void tickBeforeAFormatKeepsTheAnalyserBusy();

    void barIndexSlot();
    void updateBarsSlot();
    void historyLengthOfAnyValueIsSafe_data();
    void historyLengthOfAnyValueIsSafe();
    void quantileOfAnyValueIsSafe();

    void startRunsTheTimerAndStopLeavesIt();
};

void TestSpecEngine::initTestCase()
{
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
    setReportSink([](const QString &) {});
}

void TestSpecEngine::cleanupTestCase()
{
    setReportSink(nullptr);
    setDeviceEnumeratorFactory(nullptr);
}

void TestSpecEngine::metaObjectIsAsDeclared()
{
    const QMetaObject &meta = SpecEngine::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(methods,
             (QStringList {QStringLiteral("levelChanged(double,double,int)"),
                           QStringLiteral("spectrumChanged(FrequencySpectrum)"),
                           QStringLiteral("barIndex(double,Spectrum)"),
                           QStringLiteral("updateBars()")}));
}

void TestSpecEngine::registersItsMetaTypes()
{
    const SpecEnginePeer peer;
    QVERIFY(QMetaType::type("FrequencySpectrum") != QMetaType::UnknownType);
    QVERIFY(QMetaType::type("WindowFunction") != QMetaType::UnknownType);
}

void TestSpecEngine::fresh()
{
    const SpecEnginePeer peer;
    QCOMPARE(peer->rmsLevel(), 0.0);
    QCOMPARE(peer->peakLevel(), 0.0);
    QCOMPARE(peer->dynamicLevel(), 0.0);
    QCOMPARE(peer.spectrum().count(), 0);
    QCOMPARE(peer.timer().interval(), 17);
    QVERIFY(!peer.timer().isActive());
    QVERIFY(!peer->isCapturing());
    QCOMPARE(peer->deviceList(), QStringList());
}

void TestSpecEngine::formatOf48kHz16BitStereo()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    QCOMPARE(peer.analysisLength(), 8192);
    QCOMPARE(peer.bufferLength(), 960000LL);
    QCOMPARE(peer.levelBufferLength(), 9600LL);
    QCOMPARE(peer.bufferSize(), 960000);
    QCOMPARE(peer.bufferPosition(), 0LL);
}

void TestSpecEngine::formatLengthsAreRoundedToWholeUnits()
{
    SpecEnginePeer peer;
    peer.setFormat(11025); // 50 ms are 2205 bytes
    QCOMPARE(peer.levelBufferLength(), 2204LL);
    QCOMPARE(peer.bufferLength(), 220500LL);
    peer.setFormat(1000, 2, 12); // 2 bytes a frame by whole bytes, 3 by bits
    QCOMPARE(peer.analysisLength(), 4096);
    QCOMPARE(peer.bufferLength(), 9999LL);
    QCOMPARE(peer.levelBufferLength(), 99LL);
}

void TestSpecEngine::incompleteFormatsMakeTheEngineIdle_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("bits");
    QTest::addColumn<int>("analysisLength");
    QTest::newRow("no rate") << 0 << 2 << 16 << 8192;
    QTest::newRow("no channels") << 48000 << 0 << 16 << 0;
    QTest::newRow("no bits") << 48000 << 2 << 0 << 0;
    QTest::newRow("less than a byte a sample") << 48000 << 2 << 7 << 0;
}

void TestSpecEngine::incompleteFormatsMakeTheEngineIdle()
{
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(int, bits);
    QFETCH(int, analysisLength);
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.setFormat(rate, channels, bits);
    QCOMPARE(peer.analysisLength(), analysisLength);
    QCOMPARE(peer.bufferLength(), 0LL);
    QCOMPARE(peer.levelBufferLength(), 0LL);
    peer.feed(numbered(480));
    QCOMPARE(peer.bufferPosition(), 0LL);
    QCOMPARE(peer->dynamicLevel(), 0.0);
}

void TestSpecEngine::formatTooLargeForTheBufferIsNoFormat()
{
    SpecEnginePeer peer;
    peer.setFormat(-1); // 2^32 - 1 Hz
    QCOMPARE(peer.bufferLength(), 0LL);
    QCOMPARE(peer.analysisLength(), 0);
    peer.setFormat(48000, 65535, 65535);
    QCOMPARE(peer.bufferLength(), 0LL);
    QCOMPARE(peer.analysisLength(), 0);
    peer.feed(numbered(480));
    QCOMPARE(peer.bufferPosition(), 0LL);
}

void TestSpecEngine::formatClearsTheBufferAndKeepsTheFillPosition()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(numbered(480));
    peer.setFormat(44100);
    QCOMPARE(peer.bufferSize(), 882000);
    QCOMPARE(peer.bufferPosition(), 1920LL);
    QCOMPARE(peer.filled(), QByteArray(1920, '\0'));
}

/// The fill position may lie behind the end of the new buffer.
void TestSpecEngine::formatOfAShorterBufferLeavesSilence()
{
    SpecEnginePeer peer;
    peer.setFormat(96000);
    for (int i = 0; i < 450; ++i)
        peer.feed(numbered(960));
    QVERIFY(peer.bufferPosition() > 882000);
    const qint64 position = peer.bufferPosition();
    peer.setFormat(44100);
    QCOMPARE(peer.bufferPosition(), position);
    QVERIFY(peer.tickAndWait());
    QCOMPARE(peer->rmsLevel(), 0.0);
    for (const FrequencySpectrum::Element &point : peer.spectrum())
        QCOMPARE(point.amplitude, 0.0);

    const QByteArray data = numbered(441);
    peer.feed(data);
    QCOMPARE(peer.filled(), QByteArray(kBlockBytes, '\0') + data);
}

void TestSpecEngine::dataBeforeAFormatIsDropped()
{
    SpecEnginePeer peer;
    peer.feed(numbered(480));
    QCOMPARE(peer.bufferPosition(), 0LL);
    QCOMPARE(peer->dynamicLevel(), 0.0);
}

void TestSpecEngine::emptyDataIsIgnored()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 480));
    const double dynamic = peer->dynamicLevel();
    QVERIFY(dynamic > 0.0);
    peer.feed(QByteArray());
    QCOMPARE(peer.bufferPosition(), 1920LL);
    QCOMPARE(peer->dynamicLevel(), dynamic);
}

void TestSpecEngine::dataIsAppended()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(numbered(480));
    peer.feed(numbered(1, 480));
    peer.feed(numbered(2000, 481));
    QCOMPARE(peer.filled(), numbered(2481));
}

void TestSpecEngine::bufferIsCutBackBeforeDataIsAppended()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    const int full = 240000;
    // One frame short of the point where less than one block is free.
    peer.feed(numbered(full - 2048 - 1));
    peer.feed(numbered(1, full - 2049));
    QCOMPARE(peer.bufferPosition(), 960000LL - kBlockBytes);
    peer.feed(numbered(480, full - 2048));
    QCOMPARE(peer.bufferPosition(), static_cast<qint64>(kBlockBytes + 1920));
    QCOMPARE(peer.filled(), numbered(2048 + 480, full - 4096));
}

void TestSpecEngine::dataBeyondTheEndIsDropped()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(numbered(1000));
    peer.feed(numbered(250000, 1000));
    QCOMPARE(peer.bufferPosition(), 960000LL);
    QCOMPARE(peer.filled(), numbered(240000));
    peer.feed(numbered(3));
    QCOMPARE(peer.filled(), numbered(240000).right(kBlockBytes) + numbered(3));
}

void TestSpecEngine::bufferShorterThanABlockFillsUpAndStops()
{
    SpecEnginePeer peer;
    peer.setFormat(100); // 500 frames
    peer.feed(numbered(300));
    peer.feed(numbered(300, 300));
    QCOMPARE(peer.filled(), numbered(500));
    peer.feed(numbered(300));
    QCOMPARE(peer.filled(), numbered(500));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
}

void TestSpecEngine::tickBelow50msLeavesTheLevels()
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

void TestSpecEngine::tickAt50msMeasuresTheNewestWindow()
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

void TestSpecEngine::negativeSignalDecaysThePeakAndRaisesTheRms()
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

void TestSpecEngine::levelsWithoutAFormatDecay()
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

void TestSpecEngine::levelsConvergeWhenDataStops()
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

void TestSpecEngine::fullScaleSquareReachesFullScale()
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

void TestSpecEngine::dynamicLevelAveragesFivePackets()
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

void TestSpecEngine::dynamicLevelOfFullScalePacketsIsZero()
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
void TestSpecEngine::dynamicLevelIsReadByFrames()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(QByteArray("\x00\x40", 2)); // 0.5 and a missing sample
    const double rms = std::sqrt(0.125);
    QVERIFY(std::fabs(peer->dynamicLevel() - (rms - rms / 10) / (1.0 - rms) / 5) < 1e-12);
}

void TestSpecEngine::tickBelowOneBlockOffersNothing()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2047));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(peer.analyser().isReady());
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 2047, 1));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 1);
}

void TestSpecEngine::tickOffersNothingWhileTheAnalyserIsBusy()
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

void TestSpecEngine::newestBlockIsAnalysed()
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

void TestSpecEngine::unchangedBlockIsAnalysedAgain()
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
void TestSpecEngine::blockIsAnalysedAsItWasAtTheHandOver()
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

void TestSpecEngine::tickBeforeAFormatKeepsTheAnalyserBusy()
{
    SpecEnginePeer peer;
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(!peer.analyser().isReady());
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2400));
    QCOMPARE(calculations(peer, [&] { peer.tick(); }), 0);
    QVERIFY(peer->rmsLevel() > 0.0); // the levels go on
}

void TestSpecEngine::barIndexSlot()
{
    const SpecEnginePeer peer;
    const Spectrum band(-7000, 7000, 100);
    int index = -1;
    QVERIFY(QMetaObject::invokeMethod(peer.get(), "barIndex", Q_RETURN_ARG(int, index),
                                      Q_ARG(double, -2000.0), Q_ARG(Spectrum, band)));
    QCOMPARE(index, 35);
    QVERIFY(QMetaObject::invokeMethod(peer.get(), "barIndex", Q_RETURN_ARG(int, index),
                                      Q_ARG(double, 1e9), Q_ARG(Spectrum, band)));
    QCOMPARE(index, 99);
    QVERIFY(QMetaObject::invokeMethod(peer.get(), "barIndex", Q_RETURN_ARG(int, index),
                                      Q_ARG(double, -1e9), Q_ARG(Spectrum, band)));
    QCOMPARE(index, 0);
}

void TestSpecEngine::updateBarsSlot()
{
    SpecEnginePeer peer;
    Spectrum band(0, 100, 2);
    peer.addBand(&band);
    band.bars = {5.0F, 6.0F};
    QVERIFY(QMetaObject::invokeMethod(peer.get(), "updateBars"));
    QCOMPARE(band.bars, (std::vector<float> {0.0F, 0.0F}));
}

void TestSpecEngine::historyLengthOfAnyValueIsSafe_data()
{
    QTest::addColumn<int>("length");
    for (int length : {-1, 0, 1, 2, 7, 10, 2047, 2048, 2049, 5000})
        QTest::addRow("%d", length) << length;
}

void TestSpecEngine::historyLengthOfAnyValueIsSafe()
{
    QFETCH(int, length);
    SpecEnginePeer peer;
    peer->setHistoryLength(length);
    FrequencySpectrum spectrum(2048);
    spectrum[900].amplitude = 0.5;
    peer.setSpectrum(spectrum);
    QCOMPARE(peer.spectrum().count(), 2048);
    const double last = peer.spectrum()[2047].amplitude;
    QVERIFY(last == 0.0 || length == 1);
    peer.setSpectrum(FrequencySpectrum());
    QCOMPARE(peer.spectrum().count(), 0);
}

void TestSpecEngine::quantileOfAnyValueIsSafe()
{
    for (double quantile : {-1.0, 0.0, 0.5, 1.0, 2.0}) {
        SpecEnginePeer peer;
        peer->setQuantile(quantile);
        FrequencySpectrum spectrum(3);
        spectrum[0].amplitude = 0.25;
        spectrum[1].amplitude = 0.5;
        spectrum[2].amplitude = 0.75;
        peer->setHistoryLength(0);
        peer.setSpectrum(spectrum);
        for (const FrequencySpectrum::Element &point : peer.spectrum())
            QVERIFY(std::isfinite(point.amplitude) && point.amplitude >= 0.0);
    }
}

void TestSpecEngine::startRunsTheTimerAndStopLeavesIt()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    peer.feed(sound::pcm(sound::sine(1000, 0.5), 0, 2400));
    peer->start(); // fails for want of an audio system, and goes on
    QVERIFY(peer.timer().isActive());
    QVERIFY(!peer.timer().isSingleShot());
    QTRY_VERIFY(peer->rmsLevel() > 0.3);
    peer->stop();
    QVERIFY(peer.timer().isActive());
    const double reference = peer.gainReference();
    QTRY_VERIFY(peer.gainReference() != reference); // the last block is analysed again
    const double level = peer->rmsLevel();
    QVERIFY2(level > 0.3, qPrintable(QString::number(level))); // and the last 50 ms measured
}

QTEST_GUILESS_MAIN(TestSpecEngine)
#include "tst_specengine.moc"
