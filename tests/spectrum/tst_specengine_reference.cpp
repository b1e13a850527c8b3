// The engine against a second implementation, from PCM packets to levels and bars.
#include "platform/deviceenumerator.h"
#include "tests/spectrum/enginepeer.h"
#include "tests/spectrum/reference.h"
#include "tests/spectrum/testsound.h"

#include <cmath>
#include <QtTest>
#include <random>

namespace {

struct Tuning {
    double smoothing = 0.08;
    int historyLength = 7;
    double quantile = 0.85;
};

constexpr Tuning kUntuned {};
constexpr Tuning kInUse {0.5, 10, 0.1};

struct Limits {
    int minimum;
    int maximum;
    int bars;
};
constexpr Limits kBandLimits[] = {{-7000, 7000, 100}, {-48000, 48000, 31}, {100, 20000, 67}};

/// One engine, its second implementation, and the same bands for both.
class Pair {
public:
    explicit Pair(const Tuning &tuning)
    {
        peer->setSmoothing(tuning.smoothing);
        peer->setHistoryLength(tuning.historyLength);
        peer->setQuantile(tuning.quantile);
        expected.smoothing = tuning.smoothing;
        expected.historyLength = tuning.historyLength;
        expected.quantile = tuning.quantile;
        for (const Limits &limits : kBandLimits) {
            bands.push_back(
                std::make_unique<Spectrum>(limits.minimum, limits.maximum, limits.bars));
            peer.addBand(bands.back().get());
            expected.bands.append(
                {limits.minimum, limits.maximum, QVector<float>(limits.bars, 0.0F)});
        }
    }

    double worstBar() const
    {
        double worst = 0.0;
        for (std::size_t b = 0; b < bands.size(); ++b) {
            const QVector<float> &wanted = expected.bands[static_cast<int>(b)].bars;
            for (int i = 0; i < wanted.size(); ++i)
                worst = std::fmax(
                    worst,
                    std::fabs(static_cast<double>(bands[b]->bars[static_cast<std::size_t>(i)])
                              - static_cast<double>(wanted[i])));
        }
        return worst;
    }
    double loudestBar() const
    {
        return static_cast<double>(*std::max_element(bands[0]->bars.begin(), bands[0]->bars.end()));
    }
    double worstLevel() const
    {
        return std::max({std::fabs(peer->rmsLevel() - expected.rmsLevel),
                         std::fabs(peer->peakLevel() - expected.peakLevel),
                         std::fabs(peer->dynamicLevel() - expected.dynamicLevel)});
    }

    SpecEnginePeer peer;
    reference::Engine expected;
    std::vector<std::unique_ptr<Spectrum>> bands;
};

WAVEFORMATEX pcmFormat(int rate, int channels)
{
    WAVEFORMATEX format {};
    format.nChannels = static_cast<WORD>(channels);
    format.nSamplesPerSec = static_cast<DWORD>(rate);
    format.wBitsPerSample = 16;
    return format;
}

} // namespace

Q_DECLARE_METATYPE(Tuning)
Q_DECLARE_METATYPE(sound::Source)

class TestSpecEngineReference : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void soundBecomesTheSameLevelsAndBars_data();
    void soundBecomesTheSameLevelsAndBars();
    void spectraArePostProcessedAlike_data();
    void spectraArePostProcessedAlike();
};

void TestSpecEngineReference::initTestCase()
{
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
}

void TestSpecEngineReference::soundBecomesTheSameLevelsAndBars_data()
{
    QTest::addColumn<sound::Source>("source");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("milliseconds");
    QTest::addColumn<double>("loudestBar"); // at least this loud at the end
    QTest::addColumn<Tuning>("tuning");

    const auto row = [](const char *name, const sound::Source &source, double loudest,
                        int rate = 48000, int channels = 2, int milliseconds = 400) {
        QTest::newRow(name) << source << rate << channels << milliseconds << loudest << kInUse;
        QTest::newRow(QByteArray(name) + ", untuned")
            << source << rate << channels << milliseconds << 0.0 << kUntuned;
    };
    row("tone", sound::sine(1000, 0.5), 0.2);
    row("tone at 44.1 kHz", sound::sine(1000, 0.5, 44100), 0.2, 44100);
    row("tone at 96 kHz", sound::sine(1000, 0.5, 96000), 0.2, 96000);
    row("white noise", sound::whiteNoise(0.5), 0.2);
    row("quiet noise", sound::whiteNoise(0.01), 0.0);
    row("silence", sound::silence(), 0.0);
    row("full-scale square", sound::square(96, 1.0), 0.2);
    row("left only", sound::only(0, sound::sine(1000, 0.5)), 0.2);
    row("right only", sound::only(1, sound::sine(1000, 0.5)), 0.2);
    row("mono", sound::sine(440, 0.7), 0.2, 48000, 1);
    row("level step", sound::step(10000, sound::sine(1000, 0.05), sound::sine(1000, 0.9)), 0.2);
    row("level drop", sound::step(10000, sound::whiteNoise(0.9), sound::silence()), 0.0);
    const sound::Source quiet = sound::sine(440, 0.3);
    QTest::newRow("longer than the buffer") << quiet << 48000 << 2 << 6000 << 0.2 << kInUse;
}

