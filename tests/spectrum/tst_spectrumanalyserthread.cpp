// What the analysis worker computes of a block, and refuses.
#include "tests/spectrum/analyserlog.h"
#include "tests/spectrum/analyserpeers.h"
#include "tests/spectrum/logcapture.h"
#include "tests/spectrum/reference.h"
#include "tests/spectrum/testsound.h"
#include "tests/spectrum/workerthread.h"

#include <algorithm>
#include <cmath>
#include <QPointer>
#include <QThread>
#include <QtTest>
#include <utility>

namespace {

/// A worker that ends with its scope, and the spectra that it has emitted.
class Worker {
public:
    Worker()
        : m_worker(new SpectrumAnalyserThread(nullptr))
        , m_thread(m_worker->thread())
    {
        QObject::connect(m_worker, &SpectrumAnalyserThread::calculationComplete, m_worker,
                         [this](FrequencySpectrum spectrum) { spectra.append(spectrum); });
    }
    ~Worker()
    {
        m_worker->deleteLater();
        while (m_thread)
            QTest::qWait(1);
    }

    void calculate(const QByteArray &buffer, int rate = 48000, int bits = 16, int channels = 2)
    {
        runThere(m_worker, [&] { m_worker->calculateSpectrum(buffer, rate, bits, channels); });
    }
    void setWindow(int type)
    {
        runThere(m_worker, [&] { m_worker->setWindowFunction(static_cast<WindowFunction>(type)); });
    }
    SpectrumAnalyserThread &operator*() const { return *m_worker; }

    QList<FrequencySpectrum> spectra;

private:
    SpectrumAnalyserThread *m_worker;
    QPointer<QThread> m_thread;
};

} // namespace

class TestSpectrumAnalyserThread : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void windowWeights_data();
    void windowWeights();
    void gaussianWindowIsInForceFromTheStart();
    void noWindowMakesEveryWeightOne();
    void windowValueAboveEightMakesEveryAmplitudeZero();
    void matchesTheReference_data();
    void matchesTheReference();
    void monoFillsTheFirstHalfAndKeepsTheSecond();
    void threeChannelsFillTheFirstHalfOnly();
    void secondChannelIsReadTwoBytesIntoEachFrame();
    void strideFollowsBitsPerSample();
    void onlyTheFirst2048FramesCount();
    void labelsStepAt48kHzAndReachTheEnds();
    void labelsFollowTheRateOfEachChannel();
    void labelProductWrapsAround();
    void silenceGivesZeroAndNotClipped();
    void fullScaleSineAtABinCentreIsClipped();
    void binZeroCombinesDcAndNyquist();
    void amplitudeCurveStartsAtMagnitudeOne();
    void oneByteShortIsNotEnoughData();
    void bitsBelowEightIsNotEnoughData();
    void invalidParametersAreLogged_data();
    void invalidParametersAreLogged();
    void emittedSpectrumStaysWhenTheNextIsCalculated();
    void destroyingTheWorkerEndsItsThread();
    void threadThatEndedFirstIsTheWorkersToDelete();
};

void TestSpectrumAnalyserThread::initTestCase()
{
    qRegisterMetaType<FrequencySpectrum>("FrequencySpectrum");
    qRegisterMetaType<WindowFunction>("WindowFunction");
}

void TestSpectrumAnalyserThread::windowWeights_data()
{
    QTest::addColumn<int>("type");
    for (int type = 0; type <= 10; ++type)
        QTest::addRow("%d", type) << type;
    QTest::addRow("negative") << -1;
}

void TestSpectrumAnalyserThread::windowWeights()
{
    QFETCH(int, type);
    Worker worker;
    worker.setWindow(type);
    const std::vector<float> &window = SpectrumAnalyserThreadPeer::window(*worker);
    QCOMPARE(window.size(), static_cast<std::size_t>(2048));
    for (int n = 0; n < 2048; ++n) {
        const double expected = reference::windowWeight(type, n);
        QVERIFY2(std::fabs(static_cast<double>(window[static_cast<std::size_t>(n)]) - expected)
                     < 7e-8,
                 qPrintable(QStringLiteral("weight %1").arg(n)));
    }
}

void TestSpectrumAnalyserThread::gaussianWindowIsInForceFromTheStart()
{
    const Worker worker;
    const std::vector<float> &window = SpectrumAnalyserThreadPeer::window(*worker);
    // To the last bit, which a square in double precision changes in some of them.
    for (int n = 0; n < 2048; ++n) {
        QVERIFY2(window[static_cast<std::size_t>(n)]
                     == static_cast<float>(reference::windowWeight(1, n)),
                 qPrintable(QStringLiteral("weight %1").arg(n)));
    }
}

