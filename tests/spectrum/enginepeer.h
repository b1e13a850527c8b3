// An engine of the tests' own, beside the process's one, and access to what it keeps to itself.
#pragma once

#include "spectrum/specengine.h"
#include "tests/spectrum/analyserpeers.h"

#include <memory>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

class SpecEnginePeer {
public:
    /// The audio system must have been replaced before.
    SpecEnginePeer()
        : m_engine(new SpecEngine)
    {
    }
    /// Waits for the end of the analysis worker, which the engine itself leaves behind.
    ~SpecEnginePeer()
    {
        SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(analyser());
        const QPointer<QThread> thread = worker->thread();
        m_engine.reset();
        worker->deleteLater();
        while (thread)
            QTest::qWait(1);
    }

    /// Waits until the analysis worker of the process's engine has begun its loop, as a process
    /// must before it ends: a host that kills the other threads then may hang if one is just
    /// starting.
    static void settleProcessEngine()
    {
        QMetaObject::invokeMethod(
            SpectrumAnalyserPeer::worker(SpecEngine::instance()->m_spectrumAnalyser), [] {},
            Qt::BlockingQueuedConnection);
    }

    SpecEngine *operator->() const { return m_engine.get(); }
    SpecEngine *get() const { return m_engine.get(); }

    /// As capture announces it: 16-bit PCM unless told otherwise.
    void setFormat(int rate, int channels = 2, int bits = 16)
    {
        WAVEFORMATEX format {};
        format.wFormatTag = WAVE_FORMAT_PCM;
        format.nChannels = static_cast<WORD>(channels);
        format.nSamplesPerSec = static_cast<DWORD>(rate);
        format.wBitsPerSample = static_cast<WORD>(bits);
        format.nBlockAlign = static_cast<WORD>(bits / 8 * channels);
        format.nAvgBytesPerSec = format.nSamplesPerSec * format.nBlockAlign;
        Q_EMIT m_engine->m_audioCapture.formatChanged(format);
    }
    void feed(const QByteArray &data) { Q_EMIT m_engine->m_audioCapture.notifyData(data); }
    void tick() { m_engine->onTimer(); }
    /// A tick and the spectrum that it leads to.
    bool tickAndWait()
    {
        QSignalSpy spy(&analyser(), &SpectrumAnalyser::spectrumChanged);
        tick();
        return analyser().isReady() || spy.wait();
    }
    void setSpectrum(const FrequencySpectrum &spectrum) { m_engine->onSpectrumChanged(spectrum); }
    void addBand(Spectrum *band) { m_engine->addSpectrum(band); }

    SpectrumAnalyser &analyser() const { return m_engine->m_spectrumAnalyser; }
    AudioCapture &capture() const { return m_engine->m_audioCapture; }
    const std::vector<Spectrum *> &bands() const { return m_engine->m_spectra; }
    const FrequencySpectrum &spectrum() const { return m_engine->m_spectrum; }
    QByteArray filled() const
    {
        return m_engine->m_buffer.left(static_cast<int>(m_engine->m_bufferPosition));
    }
    int bufferSize() const { return m_engine->m_buffer.size(); }
    qint64 bufferLength() const { return m_engine->m_bufferLength; }
    qint64 bufferPosition() const { return m_engine->m_bufferPosition; }
    qint64 levelBufferLength() const { return m_engine->m_levelBufferLength; }
    int analysisLength() const { return m_engine->m_analysisLength; }
    double gainReference() const { return m_engine->m_gainReference; }
    double smoothing() const { return m_engine->m_smoothing; }
    int historyLength() const { return m_engine->m_historyLength; }
    double quantile() const { return m_engine->m_quantile; }
    const QTimer &timer() const { return m_engine->m_timer; }

    static const std::vector<Spectrum *> &registeredBands()
    {
        return SpecEngine::instance()->m_spectra;
    }

private:
    std::unique_ptr<SpecEngine> m_engine;
};
