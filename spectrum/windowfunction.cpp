#include "spectrum/windowfunction.h"

#include <cmath>

namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kFourPi = 12.566370614359172;
constexpr double kSixPi = 18.84955592153876;

double weight(WindowFunction type, double n, double length)
{
    const double last = length - 1.0;
    const double centre = last / 2.0;
    switch (type) {
    case NoWindow:
        return 1.0;
    case GaussianWindow: {
        // A standard deviation of 0.4 half lengths; position and square are single precision.
        const float x = static_cast<float>((n - centre) / (0.4 * last / 2.0));
        const float square = x * x;
        return std::exp(-0.5 * static_cast<double>(square));
    }
    case HannWindow:
        return 0.5 * (1.0 - std::cos(kTwoPi * n / last));
    case HammingWindow:
        return 0.53836 - 0.46164 * std::cos(kTwoPi * n / last);
    case BartlettWindow:
        return (centre - std::fabs(n - centre)) * 2.0 / last;
    case TriangularWindow:
        return (length / 2.0 - std::fabs(n - centre)) * 2.0 / length;
    case BlackmanWindow:
        return 0.42 - 0.5 * std::cos(kTwoPi * n / last) + 0.08 * std::cos(kFourPi * n / last);
    case BlackmanNuttallWindow:
        // Deliberately not the published window: the third coefficient and the sign of the fourth
        // term are this program's own.
        return 0.355768 - 0.487396 * std::cos(kTwoPi * n / last)
            + 0.1444232 * std::cos(kFourPi * n / last) + 0.012604 * std::cos(kSixPi * n / last);
    case SineWindow:
        return std::sin(kPi * n / last);
    }
    return 0.0;
}

} // namespace

void fillWindow(WindowFunction type, float *weights, int length)
{
    for (int n = 0; n < length; ++n)
        weights[n] = static_cast<float>(weight(type, n, length));
}