void TestSpectrumAnalyserThread::noWindowMakesEveryWeightOne()
{
    Worker worker;
    worker.setWindow(0);
    for (float weight : SpectrumAnalyserThreadPeer::window(*worker))
        QCOMPARE(weight, 1.0F);
}

void TestSpectrumAnalyserThread::windowValueAboveEightMakesEveryAmplitudeZero()
{
    Worker worker;
    worker.setWindow(9);
    for (float weight : SpectrumAnalyserThreadPeer::window(*worker))
        QCOMPARE(weight, 0.0F);
    for (int i = 0; i < 2; ++i)
        worker.calculate(sound::pcm(sound::whiteNoise(1.0), 0, 2048));
    QCOMPARE(worker.spectra.size(), 2);
    for (const FrequencySpectrum &spectrum : std::as_const(worker.spectra)) {
        for (const FrequencySpectrum::Element &point : spectrum)
            QCOMPARE(point.amplitude, 0.0);
    }
}

void TestSpectrumAnalyserThread::matchesTheReference_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    QTest::newRow("tone 48 kHz") << sound::pcm(sound::sine(1000, 0.5), 0, 2048) << 48000 << 2;
    QTest::newRow("tone 44.1 kHz")
        << sound::pcm(sound::sine(1000, 0.5, 44100), 0, 2048) << 44100 << 2;
    QTest::newRow("tone 96 kHz") << sound::pcm(sound::sine(1000, 0.5, 96000), 0, 2048) << 96000
                                 << 2;
    QTest::newRow("noise") << sound::pcm(sound::whiteNoise(1.0), 0, 2048) << 48000 << 2;
    QTest::newRow("quiet noise") << sound::pcm(sound::whiteNoise(0.01), 0, 2048) << 48000 << 2;
    QTest::newRow("square") << sound::pcm(sound::square(96, 1.0), 0, 2048) << 48000 << 2;
    QTest::newRow("left only") << sound::pcm(sound::only(0, sound::sine(3000, 0.9)), 0, 2048)
                               << 48000 << 2;
    QTest::newRow("right only") << sound::pcm(sound::only(1, sound::sine(3000, 0.9)), 0, 2048)
                                << 48000 << 2;
    QTest::newRow("mono") << sound::pcm(sound::whiteNoise(0.3), 0, 2048, 1) << 48000 << 1;
}

void TestSpectrumAnalyserThread::matchesTheReference()
{
    QFETCH(QByteArray, block);
    QFETCH(int, rate);
    QFETCH(int, channels);
    Worker worker;
    worker.calculate(block, rate, 16, channels);
    QCOMPARE(worker.spectra.size(), 1);
    const FrequencySpectrum spectrum = worker.spectra.first();
    QVector<reference::Point> expected;
    reference::analyse(block, rate, channels, expected);
    QCOMPARE(spectrum.count(), 2048);
    for (int i = 0; i < 2048; ++i) {
        const QByteArray where = QByteArray::number(i);
        QCOMPARE(spectrum[i].frequency, expected[i].frequency);
        QVERIFY2(std::fabs(spectrum[i].amplitude - expected[i].amplitude) < 2e-5, where);
        QVERIFY2(spectrum[i].clipped == expected[i].clipped, where);
    }
}

void TestSpectrumAnalyserThread::monoFillsTheFirstHalfAndKeepsTheSecond()
{
    Worker worker;
    const QByteArray mono = sound::pcm(sound::sine(4000, 0.8), 0, 2048, 1);
    worker.calculate(mono, 48000, 16, 1);
    worker.calculate(sound::pcm(sound::whiteNoise(0.5), 0, 2048));
    worker.calculate(mono, 48000, 16, 1);
    QCOMPARE(worker.spectra.size(), 3);
    const FrequencySpectrum first = worker.spectra[0];
    const FrequencySpectrum stereo = worker.spectra[1];
    const FrequencySpectrum last = worker.spectra[2];
    double loudest = 0.0;
    for (int i = 0; i < 1024; ++i) {
        QCOMPARE(last[i].amplitude, first[i].amplitude);
        loudest = std::max(loudest, last[i].amplitude);
        QCOMPARE(first[1024 + i].frequency, 0.0);
        QCOMPARE(first[1024 + i].amplitude, 0.0);
        QCOMPARE(last[1024 + i].frequency, stereo[1024 + i].frequency);
        QCOMPARE(last[1024 + i].amplitude, stereo[1024 + i].amplitude);
    }
    QVERIFY(loudest > 0.5);
    QVERIFY(stereo[1500].amplitude > 0.0);
}

