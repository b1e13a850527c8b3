// The process's one engine, its bands, and the end of the process.
#include "platform/deviceenumerator.h"
#include "spectrum/spectrum.h"
#include "tests/spectrum/enginepeer.h"

#include <QProcess>
#include <QtTest>

class TestSpectrum : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void thereIsOneEngine();
    void bandIsRegisteredWhileItLives();
    void bandWithoutBarsIsNeverRegisteredNorTouched();
    void copiesAreNotRegistered();
    void bandsStandInTheOrderOfTheirCreation();
    void bandsAreFilledByTheEngine();
    void processEndsCleanlyWithTheWorkerBusy_data();
    void processEndsCleanlyWithTheWorkerBusy();
};

void TestSpectrum::initTestCase()
{
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
}

void TestSpectrum::thereIsOneEngine()
{
    QVERIFY(SpecEngine::instance());
    QCOMPARE(SpecEngine::instance(), SpecEngine::instance());
    QCOMPARE(SpecEngine::instance()->thread(), QThread::currentThread());
}

void TestSpectrum::bandIsRegisteredWhileItLives()
{
    QVERIFY(SpecEnginePeer::registeredBands().empty());
    {
        const Spectrum band(-7000, 7000, 100);
        QCOMPARE(band.minFrequency, -7000);
        QCOMPARE(band.maxFrequency, 7000);
        QCOMPARE(band.bars, std::vector<float>(100, 0.0F));
        QCOMPARE(SpecEnginePeer::registeredBands().size(), static_cast<std::size_t>(1));
        QVERIFY(SpecEnginePeer::registeredBands().front() == &band);
    }
    QVERIFY(SpecEnginePeer::registeredBands().empty());
}

void TestSpectrum::bandWithoutBarsIsNeverRegisteredNorTouched()
{
    for (int count : {0, -1, -100}) {
        Spectrum band(-7000, 7000, count);
        QVERIFY(band.bars.empty());
        QVERIFY(SpecEnginePeer::registeredBands().empty());
        band.bars = {3.0F}; // its owner's own business
        QVERIFY(QMetaObject::invokeMethod(SpecEngine::instance(), "updateBars"));
        QCOMPARE(band.bars.front(), 3.0F);
    }
}

void TestSpectrum::copiesAreNotRegistered()
{
    Spectrum band(0, 100, 2);
    {
        const Spectrum copy(band); // NOLINT: the copy is what is tested
        QCOMPARE(copy.bars.size(), static_cast<std::size_t>(2));
        QCOMPARE(copy.maxFrequency, 100);
        QCOMPARE(SpecEnginePeer::registeredBands().size(), static_cast<std::size_t>(1));
    }
    QCOMPARE(SpecEnginePeer::registeredBands().size(), static_cast<std::size_t>(1));
    {
        Spectrum unregistered(0, 50, 0);
        unregistered = band;
        QCOMPARE(unregistered.bars.size(), static_cast<std::size_t>(2));
        band = Spectrum(5, 10, 0);
        QCOMPARE(band.minFrequency, 5);
    }
    QCOMPARE(SpecEnginePeer::registeredBands().size(), static_cast<std::size_t>(1));
}

void TestSpectrum::bandsStandInTheOrderOfTheirCreation()
{
    auto first = std::make_unique<Spectrum>(0, 100, 1);
    auto second = std::make_unique<Spectrum>(0, 100, 1);
    auto third = std::make_unique<Spectrum>(0, 100, 1);
    QCOMPARE(SpecEnginePeer::registeredBands(),
             (std::vector<Spectrum *> {first.get(), second.get(), third.get()}));
    second.reset();
    QCOMPARE(SpecEnginePeer::registeredBands(),
             (std::vector<Spectrum *> {first.get(), third.get()}));
}

void TestSpectrum::bandsAreFilledByTheEngine()
{
    Spectrum band(-7000, 7000, 100);
    band.bars.assign(100, 4.0F);
    QVERIFY(QMetaObject::invokeMethod(SpecEngine::instance(), "updateBars"));
    QCOMPARE(band.bars, std::vector<float>(100, 0.0F));
}

void TestSpectrum::processEndsCleanlyWithTheWorkerBusy_data()
{
    QTest::addColumn<QString>("moment");
    QTest::newRow("never used") << QStringLiteral("unused");
    QTest::newRow("in the middle of calculations") << QStringLiteral("busy");
    QTest::newRow("with the timer running") << QStringLiteral("ticking");
}

/// The engine is destroyed after the application object, while its worker may calculate.
void TestSpectrum::processEndsCleanlyWithTheWorkerBusy()
{
    QFETCH(QString, moment);
    for (int run = 0; run < 5; ++run) {
        QProcess probe;
        probe.setProcessChannelMode(QProcess::MergedChannels);
        probe.start(QStringLiteral(SPECTRUM_EXIT_PROBE), {moment});
        QVERIFY2(probe.waitForFinished(30000), "the process hangs");
        const QByteArray output = probe.readAll();
        QVERIFY2(probe.exitStatus() == QProcess::NormalExit, output);
        QVERIFY2(probe.exitCode() == 0, output);
    }
}

QTEST_GUILESS_MAIN(TestSpectrum)
#include "tst_spectrum.moc"
