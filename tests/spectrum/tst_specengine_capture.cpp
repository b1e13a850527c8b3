// The engine on an audio system that works.
#include "tests/spectrum/enginepeer.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/messagelog.h"

#include <cmath>
#include <QtTest>

class TestSpecEngineCapture : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void deviceListIsLogged();
    void startsOnTheAudioSystemAndGetsItsData();
    void nobodyEmitsItsSignals();
};

void TestSpecEngineCapture::deviceListIsLogged()
{
    FakeAudio audio;
    audio.add(QStringLiteral("a"), QStringLiteral("Speakers"));
    audio.add(QStringLiteral("b"), QStringLiteral("Headset"));
    audio.setDefault(QStringLiteral("b"));
    {
        const SpecEnginePeer peer;
        const MessageLog log;
        QCOMPARE(peer->deviceList().size(), 3);
        QCOMPARE(
            log.texts(),
            QStringList({QStringLiteral("------获取设备列表:------"),
                         QStringLiteral("设备: 默认输出设备"), QStringLiteral("设备: Speakers"),
                         QStringLiteral("设备: Headset (当前默认)")}));
    }
    QCOMPARE(audio.problems(), QStringList());
}

void TestSpecEngineCapture::startsOnTheAudioSystemAndGetsItsData()
{
    FakeAudio audio;
    audio.add(QStringLiteral("a"), QStringLiteral("Speakers"));
    audio.add(QStringLiteral("b"), QStringLiteral("Headset"));
    audio.setFormat(QStringLiteral("b"), FakeAudio::floatFormat(2, 44100));
    audio.setDefault(QStringLiteral("a"));
    {
        SpecEnginePeer peer;
        QCOMPARE(peer->deviceList(),
                 QStringList({QStringLiteral("默认输出设备"), QStringLiteral("Speakers (当前默认)"),
                              QStringLiteral("Headset")}));
        QVERIFY(!peer.timer().isActive());
        peer->start();
        QVERIFY(peer.timer().isActive());
        QTRY_COMPARE(audio.capturedDevice(), QStringLiteral("a"));
        QVERIFY(peer->isCapturing());
        QCOMPARE(peer.bufferLength(), 960000LL);
        QTRY_VERIFY(std::abs(peer->rmsLevel() - 0.25) < 0.001); // the level that is played
        QTRY_COMPARE(peer.spectrum().count(), 2048);

        peer->setCurrentDevice(QStringLiteral("Headset"));
        QCOMPARE(peer.capture().currentDevice(), QStringLiteral("Headset"));
        QTRY_COMPARE(audio.capturedDevice(), QStringLiteral("b"));
        QCOMPARE(peer.bufferLength(), 882000LL); // five seconds at 44.1 kHz

        peer->stop();
        QTRY_VERIFY(audio.capturedDevice().isEmpty());
        QVERIFY(!peer->isCapturing());
        QVERIFY(peer.timer().isActive());
        QCOMPARE(audio.calls(FakeCall::Initialize), 2);
    }
    QCOMPARE(audio.problems(), QStringList());
}

void TestSpecEngineCapture::nobodyEmitsItsSignals()
{
    FakeAudio audio;
    audio.add(QStringLiteral("a"), QStringLiteral("Speakers"));
    audio.setDefault(QStringLiteral("a"));
    {
        SpecEnginePeer peer;
        const QSignalSpy levels(peer.get(), &SpecEngine::levelChanged);
        const QSignalSpy spectra(peer.get(), &SpecEngine::spectrumChanged);
        peer->start();
        QTRY_COMPARE(peer.spectrum().count(), 2048); // levels and spectra do change
        QTRY_VERIFY(peer->rmsLevel() > 0.0);
        peer->stop();
        QTRY_VERIFY(audio.capturedDevice().isEmpty());
        QCOMPARE(levels.count(), 0);
        QCOMPARE(spectra.count(), 0);
    }
    QCOMPARE(audio.problems(), QStringList());
}

QTEST_GUILESS_MAIN(TestSpecEngineCapture)
#include "tst_specengine_capture.moc"
