#include "spectrum/spectrumanalyser.h"

#include "spectrum/spectrumanalyserthread.h"

#include <algorithm>

namespace {

enum State { Idle = 0, Busy = 1 };

} // namespace

SpectrumAnalyser::SpectrumAnalyser(QObject *parent)
    : QObject(parent)
    , m_worker(new SpectrumAnalyserThread(this))
    , m_state(Idle)
{
    connect(m_worker, &SpectrumAnalyserThread::calculationComplete, this,
            &SpectrumAnalyser::calculationComplete);
}

SpectrumAnalyser::~SpectrumAnalyser() = default;

bool SpectrumAnalyser::isReady() const
{
    return m_state == Idle;
}

void SpectrumAnalyser::calculate(const QByteArray &buffer, const WAVEFORMATEX &format)
{
    m_state = Busy;
    m_block.resize(buffer.size());
    std::copy(buffer.cbegin(), buffer.cend(), m_block.begin());
    QMetaObject::invokeMethod(m_worker, "calculateSpectrum", Qt::AutoConnection,
                              Q_ARG(QByteArray, m_block),
                              Q_ARG(int, static_cast<int>(format.nSamplesPerSec)),
                              Q_ARG(int, static_cast<int>(format.wBitsPerSample)),
                              Q_ARG(int, static_cast<int>(format.nChannels)));
}

void SpectrumAnalyser::calculationComplete(FrequencySpectrum spectrum)
{
    if (m_state == Busy)
        Q_EMIT spectrumChanged(spectrum);
    m_state = Idle;
}
