// Test signals as PCM blocks: interleaved 16-bit little-endian frames.
#pragma once

#include <cmath>
#include <functional>
#include <QByteArray>
#include <QtEndian>
#include <random>

namespace sound {

constexpr int kBlockBytes = 2048 * 4; // of what is analysed at a time

/// Sample value of a frame and a channel, -1.0 ... 1.0 of full scale.
using Source = std::function<double(int frame, int channel)>;

inline qint16 quantised(double value)
{
    return static_cast<qint16>(std::lround(std::fmax(-32768.0, std::fmin(32767.0, value * 32767))));
}

inline QByteArray pcm(const Source &source, int firstFrame, int frames, int channels = 2)
{
    QByteArray data(frames * channels * 2, Qt::Uninitialized);
    char *to = data.data();
    for (int frame = firstFrame; frame < firstFrame + frames; ++frame) {
        for (int channel = 0; channel < channels; ++channel, to += 2)
            qToLittleEndian(quantised(source(frame, channel)), to);
    }
    return data;
}

inline Source sine(double hz, double amplitude, double rate = 48000.0)
{
    return [=](int frame, int) {
        return amplitude * std::sin(2.0 * std::acos(-1.0) * hz * frame / rate);
    };
}

/// A hash of frame and channel, so that any part of the noise can be made again.
inline Source whiteNoise(double amplitude)
{
    return [=](int frame, int channel) {
        std::minstd_rand random(static_cast<unsigned>(frame * 2 + channel + 1) * 2654435761U);
        random.discard(3);
        return amplitude * (random() / (0.5 * std::minstd_rand::max()) - 1.0);
    };
}

inline Source silence()
{
    return [](int, int) { return 0.0; };
}

inline Source square(int period, double amplitude)
{
    return [=](int frame, int) { return frame % period < period / 2 ? amplitude : -amplitude; };
}

/// `source` on one channel only.
inline Source only(int wanted, Source source)
{
    return [=](int frame, int channel) { return channel == wanted ? source(frame, channel) : 0.0; };
}

/// `before` up to a frame, `after` from there on.
inline Source step(int at, Source before, Source after)
{
    return [=](int frame, int channel) {
        return frame < at ? before(frame, channel) : after(frame, channel);
    };
}

} // namespace sound
