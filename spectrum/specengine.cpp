#include "spectrum/specengine.h"

#include "spectrum/levels.h"
#include "spectrum/windowfunction.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <QDebug>

namespace {

constexpr int kTickMs = 17;
constexpr int kAnalysisFrames = 2048;
constexpr int kBufferSeconds = 5;
constexpr qint64 kLevelWindowUs = 50000;
constexpr std::size_t kRmsHistoryLength = 10;
constexpr std::size_t kDynamicHistoryLength = 5;

} // namespace

SpecEngine *SpecEngine::instance()
{
    static SpecEngine engine;
    return &engine;
}

SpecEngine::SpecEngine()
{
    qRegisterMetaType<FrequencySpectrum>("FrequencySpectrum");
    qRegisterMetaType<WindowFunction>("WindowFunction");

    connect(&m_spectrumAnalyser, &SpectrumAnalyser::spectrumChanged, this,
            &SpecEngine::onSpectrumChanged);
    m_timer.setInterval(kTickMs);
    connect(&m_timer, &QTimer::timeout, this, &SpecEngine::onTimer);
    connect(&m_audioCapture, &AudioCapture::notifyData, this, &SpecEngine::onNotifyData);
    connect(&m_audioCapture, &AudioCapture::formatChanged, this, &SpecEngine::onFormatChanged);

    m_rmsHistory.assign(kRmsHistoryLength, 0.0);
    m_dynamicHistory.assign(kDynamicHistoryLength, 0.0);
}

SpecEngine::~SpecEngine() = default;

void SpecEngine::start()
{
    m_audioCapture.startCapture();
    m_timer.start();
}

void SpecEngine::stop()
{
    m_audioCapture.stopCapture();
}

bool SpecEngine::isCapturing() const
{
    return m_audioCapture.isCapturing();
}

QStringList SpecEngine::deviceList() const
{
    qDebug() << "------获取设备列表:------";
    QStringList names;
    const QList<DeviceEntry> devices = m_audioCapture.devices();
    for (const DeviceEntry &device : devices) {
        qDebug() << "设备:" << device.name;
        names.append(device.name);
    }
    return names;
}

void SpecEngine::setCurrentDevice(const QString &name)
{
    m_audioCapture.setCurrentDevice(name);
}

void SpecEngine::setSmoothing(const double &smoothing)
{
    m_smoothing = smoothing;
}

void SpecEngine::setHistoryLength(int length)
{
    m_historyLength = length;
}

void SpecEngine::setQuantile(const double &quantile)
{
    m_quantile = quantile;
}

void SpecEngine::addSpectrum(Spectrum *spectrum)
{
    m_spectra.push_back(spectrum);
}

void SpecEngine::removeSpectrum(Spectrum *spectrum)
{
    const auto found = std::find(m_spectra.begin(), m_spectra.end(), spectrum);
    if (found != m_spectra.end())
        m_spectra.erase(found);
}

void SpecEngine::onFormatChanged(WAVEFORMATEX format)
{
    m_format = format;
    const qint64 channels = format.nChannels;
    const qint64 bits = format.wBitsPerSample;
    const qint64 rate = format.nSamplesPerSec;
    const qint64 bytesPerFrame = bits / 8 * channels;

    m_analysisLength = 0;
    m_bufferLength = 0;
    m_levelBufferLength = 0;
    // A block that fits into no byte array is no block. Where only the five seconds do not fit,
    // nothing is recorded, but the length of a block stays: a length of 0 would hand the analyser
    // an empty block, which keeps it busy for good.
    constexpr qint64 largest = std::numeric_limits<int>::max();
    if (bytesPerFrame * kAnalysisFrames <= largest)
        m_analysisLength = static_cast<int>(bytesPerFrame * kAnalysisFrames);
    if (bytesPerFrame != 0 && rate * bytesPerFrame * kBufferSeconds <= largest) {
        const qint64 unit = channels * bits / 8;
        const qint64 length = rate * bytesPerFrame * kBufferSeconds;
        const qint64 levelLength = rate * bytesPerFrame * kLevelWindowUs / 1000000;
        m_bufferLength = length / unit * unit;
        m_levelBufferLength = levelLength / unit * unit;
    }

    // The fill position stays, so the bytes below it must stay readable; they are silence now.
    m_buffer.fill('\0', static_cast<int>(std::max(m_bufferLength, m_bufferPosition)));
}

