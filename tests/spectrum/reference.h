// Slow, straightforward second implementations of what the room computes, in double precision.
#pragma once

#include <windows.h>
#include <complex>
#include <mmreg.h>
#include <QByteArray>
#include <QList>
#include <QVector>
#include <vector>

namespace reference {

/// Bins 0 ... n/2 of the transform of n real values, by its definition.
std::vector<std::complex<double>> definition(const std::vector<double> &samples);

/// The same by recursive halving; n is a power of two.
std::vector<std::complex<double>> transform(const std::vector<double> &samples);

/// Weight of sample n of the 2048 of a window, by its number.
double windowWeight(int type, int n);

struct Point {
    double frequency = 0.0;
    double amplitude = 0.0;
    bool clipped = false;
};

/// Analyses the first 2048 frames of 16-bit samples with the Gaussian window; `points` are the
/// 2048 points of the previous analysis.
void analyse(const QByteArray &block, int rate, int channels, QVector<Point> &points);

struct Band {
    int minFrequency;
    int maxFrequency;
    QVector<float> bars;
};

/// Levels, post-processing and bars of the engine. Everything is public: it is compared.
class Engine {
public:
    Engine();
    void formatChanged(const WAVEFORMATEX &format);
    void notifyData(const QByteArray &data);
    /// The level half of a tick.
    void tickLevels();
    /// The block that a tick would hand over.
    QByteArray block() const;
    void spectrumChanged(const QVector<Point> &received);

    double smoothing = 0.08;
    int historyLength = 7;
    double quantile = 0.85;

    WAVEFORMATEX format {};
    QByteArray buffer; ///< what has been kept, exactly as long as the fill level
    qint64 capacity = 0;
    int levelBytes = 0;
    int blockBytes = 0;
    double rmsLevel = 0.0;
    double peakLevel = 0.0;
    double dynamicLevel = 0.0;
    double gainReference = 0.0;
    QVector<Point> spectrum;
    QList<Band> bands;

private:
    QVector<double> m_smoothed;
    QList<double> m_rms;
    QList<double> m_dynamic;
};

} // namespace reference