void TestSpecEngineReference::soundBecomesTheSameLevelsAndBars()
{
    QFETCH(sound::Source, source);
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(int, milliseconds);
    QFETCH(double, loudestBar);
    QFETCH(Tuning, tuning);

    Pair pair(tuning);
    pair.peer.setFormat(rate, channels);
    pair.expected.formatChanged(pcmFormat(rate, channels));
    QVector<reference::Point> points(2048);
    double worstBar = 0.0;
    double worstLevel = 0.0;

    // Packets of 10 ms, a tick every 17 ms.
    int nextTick = 17;
    for (int now = 10; now <= milliseconds; now += 10) {
        const QByteArray packet =
            sound::pcm(source, rate / 100 * (now / 10 - 1), rate / 100, channels);
        pair.peer.feed(packet);
        pair.expected.notifyData(packet);
        if (now < nextTick)
            continue;
        nextTick += 17;

        QVERIFY(pair.peer.tickAndWait());
        pair.expected.tickLevels();
        if (pair.expected.buffer.size() >= pair.expected.blockBytes) {
            reference::analyse(pair.expected.block(), rate, channels, points);
            pair.expected.spectrumChanged(points);
        }
        QCOMPARE(pair.peer.filled(), pair.expected.buffer);
        worstBar = std::fmax(worstBar, pair.worstBar());
        worstLevel = std::fmax(worstLevel, pair.worstLevel());
    }
    // Bars differ by what single precision makes of the transform, levels by rounding only.
    QVERIFY2(worstBar < 2e-4, qPrintable(QString::number(worstBar)));
    QVERIFY2(worstLevel < 1e-10, qPrintable(QString::number(worstLevel)));
    QVERIFY2(pair.loudestBar() >= loudestBar, qPrintable(QString::number(pair.loudestBar())));
}

void TestSpecEngineReference::spectraArePostProcessedAlike_data()
{
    QTest::addColumn<Tuning>("tuning");
    QTest::addColumn<int>("count");
    QTest::newRow("in use") << kInUse << 2048;
    QTest::newRow("untuned") << kUntuned << 2048;
    QTest::newRow("no smoothing, no average") << Tuning {0.0, 0, 0.5} << 2048;
    QTest::newRow("wide average") << Tuning {0.9, 501, 1.0} << 2048;
    QTest::newRow("few points") << Tuning {0.3, 4, 0.0} << 11;
    QTest::newRow("no point") << kInUse << 0;
}

/// The same spectra for both, so that nothing but rounding can differ.
void TestSpecEngineReference::spectraArePostProcessedAlike()
{
    QFETCH(Tuning, tuning);
    QFETCH(int, count);
    Pair pair(tuning);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    double worst = 0.0;
    for (int round = 0; round < 60; ++round) {
        FrequencySpectrum spectrum(count);
        QVector<reference::Point> points(count);
        const double loudness = round % 20 < 15 ? uniform(random) : 0.0;
        for (int i = 0; i < count; ++i) {
            const int bin = i - count / 2;
            spectrum[i].frequency = points[i].frequency = bin * 46.875;
            const double value = std::max(0.0, uniform(random) * 1.2 - 0.2) * loudness;
            spectrum[i].amplitude = points[i].amplitude = value;
        }
        pair.peer.setSpectrum(spectrum);
        pair.expected.spectrumChanged(points);
        for (int i = 0; i < count; ++i)
            worst = std::fmax(
                worst,
                std::fabs(pair.peer.spectrum()[i].amplitude - pair.expected.spectrum[i].amplitude));
        worst = std::fmax(worst, pair.worstBar());
        QCOMPARE(pair.peer.gainReference(), pair.expected.gainReference);
    }
    QVERIFY2(worst < 1e-9, qPrintable(QString::number(worst)));
}

QTEST_GUILESS_MAIN(TestSpecEngineReference)
#include "tst_specengine_reference.moc"
