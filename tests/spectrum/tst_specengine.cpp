// The engine's buffer, its slots and its life; levels and hand-over have files of their own.
#include "platform/qtgeneration.h"
#include "tests/spectrum/enginetest.h"
#include "tests/spectrum/testsound.h"

#include <QtTest>

namespace {

QByteArray numbered(int frames, int first = 0)
{
    return sound::pcm([](int frame, int channel) { return (frame % 16000 + channel) / 32767.0; },
                      first, frames);
}

} // namespace

class TestSpecEngine : public SpecEngineTest {
    Q_OBJECT

private Q_SLOTS:
    void metaObjectIsAsDeclared();
    void registersItsMetaTypes();
    void fresh();

    void formatOf48kHz16BitStereo();
    void formatLengthsAreRoundedToWholeUnits();
    void incompleteFormatsMakeTheEngineIdle_data();
    void incompleteFormatsMakeTheEngineIdle();
    void formatTooLargeForTheBufferIsNoFormat();
    void formatTooLargeForTheBufferLeavesTheAnalyserIdle();
    void formatClearsTheBufferAndKeepsTheFillPosition();
    void formatOfAShorterBufferLeavesSilence();

    void dataBeforeAFormatIsDropped();
    void emptyDataIsIgnored();
    void dataIsAppended();
    void bufferIsCutBackBeforeDataIsAppended();
    void dataBeyondTheEndIsDropped();
    void bufferShorterThanABlockFillsUpAndStops();

    void barIndexSlot();
    void updateBarsSlot();
    void historyLengthOfAnyValueIsSafe_data();
    void historyLengthOfAnyValueIsSafe();
    void quantileOfAnyValueIsSafe();

    void startRunsTheTimerAndStopLeavesIt();
};

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
    QVERIFY(metaTypeNamed("FrequencySpectrum") != QMetaType::UnknownType);
    QVERIFY(metaTypeNamed("WindowFunction") != QMetaType::UnknownType);
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
    // Of an engine that nobody tunes.
    QCOMPARE(peer.quantile(), 0.85);
    QCOMPARE(peer.smoothing(), 0.08);
    QCOMPARE(peer.historyLength(), 7);
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
    QCOMPARE(peer.levelBufferLength(), 0LL);
    QCOMPARE(peer.analysisLength(), 8192);
    peer.feed(numbered(480));
    QCOMPARE(peer.bufferPosition(), 0LL);
    peer.setFormat(48000, 65535, 65535);
    QCOMPARE(peer.bufferLength(), 0LL);
    QCOMPARE(peer.analysisLength(), 0);
    peer.feed(numbered(480));
    QCOMPARE(peer.bufferPosition(), 0LL);
}

/// An empty block would keep the analyser busy for good.
void TestSpecEngine::formatTooLargeForTheBufferLeavesTheAnalyserIdle()
{
    SpecEnginePeer peer;
    peer.setFormat(-1);
    peer.tick();
    QVERIFY(peer.analyser().isReady());
    peer.setFormat(48000);
    for (int i = 0; i < 5; ++i)
        peer.feed(numbered(480));
    QVERIFY(peer.tickAndWait());
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
    QCOMPARE(peer.filled(), QByteArray(sound::kBlockBytes, '\0') + data);
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
    QCOMPARE(peer.bufferPosition(), 960000LL - sound::kBlockBytes);
    peer.feed(numbered(480, full - 2048));
    QCOMPARE(peer.bufferPosition(), static_cast<qint64>(sound::kBlockBytes + 1920));
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
    QCOMPARE(peer.filled(), numbered(240000).right(sound::kBlockBytes) + numbered(3));
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
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
    for (double quantile : {-kInfinity, -1.0, 0.0, 0.5, 1.0, 2.0, kInfinity, kNoNumber}) {
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
