#include "spectrum/spectrumanalyserthread.h"

#include "spectrum/fftrealwrapper.h"

#include <cmath>
#include <QDebug>
#include <QtEndian>
#include <QThread>

namespace {

// The texts are GBK and go to the debug stream as the raw bytes they are.
// "无效参数，忽略计算"
constexpr char InvalidParameters[] = "[SpectrumAnalyser] "
                                     "\xCE\xDE\xD0\xA7\xB2\xCE\xCA\xFD\xA3\xAC"
                                     "\xBA\xF6\xC2\xD4\xBC\xC6\xCB\xE3";
// "数据不足，跳过"
constexpr char NotEnoughData[] = "[SpectrumAnalyser] "
                                 "\xCA\xFD\xBE\xDD\xB2\xBB\xD7\xE3\xA3\xAC"
                                 "\xCC\xF8\xB9\xFD";

constexpr double SampleScale = 3.0517578125e-5; // 1 / 32768
constexpr double LevelPerNeper = 0.15;

void setLevel(FrequencySpectrum::Element &point, double re, double im)
{
    const double magnitude = std::sqrt(re * re + im * im);
    const double level = std::log(magnitude) * LevelPerNeper;
    point.clipped = level > 1.0;
    const double limited = level <= 1.0 ? level : 1.0;
    point.amplitude = limited > 0.0 ? limited : 0.0;
}

} // namespace

SpectrumAnalyserThread::SpectrumAnalyserThread(QObject *parent)
    : QObject(parent)
    , m_fft(std::make_unique<FFTRealWrapper>())
    , m_numSamples(FFTRealWrapper::Length)
    , m_windowFunction(GaussianWindow)
    , m_window(FFTRealWrapper::Length)
    , m_input(FFTRealWrapper::Length)
    , m_output(FFTRealWrapper::Length)
    , m_spectrum(FFTRealWrapper::Length)
    , m_thread(new QThread)
{
    // The thread object goes once its thread has ended, never while it runs.
    connect(m_thread, &QThread::finished, m_thread, &QObject::deleteLater);
    setParent(nullptr); // an object with a parent cannot change threads
    moveToThread(m_thread);
    m_thread->start();
    setWindowFunction(m_windowFunction);
}

SpectrumAnalyserThread::~SpectrumAnalyserThread()
{
    m_fft.reset();
    m_thread->quit();
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
        qDebug() << InvalidParameters;
        return;
    }
    const qint64 bytesPerFrame = static_cast<qint64>(bitsPerSample / 8) * channels;
    if (bytesPerFrame <= 0 || buffer.size() < bytesPerFrame * m_numSamples) {
        qDebug() << NotEnoughData;
        return;
    }

    const int frameBytes = static_cast<int>(bytesPerFrame);
    const int half = m_numSamples / 2;
    const float *re = m_output.data();
    const float *im = re + half;
    FrequencySpectrum::iterator points = m_spectrum.begin();

    transformChannel(buffer.constData(), frameBytes);
    for (int i = 0; i < half; ++i) {
        // The product is a 32-bit one, wrapping around far above any sample rate there is.
        const auto product =
            static_cast<qint32>(static_cast<quint32>(i) * static_cast<quint32>(inputFrequency));
        FrequencySpectrum::Element &point = points[half - 1 - i];
        point.frequency = product * -2.0 / m_numSamples;
        setLevel(point, static_cast<double>(re[i]), static_cast<double>(im[i]));
    }

    if (channels == 2) {
        transformChannel(buffer.constData() + frameBytes / 2, frameBytes);
        for (int i = 0; i < half; ++i) {
            const auto product =
                static_cast<qint32>(static_cast<quint32>(i) * static_cast<quint32>(inputFrequency));
            FrequencySpectrum::Element &point = points[half + i];
            point.frequency = (static_cast<double>(product) + product) / m_numSamples;
            setLevel(point, static_cast<double>(re[i]), static_cast<double>(im[i]));
        }
    }

    Q_EMIT calculationComplete(m_spectrum);
}

void SpectrumAnalyserThread::transformChannel(const char *samples, int bytesPerFrame)
{
    for (int i = 0; i < m_numSamples; ++i) {
        const auto value = qFromLittleEndian<qint16>(samples + qint64(i) * bytesPerFrame);
        m_input[i] = static_cast<float>(value * SampleScale) * m_window[i];
    }
    m_fft->calculateFFT(m_output.data(), m_input.data());
}
