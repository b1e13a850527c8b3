#pragma once

#include <vector>

/// A band of bars, filled by the engine after every spectrum while it lives.
///
/// Lives on the engine's thread, which is the GUI thread. A band with at least one bar registers
/// itself with the engine on construction and unregisters on destruction; a copy is a plain value
/// and is never registered.
class Spectrum {
public:
    /// Limits in Hz, both exclusive, in the frequency labels of FrequencySpectrum; `barCount` bars
    /// of 0.0, none for a count below 1.
    Spectrum(int minFrequency, int maxFrequency, int barCount);
    ~Spectrum();

    /// Values only: the copy is not registered, an assigned band stays what it is.
    Spectrum(const Spectrum &other);
    Spectrum &operator=(const Spectrum &other);

    int minFrequency;
    int maxFrequency;
    /// The largest amplitude of the points that fall into each bar. Usually 0.0 to 1.0, which is
    /// sent as 400; up to about 2.5 until the automatic gain has followed a sound that sets in.
    std::vector<float> bars;

private:
    bool m_registered = false;
};