void SpecEngine::onNotifyData(QByteArray data)
{
    if (data.isEmpty() || m_bufferLength == 0 || m_analysisLength == 0)
        return;
    appendToBuffer(data);
    if (m_format.nChannels != 0 && m_format.wBitsPerSample >= 8)
        measureDynamics(data);
}

/// The buffer never wraps: within one analysis block of its end it is cut back to the newest block.
void SpecEngine::appendToBuffer(const QByteArray &data)
{
    char *buffer = m_buffer.data();
    if (m_bufferPosition + m_analysisLength >= m_bufferLength) {
        const qint64 keep = std::min<qint64>(m_analysisLength, m_bufferLength);
        if (m_bufferPosition >= keep) {
            std::memmove(buffer, buffer + m_bufferPosition - keep, static_cast<std::size_t>(keep));
            m_bufferPosition = keep;
        }
    }
    const qint64 fitting = std::min<qint64>(data.size(), m_bufferLength - m_bufferPosition);
    if (fitting > 0) {
        std::memcpy(buffer + m_bufferPosition, data.constData(), static_cast<std::size_t>(fitting));
        m_bufferPosition += fitting;
    }
}

void SpecEngine::measureDynamics(const QByteArray &data)
{
    const double rms =
        blockRms(data.constData(), data.size(), m_format.nChannels, m_format.wBitsPerSample);
    pushHistory(m_rmsHistory, m_rmsHistorySum, rms);

    double dynamic = 0.0;
    if (rms < 1.0) {
        const double mean = m_rmsHistorySum / static_cast<double>(m_rmsHistory.size());
        dynamic = std::max(rms - mean, 0.0) / (1.0 - rms);
    }
    pushHistory(m_dynamicHistory, m_dynamicHistorySum, dynamic);
    m_dynamicLevel = m_dynamicHistorySum / static_cast<double>(m_dynamicHistory.size());
}

void SpecEngine::onTimer()
{
    if (m_bufferPosition >= m_levelBufferLength)
        measureLevels();
    if (m_bufferPosition >= m_analysisLength && m_spectrumAnalyser.isReady())
        offerBlock();
}

void SpecEngine::measureLevels()
{
    const qint64 count = m_levelBufferLength / 2;
    const SampleSums sums =
        sumSamples(m_buffer.constData() + m_bufferPosition - m_levelBufferLength, count);
    const double rms = ::rmsLevel(sums.squares, count);
    const double peak = sums.peak / 32768.0;
    m_rmsLevel = rms * (1.0 - m_smoothing) + m_smoothing * m_rmsLevel;
    m_peakLevel = (1.0 - m_smoothing) * peak + m_smoothing * m_peakLevel;
}

void SpecEngine::offerBlock()
{
    m_analysisBuffer = QByteArray::fromRawData(
        m_buffer.constData() + m_bufferPosition - m_analysisLength, m_analysisLength);
    m_spectrumAnalyser.calculate(m_analysisBuffer, m_format);
}

void SpecEngine::onSpectrumChanged(FrequencySpectrum spectrum)
{
    readAmplitudes(spectrum, m_amplitudes);
    const double floor = noiseFloor(m_amplitudes, m_quantile, m_noiseScratch);
    const double gain = m_autoGain ? trackGain(m_amplitudes, m_targetLevel, m_gainReference) : 1.0;
    scaleAndSmooth(m_amplitudes, gain, floor, m_smoothing, m_smoothedAmplitudes);
    averageAcrossFrequency(spectrum, m_smoothedAmplitudes, m_historyLength, m_spectrum, m_averaged);
    updateBars();
}

int SpecEngine::barIndex(double frequency, Spectrum spec)
{
    return barIndexFor(frequency, spec);
}

void SpecEngine::updateBars()
{
    fillBars(m_spectrum, m_spectra);
}
