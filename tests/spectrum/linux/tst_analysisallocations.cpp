// What an analysis takes from the heap once it is warm: nothing, as long as nobody keeps a
// spectrum.
#include "spectrum/fft/fftrealwrapper.h"
#include "tests/spectrum/enginetest.h"
#include "tests/spectrum/testsound.h"

#include <cstdlib>
#include <functional>
#include <QPointer>
#include <QThread>
#include <QtTest>

extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);
extern "C" void *__libc_realloc(void *block, std::size_t size);

namespace {
thread_local int t_allocations = 0;
}

// Every library of the process takes its memory from here.
extern "C" void *malloc(std::size_t size)
{
    ++t_allocations;
    return __libc_malloc(size);
}

extern "C" void *calloc(std::size_t count, std::size_t size)
{
    ++t_allocations;
    return __libc_calloc(count, size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    ++t_allocations;
    return __libc_realloc(block, size);
}

namespace {

/// How often the calling thread asks the heap for memory meanwhile.
int allocations(const std::function<void()> &action)
{
    const int before = t_allocations;
    action();
    return t_allocations - before;
}

/// Runs there, on the thread of a worker of its own that ends afterwards.
void onWorker(const std::function<void(SpectrumAnalyserThread *)> &action)
{
    auto *const worker = new SpectrumAnalyserThread(nullptr);
    const QPointer<QThread> thread = worker->thread();
    runThere(worker, [&] { action(worker); });
    worker->deleteLater();
    while (thread)
        QTest::qWait(1);
}

QByteArray block(int channels)
{
    return sound::pcm(sound::whiteNoise(0.5), 0, FFTRealWrapper::kLength, channels);
}

} // namespace

class TestAnalysisAllocations : public SpecEngineTest {
    Q_OBJECT

private Q_SLOTS:
    void theCountCounts();
    void transform();
    void analysis_data();
    void analysis();
    void analysisWhileASpectrumIsKept();
    void postProcessing();
    void packetAndLevels();
};

void TestAnalysisAllocations::theCountCounts()
{
    QCOMPARE(allocations([] { const QByteArray block(100, 'x'); }), 1);
    // A vector's may be left out, and is by clang.
    QCOMPARE(allocations([] { ::operator delete(::operator new(400)); }), 1);
}

void TestAnalysisAllocations::transform()
{
    FFTRealWrapper fft;
    std::vector<float> in(FFTRealWrapper::kLength, 0.5F);
    std::vector<float> out(FFTRealWrapper::kLength);
    QCOMPARE(allocations([&] { fft.calculateFFT(out.data(), in.data()); }), 0);
    QCOMPARE(out[0], 1024.0F);
}

void TestAnalysisAllocations::analysis_data()
{
    QTest::addColumn<int>("channels");
    QTest::newRow("mono") << 1;
    QTest::newRow("stereo") << 2;
    QTest::newRow("six channels") << 6;
}

/// On the worker's own thread. Nobody is connected, so that Qt has nothing to send.
void TestAnalysisAllocations::analysis()
{
    QFETCH(int, channels);
    const QByteArray samples = block(channels);
    int warm = -1;
    onWorker([&](SpectrumAnalyserThread *worker) {
        worker->calculateSpectrum(samples, 48000, 16, channels);
        warm = allocations([&] { worker->calculateSpectrum(samples, 48000, 16, channels); });
    });
    QCOMPARE(warm, 0);
}

/// The receiver's copy is not changed any more: one new array for all points.
void TestAnalysisAllocations::analysisWhileASpectrumIsKept()
{
    const QByteArray samples = block(2);
    FrequencySpectrum kept;
    int warm = -1;
    int afterwards = -1;
    onWorker([&](SpectrumAnalyserThread *worker) {
        connect(
            worker, &SpectrumAnalyserThread::calculationComplete, worker,
            [&kept](const FrequencySpectrum &spectrum) {
                if (kept.count() == 0)
                    kept = spectrum;
            },
            Qt::DirectConnection);
        worker->calculateSpectrum(samples, 48000, 16, 2);
        warm = allocations([&] { worker->calculateSpectrum(samples, 48000, 16, 2); });
        afterwards = allocations([&] { worker->calculateSpectrum(samples, 48000, 16, 2); });
    });
    QCOMPARE(kept.count(), 2048);
    QCOMPARE(warm, 1);
    QCOMPARE(afterwards, 0);
}

void TestAnalysisAllocations::postProcessing()
{
    SpecEnginePeer peer;
    Spectrum band(-7000, 7000, 100);
    peer.addBand(&band);
    peer->setHistoryLength(10);
    FrequencySpectrum spectrum(2048);
    for (int i = 0; i < spectrum.count(); ++i) {
        spectrum[i].frequency = (i - 1024) * 46.875;
        spectrum[i].amplitude = i % 100 / 100.0;
    }
    peer.setSpectrum(spectrum);
    QCOMPARE(allocations([&] { peer.setSpectrum(spectrum); }), 0);
    QVERIFY(band.bars[60] > 0.0F);
}

void TestAnalysisAllocations::packetAndLevels()
{
    SpecEnginePeer peer;
    peer.setFormat(48000);
    const QByteArray packet = sound::pcm(sound::sine(1000, 0.5), 0, 480);
    for (int i = 0; i < 10; ++i)
        peer.feed(packet);
    peer.tick(); // hands the first block over
    QCOMPARE(allocations([&] { peer.feed(packet); }), 0);
    // The analyser has not answered yet: only levels are measured.
    QVERIFY(!peer.analyser().isReady());
    QCOMPARE(allocations([&] { peer.tick(); }), 0);
    QVERIFY(peer->rmsLevel() > 0.0);
}

QTEST_GUILESS_MAIN(TestAnalysisAllocations)
#include "tst_analysisallocations.moc"
