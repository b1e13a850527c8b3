// The analyser as its owner sees it; what its worker computes has a file of its own.
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

WAVEFORMATEX format(int rate, int bits = 16, int channels = 2)
{
    WAVEFORMATEX result {};
    result.wFormatTag = WAVE_FORMAT_PCM;
    result.nChannels = static_cast<WORD>(channels);
    result.nSamplesPerSec = static_cast<DWORD>(rate);
    result.wBitsPerSample = static_cast<WORD>(bits);
    return result;
}

/// An analyser whose worker ends with it, after it.
class Front {
public:
    ~Front()
    {
        SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(*analyser);
        const QPointer<QThread> thread = worker->thread();
        analyser.reset();
        worker->deleteLater();
        while (thread)
            QTest::qWait(1);
    }

    std::unique_ptr<SpectrumAnalyser> analyser = std::make_unique<SpectrumAnalyser>();
};

} // namespace

class TestSpectrumAnalyser : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void calculatesOnTheWorkersThreadAndReturnsHere();
    void blockOneByteShortKeepsTheAnalyserBusy();
    void resultWhileIdleIsDropped();
    void blockIsCopiedAtTheHandOver();
    void destroyingTheAnalyserLeavesTheWorker();
};

void TestSpectrumAnalyser::initTestCase()
{
    qRegisterMetaType<FrequencySpectrum>("FrequencySpectrum");
    qRegisterMetaType<WindowFunction>("WindowFunction");
}

void TestSpectrumAnalyser::calculatesOnTheWorkersThreadAndReturnsHere()
{
    const Front front;
    SpectrumAnalyser &analyser = *front.analyser;
    SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(analyser);
    QThread *calculatedOn = nullptr;
    QThread *receivedOn = nullptr;
    int received = 0;
    connect(worker, &SpectrumAnalyserThread::calculationComplete, worker,
            [&] { calculatedOn = QThread::currentThread(); });
    connect(&analyser, &SpectrumAnalyser::spectrumChanged, this, [&](FrequencySpectrum spectrum) {
        receivedOn = QThread::currentThread();
        received += spectrum.count();
        QVERIFY(!analyser.isReady());
    });
    QVERIFY(analyser.isReady());
    analyser.calculate(sound::pcm(sound::sine(1000, 0.5), 0, 2048), format(48000));
    QVERIFY(!analyser.isReady());
    QCOMPARE(SpectrumAnalyserPeer::state(analyser), 1);
    QTRY_VERIFY(analyser.isReady());
    QCOMPARE(received, 2048);
    QCOMPARE(receivedOn, QThread::currentThread());
    QCOMPARE(calculatedOn, worker->thread());
}

void TestSpectrumAnalyser::blockOneByteShortKeepsTheAnalyserBusy()
{
    const Front front;
    SpectrumAnalyser &analyser = *front.analyser;
    const LogCapture log;
    int received = 0;
    connect(&analyser, &SpectrumAnalyser::spectrumChanged, this, [&] { ++received; });
    analyser.calculate(QByteArray(sound::kBlockBytes - 1, '\1'), format(48000));
    QTRY_COMPARE(log.lines(), QStringList {kNotEnoughData});
    QTest::qWait(50);
    QCOMPARE(received, 0);
    QVERIFY(!analyser.isReady());
}

void TestSpectrumAnalyser::resultWhileIdleIsDropped()
{
    const Front front;
    SpectrumAnalyser &analyser = *front.analyser;
    SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(analyser);
    int received = 0;
    connect(&analyser, &SpectrumAnalyser::spectrumChanged, this, [&] { ++received; });
    Q_EMIT worker->calculationComplete(FrequencySpectrum(2048)); // delivered queued
    QCoreApplication::processEvents();
    QCOMPARE(received, 0);
    QVERIFY(analyser.isReady());
}

/// The view that is handed over is overwritten before the worker can have run.
void TestSpectrumAnalyser::blockIsCopiedAtTheHandOver()
{
    const Front front;
    SpectrumAnalyser &analyser = *front.analyser;
    SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(analyser);
    Gate gate(worker);

    FrequencySpectrum received;
    connect(&analyser, &SpectrumAnalyser::spectrumChanged, this,
            [&](FrequencySpectrum spectrum) { received = spectrum; });
    const QByteArray block = sound::pcm(sound::sine(1000, 0.5), 0, 2048);
    std::vector<char> memory(block.begin(), block.end());
    analyser.calculate(QByteArray::fromRawData(memory.data(), static_cast<int>(memory.size())),
                       format(48000));
    std::fill(memory.begin(), memory.end(), '\0');
    memory.clear();
    memory.shrink_to_fit();
    gate.open();
    QTRY_VERIFY(analyser.isReady());

    QVector<reference::Point> expected;
    reference::analyse(block, 48000, 2, expected);
    for (int i = 0; i < 2048; ++i)
        QVERIFY(std::fabs(std::as_const(received)[i].amplitude - expected[i].amplitude) < 2e-5);
}

void TestSpectrumAnalyser::destroyingTheAnalyserLeavesTheWorker()
{
    auto analyser = std::make_unique<SpectrumAnalyser>();
    const QPointer<SpectrumAnalyserThread> worker = SpectrumAnalyserPeer::worker(*analyser);
    const QPointer<QThread> thread = worker->thread();
    analyser->calculate(sound::pcm(sound::whiteNoise(0.5), 0, 2048), format(48000));
    analyser.reset();
    QTest::qWait(20);
    QVERIFY(worker);
    QVERIFY(thread && thread->isRunning());
    worker->deleteLater();
    QTRY_VERIFY(!thread);
}

QTEST_GUILESS_MAIN(TestSpectrumAnalyser)
#include "tst_spectrumanalyser.moc"
