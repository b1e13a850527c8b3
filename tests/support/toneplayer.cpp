// toneplayer <sink> <rate> <channel map> <frequency> <amplitude of each channel>...
//
// Plays a sine to a sink until it is ended. Says "playing" once the server has taken the first of
// it; ends with 1 when the server refuses or goes away.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <pulse/error.h>
#include <pulse/simple.h>
#include <vector>

namespace {

int fail(const char *what, int error)
{
    std::fprintf(stderr, "toneplayer: %s: %s\n", what, pa_strerror(error));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    pa_channel_map map;
    if (argc < 6 || !pa_channel_map_parse(&map, argv[3]) || argc != 5 + map.channels) {
        std::fprintf(stderr, "toneplayer: sink, rate, channel map, frequency, amplitudes\n");
        return 2;
    }
    const pa_sample_spec spec {PA_SAMPLE_FLOAT32NE, std::uint32_t(std::atoi(argv[2])),
                               map.channels};
    const double frequency = std::atof(argv[4]);
    std::vector<double> amplitudes;
    for (int i = 5; i < argc; ++i)
        amplitudes.push_back(std::atof(argv[i]));

    // Short enough that a tone is heard soon, long enough for a busy machine.
    pa_buffer_attr attributes {std::uint32_t(-1), std::uint32_t(pa_usec_to_bytes(200000, &spec)),
                               std::uint32_t(-1), std::uint32_t(-1), std::uint32_t(-1)};
    int error = 0;
    pa_simple *const stream = pa_simple_new(nullptr, "toneplayer", PA_STREAM_PLAYBACK, argv[1],
                                            "Tone", &spec, &map, &attributes, &error);
    if (!stream)
        return fail("cannot play", error);

    const double step = 2 * M_PI * frequency / spec.rate;
    const std::size_t frames = spec.rate / 100;
    std::vector<float> block(frames * map.channels);
    double phase = 0;
    for (bool first = true;; first = false) {
        for (std::size_t i = 0; i < frames; ++i) {
            for (std::size_t c = 0; c < map.channels; ++c)
                block[i * map.channels + c] = float(amplitudes[c] * std::sin(phase));
            phase = std::fmod(phase + step, 2 * M_PI);
        }
        if (pa_simple_write(stream, block.data(), block.size() * sizeof(float), &error) < 0)
            return fail("cannot play on", error);
        if (first) {
            std::puts("playing");
            std::fflush(stdout);
        }
    }
}
