#pragma once

#include "capture/audiocapture.h"
#include "spectrum/frequencyspectrum.h"
#include "spectrum/postprocessing.h"
#include "spectrum/spectrum.h"
#include "spectrum/spectrumanalyser.h"

#include <windows.h>
#include <mmreg.h>
#include <QByteArray>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <vector>

/// The hub of the audio side: owns the capture controller and the analyser, keeps five seconds of
/// PCM, measures the levels of the newest 50 ms and fills the registered bands from every
/// spectrum. Nothing is pushed: levels and bars are read when they are wanted.
///
/// A GUI-thread object; every member is called there. Data and formats that capture announces from
/// another thread arrive queued.
class SpecEngine : public QObject {
    Q_OBJECT

public:
    /// The one engine, made by the first call and destroyed at process exit, after the application
    /// object.
    static SpecEngine *instance();
    ~SpecEngine() override;

    /// Starts capture, then the 17 ms timer.
    void start();
    /// Stops capture only. The timer goes on: the levels converge on the levels of the last 50 ms,
    /// and the last block is analysed again and again.
    void stop();
    bool isCapturing() const;

    /// The display texts of the device catalogue, in its order.
    QStringList deviceList() const;
    /// Chooses the device to capture by display text and restarts capture.
    void setCurrentDevice(const QString &name);

    /// Weight of the previous value in every exponential smoothing, 0.0 to below 1.0.
    void setSmoothing(const double &smoothing);
    /// Width, in points, of the moving average across frequency.
    void setHistoryLength(int length);
    /// Quantile of the amplitudes that is taken as noise floor, 0.0 to 1.0.
    void setQuantile(const double &quantile);

    /// Smoothed RMS of all channels, 0.0 to 1.0.
    double rmsLevel() const { return m_rmsLevel; }
    /// Smoothed largest positive sample, 0.0 to below 1.0.
    double peakLevel() const { return m_peakLevel; }
    /// Mean over five packets of how far a packet's RMS rises above the mean of the last ten,
    /// relative to what is left to full scale: far above 1.0 where that is little. After silence
    /// the running sum may leave a rounding error, as little below 0.0 as above.
    double dynamicLevel() const { return m_dynamicLevel; }

Q_SIGNALS:
    void levelChanged(double rmsLevel, double peakLevel, int numSamples);
    void spectrumChanged(FrequencySpectrum spectrum);

private Q_SLOTS:
    int barIndex(double frequency, Spectrum spec);
    void updateBars();

private:
    friend class Spectrum;
    friend class SpecEnginePeer;

    SpecEngine();

    void addSpectrum(Spectrum *spectrum);
    void removeSpectrum(Spectrum *spectrum);

    void onNotifyData(QByteArray data);
    void onFormatChanged(WAVEFORMATEX format);
    void onSpectrumChanged(FrequencySpectrum spectrum);
    void onTimer();

    void appendToBuffer(const QByteArray &data);
    void measureDynamics(const QByteArray &data);
    void measureLevels();
    void offerBlock();

    std::vector<double> m_smoothedAmplitudes;
    std::vector<Spectrum *> m_spectra;
    QTimer m_timer;
    FrequencySpectrum m_spectrum;
    WAVEFORMATEX m_format {};
    /// Data lies in bytes 0 ... m_bufferPosition - 1.
    QByteArray m_buffer;
    qint64 m_bufferLength = 0;
    qint64 m_bufferPosition = 0;
    qint64 m_levelBufferLength = 0;
    // Defaults; Widget sets 0.1, 0.5 and 10.
    double m_quantile = 0.85;
    double m_smoothing = 0.08;
    int m_historyLength = 7;
    double m_rmsLevel = 0.0;
    double m_peakLevel = 0.0;
    double m_dynamicLevel = 0.0;
    std::vector<double> m_rmsHistory;
    std::vector<double> m_dynamicHistory;
    double m_rmsHistorySum = 0.0;
    double m_dynamicHistorySum = 0.0;
    bool m_autoGain = true;
    double m_gainReference = 0.0;
    double m_targetLevel = 0.8;
    int m_analysisLength = 0;
    /// A view onto m_buffer, valid until data arrives.
    QByteArray m_analysisBuffer;
    AudioCapture m_audioCapture;
    SpectrumAnalyser m_spectrumAnalyser;
    // Work areas of the post-processing, kept to use their memory again.
    std::vector<double> m_amplitudes;
    NoiseScratch m_noiseScratch;
    std::vector<double> m_averaged;
};
