// toneplayer <sink> <rate> <channel map> <frequency> <amplitude of each channel>...
//
// Plays a sine to a sink until it is ended. The stream stays on that sink whatever the server's
// default becomes. Says "playing" once the first of it is on its way; ends with 1 when the server
// refuses, the sink goes or the server does.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop.h>
#include <pulse/stream.h>
#include <vector>

namespace {

struct Player {
    pa_mainloop *loop = pa_mainloop_new();
    pa_stream *stream = nullptr;
    const char *sink = nullptr;
    pa_sample_spec spec {};
    pa_channel_map map {};
    double frequency = 0;
    double phase = 0;
    std::vector<float> amplitudes;
    std::vector<float> block;
    bool playing = false;
};

void fail(Player *player, const char *what, pa_context *context)
{
    std::fprintf(stderr, "toneplayer: %s: %s\n", what, pa_strerror(pa_context_errno(context)));
    pa_mainloop_quit(player->loop, 1);
}

void write(pa_stream *stream, std::size_t bytes, void *userdata)
{
    auto *const player = static_cast<Player *>(userdata);
    const std::size_t channels = player->amplitudes.size();
    const std::size_t frames = bytes / (channels * sizeof(float));
    const double step = 2 * M_PI * player->frequency / player->spec.rate;
    player->block.resize(frames * channels);
    for (std::size_t i = 0; i < frames; ++i) {
        for (std::size_t c = 0; c < channels; ++c)
            player->block[i * channels + c] =
                player->amplitudes[c] * static_cast<float>(std::sin(player->phase));
        player->phase = std::fmod(player->phase + step, 2 * M_PI);
    }
    if (pa_stream_write(stream, player->block.data(), player->block.size() * sizeof(float), nullptr,
                        0, PA_SEEK_RELATIVE)
        < 0)
        return fail(player, "cannot play on", pa_stream_get_context(stream));
    if (!player->playing) {
        player->playing = true;
        std::puts("playing");
        std::fflush(stdout);
    }
}

void connectStream(Player *player, pa_context *context)
{
    // Short enough that a tone is heard soon, long enough for a busy machine.
    const pa_buffer_attr attributes {
        static_cast<std::uint32_t>(-1),
        static_cast<std::uint32_t>(pa_usec_to_bytes(200000, &player->spec)),
        static_cast<std::uint32_t>(-1), static_cast<std::uint32_t>(-1),
        static_cast<std::uint32_t>(-1)};
    player->stream = pa_stream_new(context, "Tone", &player->spec, &player->map);
    if (!player->stream)
        return fail(player, "cannot play", context);
    pa_stream_set_write_callback(player->stream, &write, player);
    pa_stream_set_state_callback(
        player->stream,
        [](pa_stream *stream, void *self) {
            if (!PA_STREAM_IS_GOOD(pa_stream_get_state(stream)))
                fail(static_cast<Player *>(self), "the stream ended",
                     pa_stream_get_context(stream));
        },
        player);
    if (pa_stream_connect_playback(player->stream, player->sink, &attributes, PA_STREAM_DONT_MOVE,
                                   nullptr, nullptr)
        < 0)
        fail(player, "cannot play", context);
}

void handleContext(pa_context *context, void *userdata)
{
    auto *const player = static_cast<Player *>(userdata);
    const pa_context_state_t state = pa_context_get_state(context);
    if (state == PA_CONTEXT_READY)
        connectStream(player, context);
    else if (!PA_CONTEXT_IS_GOOD(state))
        fail(player, "no server", context);
}

} // namespace

int main(int argc, char **argv)
{
    Player player;
    if (argc < 6 || !pa_channel_map_parse(&player.map, argv[3])
        || argc != 5 + player.map.channels) {
        std::fprintf(stderr, "toneplayer: sink, rate, channel map, frequency, amplitudes\n");
        return 2;
    }
    player.sink = argv[1];
    player.spec = {PA_SAMPLE_FLOAT32NE, static_cast<std::uint32_t>(std::atoi(argv[2])),
                   player.map.channels};
    player.frequency = std::atof(argv[4]);
    for (int i = 5; i < argc; ++i)
        player.amplitudes.push_back(static_cast<float>(std::atof(argv[i])));

    pa_context *const context = pa_context_new(pa_mainloop_get_api(player.loop), "toneplayer");
    pa_context_set_state_callback(context, &handleContext, &player);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        return 1;
    int status = 1;
    pa_mainloop_run(player.loop, &status);
    return status;
}
