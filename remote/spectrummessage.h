#pragma once

#include <QString>

/// The text that is published fifty times a second: "SoundSpectrum", the three levels and the
/// bars, joined by "/&+&/", 4 + barCount fields, no separator at the end.
///
/// Levels: each × 400.0, written as QString::number(value, 'g', 6) writes it, in the C locale
/// whatever the process's locale is: point, no grouping, "nan", "inf" and "-inf" as they are.
///
/// Bars: each × 400 in single precision, truncated toward zero to a 32-bit integer, written in
/// decimal, cut to its first four characters, sign included: 30.0 gives 1200, 100.0 gives 4000,
/// -3.085 gives -123. A value beyond a 32-bit integer becomes the nearest integer
/// (written as 2147 or -214), and not-a-number becomes 0.
///
/// `bars` holds `barCount` values; it may be null when barCount is 0 (or below, which counts as 0).
/// Pure; callable from any thread. Allocates the returned text and nothing else, except for a level
/// halfway between two six-digit numbers or not finite, which costs a few more allocations.
QString spectrumMessage(double rmsLevel, double peakLevel, double dynamicLevel, const float *bars,
                        int barCount);
