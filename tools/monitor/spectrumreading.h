#pragma once

#include <QString>
#include <QVector>

/// The values of one message, as they were sent: scaled so that 400 is 1.0.
struct SpectrumReading {
    double rms = 0;
    double peak = 0;
    double dynamic = 0;
    QVector<int>
        bars; ///< s_barCount of them, from the first channel's 3500 Hz over 0 Hz to the second's
};

constexpr int s_barCount = 100;
constexpr int s_fullScale = 400;

/// Reads a message into *reading. False, with *reading untouched, when it has not exactly 104
/// fields, is of another kind, or a field is no finite number.
bool readSpectrumMessage(const QString &message, SpectrumReading *reading);
