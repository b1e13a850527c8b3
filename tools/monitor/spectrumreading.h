#pragma once

#include <QString>
#include <QVector>

constexpr int kBarCount = 100;
constexpr int kFullScale = 400; ///< what a level or a bar of 1.0 is sent as
constexpr int kHighestFrequencyHz = 3500; ///< how far the bars of either channel reach

/// The three levels of one message as they were sent: 400 is full scale.
struct Levels {
    double rms = 0;
    double peak = 0;
    double dynamic = 0;
};

/// The values of one message.
struct SpectrumReading : Levels {
    /// kBarCount heights, as they were sent, from the left channel's highest frequency over 0 Hz,
    /// which is between bars 49 and 50, to the right channel's highest.
    QVector<int> bars;
};

/// Reads a message into *reading. False, with *reading untouched, when it has not exactly 104
/// fields, is of another kind, or a field is no finite number (of a bar: no integer).
bool readSpectrumMessage(const QString &message, SpectrumReading *reading);