void TestSpectrumAnalyserThread::threeChannelsFillTheFirstHalfOnly()
{
    Worker worker;
    worker.calculate(sound::pcm(sound::sine(4000, 0.8), 0, 2048, 3), 48000, 16, 3);
    worker.calculate(sound::pcm(sound::sine(4000, 0.8), 0, 2048, 1), 48000, 16, 1);
    QCOMPARE(worker.spectra.size(), 2);
    for (int i = 0; i < 2048; ++i)
        QCOMPARE(worker.spectra[0][i].amplitude, worker.spectra[1][i].amplitude);
    QCOMPARE(worker.spectra[0][2047].frequency, 0.0);
}

void TestSpectrumAnalyserThread::secondChannelIsReadTwoBytesIntoEachFrame()
{
    Worker worker;
    const auto left = sound::sine(2000, 0.7);
    const auto right = sound::whiteNoise(0.2);
    worker.calculate(sound::pcm(
        [&](int frame, int channel) { return channel == 0 ? left(frame, 0) : right(frame, 0); }, 0,
        2048));
    worker.calculate(sound::pcm(left, 0, 2048, 1), 48000, 16, 1);
    worker.calculate(sound::pcm(right, 0, 2048, 1), 48000, 16, 1);
    QCOMPARE(worker.spectra.size(), 3);
    for (int bin = 0; bin < 1024; ++bin) {
        QCOMPARE(worker.spectra[0][1023 - bin].amplitude, worker.spectra[1][1023 - bin].amplitude);
        QCOMPARE(worker.spectra[0][1024 + bin].amplitude, worker.spectra[2][1023 - bin].amplitude);
        QCOMPARE(worker.spectra[0][1024 + bin].frequency, -worker.spectra[2][1023 - bin].frequency);
    }
}

/// 32 bits a sample: 16 are read, at the start of the frame and in its middle.
void TestSpectrumAnalyserThread::strideFollowsBitsPerSample()
{
    Worker worker;
    const QByteArray narrow = sound::pcm(sound::whiteNoise(0.5), 0, 2048);
    QByteArray wide;
    for (int sample = 0; sample < narrow.size() / 2; ++sample)
        wide += narrow.mid(2 * sample, 2) + QByteArrayLiteral("\x55\xAA");
    worker.calculate(narrow);
    worker.calculate(wide, 48000, 32, 2);
    QCOMPARE(worker.spectra.size(), 2);
    for (int i = 0; i < 2048; ++i)
        QCOMPARE(worker.spectra[1][i].amplitude, worker.spectra[0][i].amplitude);
}

void TestSpectrumAnalyserThread::onlyTheFirst2048FramesCount()
{
    Worker worker;
    const QByteArray block = sound::pcm(sound::sine(1000, 0.5), 0, 2048);
    worker.calculate(block);
    worker.calculate(block + sound::pcm(sound::whiteNoise(1.0), 0, 777));
    QCOMPARE(worker.spectra.size(), 2);
    for (int i = 0; i < 2048; ++i)
        QCOMPARE(worker.spectra[1][i].amplitude, worker.spectra[0][i].amplitude);
}

void TestSpectrumAnalyserThread::labelsStepAt48kHzAndReachTheEnds()
{
    Worker worker;
    worker.calculate(sound::pcm(sound::silence(), 0, 2048));
    const FrequencySpectrum spectrum = worker.spectra.value(0);
    QCOMPARE(spectrum.count(), 2048);
    QCOMPARE(spectrum[0].frequency, -47953.125);
    QCOMPARE(spectrum[1022].frequency, -46.875);
    QCOMPARE(spectrum[1023].frequency, 0.0);
    QCOMPARE(spectrum[1024].frequency, 0.0);
    QCOMPARE(spectrum[1025].frequency, 46.875);
    QCOMPARE(spectrum[2047].frequency, 47953.125);
}

