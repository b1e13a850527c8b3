// One sink or source of the sound server, and the picture of all of them at one moment.
#pragma once

#include <array>
#include <memory>
#include <mmdeviceapi.h>
#include <pulse/channelmap.h>
#include <string>
#include <vector>

struct SoundEndpoint {
    EDataFlow flow = eRender; ///< eRender is a sink, eCapture a source that monitors no sink
    std::uint32_t index = 0; ///< the server's number; a device that comes back gets a new one
    std::wstring id; ///< the server's name for it
    std::wstring name; ///< what a person reads
    std::wstring description; ///< the port it plays to, else the same as name
    DWORD state = DEVICE_STATE_ACTIVE; ///< DEVICE_STATE_ACTIVE, _UNPLUGGED or _NOTPRESENT
    std::string monitor; ///< a sink's monitor source, the server's own spelling
    std::uint32_t rate = 0; ///< frames a second
    pa_channel_map channels {}; ///< in the order of the bits of channelMask, if any
    DWORD channelMask = 0; ///< SPEAKER_ bits; 0 when a channel has no such place
};

bool operator==(const SoundEndpoint &a, const SoundEndpoint &b);

/// Immutable once published, so that any thread may read it without a lock.
struct EndpointSnapshot {
    std::uint64_t serial = 0; ///< grows with every change; 0 before the first connection attempt
    std::uint32_t connection = 0; ///< grows with every connection to a server
    bool connected = false;
    std::vector<SoundEndpoint> present; ///< sinks, then sources, each in the server's order
    std::vector<SoundEndpoint> gone; ///< seen before and remembered for their names, newest last
    std::array<std::wstring, 2> defaultId; ///< by flow; what the server calls its default

    const SoundEndpoint *findPresent(const std::wstring &id) const;

    /// Present ones first, then those that are gone.
    const SoundEndpoint *find(const std::wstring &id) const;

    /// The default of a flow if it exists and is active, else null.
    const SoundEndpoint *findDefault(EDataFlow flow) const;
};

/// Wide characters of the server's UTF-8; empty for null.
std::wstring wideText(const char *utf8);

/// Sorts the channels into the order of their speaker bits and returns these bits; leaves the map
/// as it is and returns 0 when a channel has none or two share one.
DWORD orderChannels(pa_channel_map *map);
