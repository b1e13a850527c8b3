#include "spectrum/spectrumanalyserthread.h"

#include "platform/lastreport.h"
#include "platform/timesource.h"
#include "spectrum/fft/fftrealwrapper.h"

#include <QDebug>
#include <QtEndian>
#include <QThread>

namespace {

// The texts are GBK and go to the debug stream as the raw bytes they are.
// "无效参数，忽略计算"
constexpr char kInvalidParameters[] = "[SpectrumAnalyser] "
                                      "\xCE\xDE\xD0\xA7\xB2\xCE\xCA\xFD\xA3\xAC"
                                      "\xBA\xF6\xC2\xD4\xBC\xC6\xCB\xE3";
// "数据不足，跳过"
constexpr char kNotEnoughData[] = "[SpectrumAnalyser] "
                                  "\xCA\xFD\xBE\xDD\xB2\xBB\xD7\xE3\xA3\xAC"
                                  "\xCC\xF8\xB9\xFD";

constexpr double kSampleScale = 3.0517578125e-5; // 1 / 32768

} // namespace

SpectrumAnalyserThread::SpectrumAnalyserThread(QObject *parent)
    : QObject(parent)
    , m_fft(std::make_unique<FFTRealWrapper>())
    , m_numSamples(FFTRealWrapper::kLength)
    , m_windowFunction(GaussianWindow)
    , m_window(FFTRealWrapper::kLength)
    , m_input(FFTRealWrapper::kLength)
    , m_output(FFTRealWrapper::kLength)
    , m_spectrum(FFTRealWrapper::kLength)
    , m_thread(new QThread)
    , m_windowKernel(windowKernel(vectorUnit()))
    , m_levelKernel(levelKernel(vectorUnit()))
    , m_levels(FFTRealWrapper::kLength / 2)
{
    connect(m_thread, &QThread::started, this, &reserveCrashStack, Qt::DirectConnection);
    setParent(nullptr); // an object with a parent cannot change threads
    moveToThread(m_thread);
    startThread(*m_thread);
    setWindowFunction(m_windowFunction);
}

SpectrumAnalyserThread::~SpectrumAnalyserThread()
{
    m_fft.reset();
    // The thread object goes when its thread has ended, never while it runs. Nobody waits for that.
    connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    m_thread->quit();
    if (m_thread->isFinished()) // before this object, so that nobody hears of it any more
        m_thread->deleteLater();
}

void SpectrumAnalyserThread::setWindowFunction(WindowFunction type)
{
    m_windowFunction = type;
    fillWindow(type, m_window.data(), m_numSamples);
}

void SpectrumAnalyserThread::calculateSpectrum(QByteArray buffer, int inputFrequency,
                                               int bitsPerSample, int channels)
{
    if (buffer.isEmpty() || inputFrequency <= 0 || bitsPerSample == 0 || channels <= 0) {
        qDebug() << kInvalidParameters;
        return;
    }
    const qint64 bytesPerFrame = static_cast<qint64>(bitsPerSample / 8) * channels;
    if (bytesPerFrame <= 0 || buffer.size() < bytesPerFrame * m_numSamples) {
        qDebug() << kNotEnoughData;
        return;
    }

    const int frameBytes = static_cast<int>(bytesPerFrame);
    for (int channel = 0; channel < (channels == 2 ? 2 : 1); ++channel) {
        labelPoints(channel, inputFrequency);
        analyseChannel(channel, buffer.constData(), frameBytes, channels);
    }
    Q_EMIT calculationComplete(m_spectrum);
}

/// The labels stay from calculation to calculation. A label is twice the frequency, on purpose: the
/// bands are laid out for that.
void SpectrumAnalyserThread::labelPoints(int channel, int inputFrequency)
{
    int &labelled = m_labelledRates[static_cast<std::size_t>(channel)];
    if (labelled == inputFrequency)
        return;
    labelled = inputFrequency;
    const int half = m_numSamples / 2;
    FrequencySpectrum::iterator points = m_spectrum.begin();
    for (int i = 0; i < half; ++i) {
        // The product is a 32-bit one, wrapping around far above any sample rate there is.
        const auto product =
            static_cast<qint32>(static_cast<quint32>(i) * static_cast<quint32>(inputFrequency));
        if (channel == 0)
            points[half - 1 - i].frequency = product * -2.0 / m_numSamples;
        else
            points[half + i].frequency = (static_cast<double>(product) + product) / m_numSamples;
    }
}

void SpectrumAnalyserThread::analyseChannel(int channel, const char *frames, int bytesPerFrame,
                                            int channels)
{
    windowChannel(channel, frames, bytesPerFrame, channels);
    m_fft->calculateFFT(m_output.data(), m_input.data());
    const int half = m_numSamples / 2;
    m_levelKernel(m_output.data(), m_output.data() + half, m_levels.data(), half);

    const int step = channel == 0 ? -1 : 1;
    FrequencySpectrum::iterator point = m_spectrum.begin() + (channel == 0 ? half - 1 : half);
    for (const double level : m_levels) {
        point->clipped = level > 1.0;
        const double limited = level <= 1.0 ? level : 1.0;
        point->amplitude = limited > 0.0 ? limited : 0.0;
        point += step;
    }
}

void SpectrumAnalyserThread::windowChannel(int channel, const char *frames, int bytesPerFrame,
                                           int channels)
{
    if (channels == 2 && bytesPerFrame == 4) {
        m_windowKernel(frames, channel, m_window.data(), m_input.data(), m_numSamples);
        return;
    }
    const char *samples = frames + channel * (bytesPerFrame / 2);
    for (int i = 0; i < m_numSamples; ++i) {
        const auto value =
            qFromLittleEndian<qint16>(samples + static_cast<qint64>(i) * bytesPerFrame);
        m_input[i] = static_cast<float>(value * kSampleScale) * m_window[i];
    }
}
