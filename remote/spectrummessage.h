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
/// -3.085 gives -123. What no 32-bit integer can hold is taken as the nearest one that can
/// (2147 and -214 are then written) and not-a-number as 0.
///
/// `bars` holds `barCount` values; it may be null when barCount is 0 (or below, which counts as 0).
/// Pure; callable from any thread. Allocates the returned text and nothing else, save that a
/// level halfway between two six-digit numbers, or not finite, costs a few more allocations.
QString spectrumMessage(double rmsLevel, double peakLevel, double dynamicLevel, const float *bars,
                        int barCount);
