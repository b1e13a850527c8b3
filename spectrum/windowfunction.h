#pragma once

#include <QMetaType>

/// The analysis windows. Passed by value; any other value is a window of zeros.
enum WindowFunction : int {
    NoWindow = 0,
    GaussianWindow = 1,
    HannWindow = 2,
    HammingWindow = 3,
    BartlettWindow = 4,
    TriangularWindow = 5,
    BlackmanWindow = 6,
    BlackmanNuttallWindow = 7,
    SineWindow = 8
};

/// Fills `weights` with the `length` weights of a window, computed in double. A `length` of at
/// least 2 is expected.
void fillWindow(WindowFunction type, float *weights, int length);

Q_DECLARE_METATYPE(WindowFunction)
