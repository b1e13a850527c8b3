#pragma once

#include "spectrum/analysiskernels.h"
#include "spectrum/frequencyspectrum.h"
#include "spectrum/windowfunction.h"

#include <array>
#include <memory>
#include <QByteArray>
#include <QObject>
#include <vector>

class FFTRealWrapper;
class QThread;

/// The analysis worker: turns the first 2048 frames of a block of PCM into a spectrum.
///
/// It starts a thread of its own and lives there. It has no parent, so it can outlive its maker.
/// Its slots run on that thread. deleteLater() destroys it: the destructor asks the thread to quit,
/// does not wait, and the thread object is deleted when the thread has ended.
class SpectrumAnalyserThread : public QObject {
    Q_OBJECT

public:
    explicit SpectrumAnalyserThread(QObject *parent);
    ~SpectrumAnalyserThread() override;

public Q_SLOTS:
    void setWindowFunction(WindowFunction type);

    /// `buffer`: interleaved frames of `channels` samples, `bitsPerSample` / 8 bytes apart, of
    /// which 16 bits are read, signed and little-endian, whatever `bitsPerSample` says.
    /// `inputFrequency`: frames a second.
    ///
    /// Emits calculationComplete() once. Points 1023 down to 0 hold the bins of the first channel;
    /// points 1024 up to 2047 hold the bins of the second if there are exactly two channels, else
    /// what they held before. Bin i is labelled -/+ 2 i inputFrequency / 2048 Hz, twice its
    /// physical frequency: the bands are laid out for that. The amplitude is 0.15 ln(magnitude),
    /// limited to 0.0 ... 1.0; silence gives 0.0. Bin 0 takes the Nyquist term as its imaginary
    /// part.
    ///
    /// Invalid arguments, or less than 2048 frames, are logged and nothing is emitted.
    void calculateSpectrum(QByteArray buffer, int inputFrequency, int bitsPerSample, int channels);

Q_SIGNALS:
    void calculationComplete(FrequencySpectrum spectrum);

private:
    friend class SpectrumAnalyserThreadPeer;

    void labelPoints(int channel, int inputFrequency);
    void analyseChannel(int channel, const char *frames, int bytesPerFrame, int channels);
    void windowChannel(int channel, const char *frames, int bytesPerFrame, int channels);

    std::unique_ptr<FFTRealWrapper> m_fft;
    int m_numSamples;
    WindowFunction m_windowFunction;
    std::vector<float> m_window;
    std::vector<float> m_input;
    std::vector<float> m_output;
    FrequencySpectrum m_spectrum;
    QThread *m_thread;
    const WindowKernel m_windowKernel;
    const LevelKernel m_levelKernel;
    std::vector<double> m_levels;
    /// The sample rate that each channel's frequency labels are for; 0 for none.
    std::array<int, 2> m_labelledRates {};
};
