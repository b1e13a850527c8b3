#pragma once

#include "spectrum/frequencyspectrum.h"

#include <windows.h>
#include <mmreg.h>
#include <QByteArray>
#include <QObject>

class SpectrumAnalyserThread;

/// The front of the analysis worker: one calculation at a time, guarded by a busy flag.
///
/// Lives on the engine's thread, where every member is called. Destroying it leaves the worker
/// and its thread behind: a calculation may be running, and nothing waits for it.
class SpectrumAnalyser : public QObject {
    Q_OBJECT

public:
    explicit SpectrumAnalyser(QObject *parent = nullptr);
    ~SpectrumAnalyser() override;

    /// No calculation is under way.
    bool isReady() const;

    /// Hands the worker a copy of `buffer`, which may therefore be a view onto memory that changes
    /// after the call, and becomes busy. Returns at once. Stays busy for good if the worker
    /// refuses the block: see SpectrumAnalyserThread::calculateSpectrum.
    void calculate(const QByteArray &buffer, const WAVEFORMATEX &format);

Q_SIGNALS:
    void spectrumChanged(FrequencySpectrum spectrum);

private Q_SLOTS:
    void calculationComplete(FrequencySpectrum spectrum);

private:
    friend class SpectrumAnalyserPeer;

    SpectrumAnalyserThread *m_worker;
    int m_state;
    /// The block that the worker reads. While the worker still shares it, implicit sharing gives it
    /// new memory before it is written again.
    QByteArray m_block;
};
