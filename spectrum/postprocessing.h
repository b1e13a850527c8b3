// What happens to a spectrum between the analyser and the bars. Pure functions over the values
// they are given; the vectors keep their memory from call to call. Callable from any thread, one
// object per thread. The steps work on the amplitudes of a spectrum alone, side by side.
#pragma once

#include "spectrum/frequencyspectrum.h"

#include <cstdint>
#include <vector>

class Spectrum;

void readAmplitudes(const FrequencySpectrum &spectrum, std::vector<double> &amplitudes);

/// What noiseFloor() works in.
struct NoiseScratch {
    std::vector<double> audible;
    std::vector<std::uint8_t> classes;
};

/// The `quantile` (0.0 ... 1.0) of the amplitudes above 0.05: the entry at (count - 1) × quantile,
/// truncated, of the sorted list; 0.0 without such an amplitude.
/// A quantile outside of the range counts as its nearer end, not-a-number as 0.0.
double noiseFloor(const std::vector<double> &amplitudes, double quantile, NoiseScratch &scratch);

/// Moves `reference` towards the largest amplitude (up by 30 % of the way, down by 0.1 % a call,
/// 1 % when there is no more than 0.001) and returns the gain, 0.1 ... 10.0, that takes it to
/// `target`; 1.0 while the reference is at or below 0.001.
double trackGain(const std::vector<double> &amplitudes, double target, double &reference);

/// Applies the gain, then takes off the noise floor (below 1.0) and stretches what is left so that
/// 1.0 stays 1.0, then mixes in `smoothing` × the previous result of the same point. What is not
/// above the floor becomes 0.0; what the gain has lifted above 1.0 stays above it. `smoothed` holds
/// the result of call after call; it is resized to the point count, new points starting from 0.0.
void scaleAndSmooth(const std::vector<double> &amplitudes, double gain, double floor,
                    double smoothing, std::vector<double> &smoothed);

/// Makes `result` the spectrum received, with the moving average of `amplitudes`, one for each of
/// its points, over `width` points across frequency; the first and last width / 2 points, or all
/// for a width below 1, get theirs as they are. The running sum deliberately starts `width` × the
/// first amplitude too high and stays so: each averaged point carries the first amplitude on top of
/// its mean. The memory of `result` is used again if it has as many points and no other owner.
void averageAcrossFrequency(const FrequencySpectrum &received,
                            const std::vector<double> &amplitudes, int width,
                            FrequencySpectrum &result, std::vector<double> &window);

/// The bar of a band that a frequency falls into: whole steps of (max - min) / bar count, an
/// integer division, above the lower limit, limited to the bars there are; 0 for a band without.
int barIndexFor(double frequency, const Spectrum &band);

/// Sets each bar to the largest amplitude of the points that fall into it and lie between the
/// limits of its band, both excluded; to 0.0 without such a point.
void fillBars(const FrequencySpectrum &spectrum, const std::vector<Spectrum *> &bands);
