#include "spectrum/fft/ffttables.h"

#include <cmath>

namespace {

double angle(int power, int length)
{
    return -2.0 * std::acos(-1.0) * power / length;
}

FFTTables::Twiddle twiddle(int power, int length)
{
    const double turn = angle(power, length);
    return {static_cast<float>(std::cos(turn)), static_cast<float>(std::sin(turn))};
}

} // namespace

FFTTables::FFTTables()
{
    for (int p = 0; p < 16; ++p) {
        for (int j = 0; j < 8; ++j)
            w128[p][j] = twiddle(j * p, 128);
    }
    for (int p = 0; p < 4; ++p) {
        for (int j = 0; j < 4; ++j)
            w16[p][j] = twiddle(j * p, 16);
    }
    for (int c = 0; c < 8; ++c) {
        for (int k = 0; k < 128; ++k) {
            const Twiddle w = twiddle(c * k, 1024);
            w1024Re[c][k] = w.re;
            w1024Im[c][k] = w.im;
        }
    }
    for (int k = 0; k <= kHalf / 2; ++k) {
        const double turn = angle(k <= kHalf / 4 ? k : k - kHalf / 2, kLength);
        w2048ExcessRe[k] = static_cast<float>(-2.0 * std::pow(std::sin(turn / 2.0), 2)); // cos - 1
        w2048ExcessIm[k] = static_cast<float>(std::sin(turn));
    }
}
