// Level measures over 16-bit PCM. Pure; callable from any thread, allocate nothing.
#pragma once

#include <QtGlobal>
#include <vector>

struct SampleSums {
    /// Sum of the squares of the raw values; exact.
    qint64 squares = 0;
    /// The largest raw value, 0 ... 32767: negative excursions do not count.
    int peak = 0;
};

/// Over `count` contiguous signed little-endian 16-bit samples; no alignment is required.
SampleSums sumSamples(const char *samples, qint64 count);
/// The same, one sample after the other: for processors without SSE2, for what is left after the
/// last full vector, and to test against.
SampleSums sumSamplesPlainly(const char *samples, qint64 count);

/// RMS (0.0 ... 1.0, full scale = 32768) of the `count` samples that were summed; 0.0 without
/// samples.
double rmsLevel(qint64 squares, qint64 count);

/// RMS of a block of frames of `channels` (at least 1) samples, `bitsPerSample` / 8 (at least 1)
/// bytes apart, of each of which 16 bits are read. A frame that the block cuts short counts in
/// full, its missing bytes as 0. 0.0 if the block is empty.
double blockRms(const char *data, qint64 size, int channels, int bitsPerSample);

/// Appends to a history of fixed length whose oldest entry leaves, and keeps its running sum.
void pushHistory(std::vector<double> &history, double &sum, double newest);
