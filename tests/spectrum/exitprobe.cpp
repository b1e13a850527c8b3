// A process that ends while the process's one engine is at work.
#include "platform/deviceenumerator.h"
#include "report/deliverreport.h"
#include "spectrum/specengine.h"
#include "tests/spectrum/analyserpeers.h"
#include "tests/spectrum/testsound.h"

#include <QCoreApplication>
#include <QTimer>

class SpecEnginePeer {
public:
    /// Waits until the analysis worker has begun its loop. Hosts that kill the other threads when
    /// a process ends may hang for good if one of them is just starting.
    static void settle(SpecEngine *engine)
    {
        QMetaObject::invokeMethod(
            SpectrumAnalyserPeer::worker(engine->m_spectrumAnalyser), [] {},
            Qt::BlockingQueuedConnection);
    }

    static void busy(SpecEngine *engine)
    {
        WAVEFORMATEX format {};
        format.nChannels = 2;
        format.nSamplesPerSec = 48000;
        format.wBitsPerSample = 16;
        engine->onFormatChanged(format);
        engine->onNotifyData(sound::pcm(sound::whiteNoise(0.5), 0, 4800));
        engine->onTimer();
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
    setReportSink([](const QString &) {});
    const Spectrum band(-7000, 7000, 100);
    SpecEngine *engine = SpecEngine::instance();
    SpecEnginePeer::settle(engine);
    const QString moment = application.arguments().value(1);
    if (moment == QLatin1String("unused"))
        return 0;
    SpecEnginePeer::busy(engine);
    if (moment == QLatin1String("busy"))
        return 0;
    engine->start();
    QTimer::singleShot(100, &application, &QCoreApplication::quit);
    return QCoreApplication::exec();
}