/// They are written only when the rate is another one than before.
void TestSpectrumAnalyserThread::labelsFollowTheRateOfEachChannel()
{
    Worker worker;
    const QByteArray stereo = sound::pcm(sound::silence(), 0, 2048);
    const QByteArray mono = sound::pcm(sound::silence(), 0, 2048, 1);
    const auto step = [&](int rate, bool both) {
        worker.calculate(both ? stereo : mono, rate, 16, both ? 2 : 1);
        const FrequencySpectrum &points = worker.spectra.last();
        return QVector<double> {points[1022].frequency * -1024.0, points[1025].frequency * 1024.0};
    };
    QCOMPARE(step(48000, false), (QVector<double> {48000.0, 0.0}));
    QCOMPARE(step(48000, true), (QVector<double> {48000.0, 48000.0}));
    QCOMPARE(step(44100, false), (QVector<double> {44100.0, 48000.0}));
    QCOMPARE(step(48000, true), (QVector<double> {48000.0, 48000.0}));
    QCOMPARE(step(44100, true), (QVector<double> {44100.0, 44100.0}));
    QCOMPARE(step(44100, true), (QVector<double> {44100.0, 44100.0}));
}

void TestSpectrumAnalyserThread::labelProductWrapsAround()
{
    Worker worker;
    worker.calculate(sound::pcm(sound::silence(), 0, 2048), 1 << 30);
    const FrequencySpectrum spectrum = worker.spectra.value(0);
    QCOMPARE(spectrum.count(), 2048);
    QCOMPARE(spectrum[1022].frequency, -1048576.0);
    QCOMPARE(spectrum[1025].frequency, 1048576.0);
    QCOMPARE(spectrum[1021].frequency, 2097152.0); // 2 x 2^30 as a 32-bit number is -2^31
    QCOMPARE(spectrum[1026].frequency, -2097152.0);
    QCOMPARE(spectrum[1028].frequency, 0.0);
}

void TestSpectrumAnalyserThread::silenceGivesZeroAndNotClipped()
{
    Worker worker;
    worker.setWindow(NoWindow); // with another one nothing is clipped that could be left over
    worker.calculate(sound::pcm(sound::sine(46.875 * 40, 1.0), 0, 2048));
    worker.calculate(sound::pcm(sound::silence(), 0, 2048));
    const FrequencySpectrum before = worker.spectra.value(0);
    QVERIFY(std::any_of(before.begin(), before.end(),
                        [](const FrequencySpectrum::Element &point) { return point.clipped; }));
    const FrequencySpectrum spectrum = worker.spectra.value(1);
    QCOMPARE(spectrum.count(), 2048);
    for (const FrequencySpectrum::Element &point : spectrum) {
        QCOMPARE(point.amplitude, 0.0);
        QCOMPARE(point.clipped, false);
    }
}

/// Without a window the bin reaches 1024; the Gaussian one takes half of it away.
void TestSpectrumAnalyserThread::fullScaleSineAtABinCentreIsClipped()
{
    Worker worker;
    worker.setWindow(NoWindow);
    const int bin = 100;
    worker.calculate(sound::pcm(sound::sine(bin * 48000.0 / 2048, 1.0), 0, 2048));
    const FrequencySpectrum spectrum = worker.spectra.value(0);
    QCOMPARE(spectrum.count(), 2048);
    for (int point : {1023 - bin, 1024 + bin}) {
        QCOMPARE(spectrum[point].clipped, true);
        QCOMPARE(spectrum[point].amplitude, 1.0);
        QCOMPARE(spectrum[point].frequency, (point < 1024 ? -2.0 : 2.0) * bin * 48000.0 / 2048);
    }
    QCOMPARE(spectrum[1023 - bin - 1].clipped, false);
}

void TestSpectrumAnalyserThread::binZeroCombinesDcAndNyquist()
{
    Worker worker;
    worker.setWindow(NoWindow);
    // 2^-9 on even frames only: DC and Nyquist are 1024 / 512 = 2 each.
    worker.calculate(
        sound::pcm([](int frame, int) { return frame % 2 == 0 ? 64.0 / 32767.0 : 0.0; }, 0, 2048));
    const FrequencySpectrum spectrum = worker.spectra.value(0);
    QCOMPARE(spectrum.count(), 2048);
    QCOMPARE(spectrum[1023].amplitude, 0.15 * std::log(std::sqrt(8.0)));
    QCOMPARE(spectrum[1024].amplitude, spectrum[1023].amplitude);
    QCOMPARE(spectrum[1022].amplitude, 0.0);
}

void TestSpectrumAnalyserThread::amplitudeCurveStartsAtMagnitudeOne()
{
    Worker worker;
    worker.setWindow(NoWindow);
    for (int value : {16, 17, 12572, 12573}) { // sums of 1.0, 1.0625, 785.75, 785.8125
        QByteArray block(2048 * 4, '\0');
        // One sample reaches no further than 1.0, so equal samples share the sum in bin 0.
        for (int frame = 0; frame < 2048; ++frame) {
            for (int channel = 0; channel < 2; ++channel)
                qToLittleEndian(static_cast<qint16>(value), block.data() + 4 * frame + 2 * channel);
        }
        worker.calculate(block);
    }
    QCOMPARE(worker.spectra.size(), 4);
    QCOMPARE(worker.spectra[0][1023].amplitude, 0.0);
    QVERIFY(std::fabs(worker.spectra[1][1023].amplitude - 0.15 * std::log(1.0625)) < 1e-7);
    QVERIFY(worker.spectra[2][1023].amplitude < 1.0);
    QCOMPARE(worker.spectra[2][1023].clipped, false);
    QCOMPARE(worker.spectra[3][1023].amplitude, 1.0);
    QCOMPARE(worker.spectra[3][1023].clipped, true);
}

void TestSpectrumAnalyserThread::oneByteShortIsNotEnoughData()
{
    Worker worker;
    const LogCapture log;
    worker.calculate(QByteArray(sound::kBlockBytes - 1, '\1'));
    QCOMPARE(log.lines(), QStringList {kNotEnoughData});
    QVERIFY(worker.spectra.isEmpty());
    worker.calculate(QByteArray(sound::kBlockBytes, '\1'));
    QCOMPARE(worker.spectra.size(), 1);
    QCOMPARE(log.lines().size(), 1);
}

void TestSpectrumAnalyserThread::bitsBelowEightIsNotEnoughData()
{
    Worker worker;
    const LogCapture log;
    worker.calculate(QByteArray(sound::kBlockBytes, '\1'), 48000, 4, 2);
    QCOMPARE(log.lines(), QStringList {kNotEnoughData});
    QVERIFY(worker.spectra.isEmpty());
}

void TestSpectrumAnalyserThread::invalidParametersAreLogged_data()
{
    QTest::addColumn<int>("bytes");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("bits");
    QTest::addColumn<int>("channels");
    QTest::newRow("empty") << 0 << 48000 << 16 << 2;
    QTest::newRow("no rate") << sound::kBlockBytes << 0 << 16 << 2;
    QTest::newRow("negative rate") << sound::kBlockBytes << -1 << 16 << 2;
    QTest::newRow("no bits") << sound::kBlockBytes << 48000 << 0 << 2;
    QTest::newRow("no channels") << sound::kBlockBytes << 48000 << 16 << 0;
    QTest::newRow("negative channels") << sound::kBlockBytes << 48000 << 16 << -2;
}

void TestSpectrumAnalyserThread::invalidParametersAreLogged()
{
    QFETCH(int, bytes);
    QFETCH(int, rate);
    QFETCH(int, bits);
    QFETCH(int, channels);
    Worker worker;
    const LogCapture log;
    worker.calculate(QByteArray(bytes, '\1'), rate, bits, channels);
    QCOMPARE(log.lines(), QStringList {kInvalidParameters});
    QVERIFY(worker.spectra.isEmpty());
}

void TestSpectrumAnalyserThread::emittedSpectrumStaysWhenTheNextIsCalculated()
{
    Worker worker;
    worker.calculate(sound::pcm(sound::sine(1000, 0.5), 0, 2048));
    const FrequencySpectrum held = worker.spectra.value(0);
    QVector<double> before;
    for (const FrequencySpectrum::Element &point : held)
        before.append(point.amplitude);
    worker.calculate(sound::pcm(sound::whiteNoise(1.0), 0, 2048));
    for (int i = 0; i < before.size(); ++i)
        QCOMPARE(held[i].amplitude, before[i]);
    QCOMPARE(worker.spectra.size(), 2);
    QVERIFY(worker.spectra[1][500].amplitude != held[500].amplitude);
}

void TestSpectrumAnalyserThread::destroyingTheWorkerEndsItsThread()
{
    auto *worker = new SpectrumAnalyserThread(this);
    QVERIFY(!worker->parent());
    const QPointer<QThread> thread = worker->thread();
    QVERIFY(thread != QThread::currentThread());
    QVERIFY(!thread->parent());
    QVERIFY(thread->isRunning());
    worker->deleteLater();
    QTRY_VERIFY(!thread);
}

void TestSpectrumAnalyserThread::threadThatEndedFirstIsTheWorkersToDelete()
{
    auto *worker = new SpectrumAnalyserThread(nullptr);
    const QPointer<QThread> thread = worker->thread();
    thread->quit();
    QVERIFY(thread->wait());
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(thread); // the worker asks it to quit
    delete worker;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!thread);
}

QTEST_GUILESS_MAIN(TestSpectrumAnalyserThread)
#include "tst_spectrumanalyserthread.moc"
