#include "platform/linux/audio/soundendpoint.h"

#include <algorithm>
#include <QString>
#include <utility>

namespace {

DWORD speakerBit(pa_channel_position_t position)
{
    switch (position) {
    case PA_CHANNEL_POSITION_FRONT_LEFT:
        return 0x1;
    case PA_CHANNEL_POSITION_FRONT_RIGHT:
        return 0x2;
    case PA_CHANNEL_POSITION_MONO:
    case PA_CHANNEL_POSITION_FRONT_CENTER:
        return 0x4;
    case PA_CHANNEL_POSITION_LFE:
        return 0x8;
    case PA_CHANNEL_POSITION_REAR_LEFT:
        return 0x10;
    case PA_CHANNEL_POSITION_REAR_RIGHT:
        return 0x20;
    case PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER:
        return 0x40;
    case PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER:
        return 0x80;
    case PA_CHANNEL_POSITION_REAR_CENTER:
        return 0x100;
    case PA_CHANNEL_POSITION_SIDE_LEFT:
        return 0x200;
    case PA_CHANNEL_POSITION_SIDE_RIGHT:
        return 0x400;
    case PA_CHANNEL_POSITION_TOP_CENTER:
        return 0x800;
    case PA_CHANNEL_POSITION_TOP_FRONT_LEFT:
        return 0x1000;
    case PA_CHANNEL_POSITION_TOP_FRONT_CENTER:
        return 0x2000;
    case PA_CHANNEL_POSITION_TOP_FRONT_RIGHT:
        return 0x4000;
    case PA_CHANNEL_POSITION_TOP_REAR_LEFT:
        return 0x8000;
    case PA_CHANNEL_POSITION_TOP_REAR_CENTER:
        return 0x10000;
    case PA_CHANNEL_POSITION_TOP_REAR_RIGHT:
        return 0x20000;
    default:
        return 0;
    }
}

const SoundEndpoint *findById(const std::vector<SoundEndpoint> &endpoints, const std::wstring &id)
{
    const auto found = std::find_if(endpoints.begin(), endpoints.end(),
                                    [&](const SoundEndpoint &e) { return e.id == id; });
    return found == endpoints.end() ? nullptr : &*found;
}

} // namespace

bool operator==(const SoundEndpoint &a, const SoundEndpoint &b)
{
    return a.flow == b.flow && a.index == b.index && a.id == b.id && a.name == b.name
        && a.description == b.description && a.state == b.state && a.monitor == b.monitor
        && a.rate == b.rate && pa_channel_map_equal(&a.channels, &b.channels)
        && a.channelMask == b.channelMask;
}

const SoundEndpoint *EndpointSnapshot::findPresent(const std::wstring &id) const
{
    return findById(present, id);
}

const SoundEndpoint *EndpointSnapshot::find(const std::wstring &id) const
{
    const SoundEndpoint *const endpoint = findById(present, id);
    return endpoint ? endpoint : findById(gone, id);
}

const SoundEndpoint *EndpointSnapshot::findDefault(EDataFlow flow) const
{
    const SoundEndpoint *const endpoint = findPresent(defaultId[static_cast<std::size_t>(flow)]);
    const bool usable =
        endpoint && endpoint->flow == flow && endpoint->state == DEVICE_STATE_ACTIVE;
    return usable ? endpoint : nullptr;
}

std::wstring wideText(const char *utf8)
{
    return QString::fromUtf8(utf8).toStdWString();
}

DWORD orderChannels(pa_channel_map *map)
{
    std::pair<DWORD, pa_channel_position_t> places[PA_CHANNELS_MAX];
    DWORD mask = 0;
    for (unsigned i = 0; i < map->channels; ++i) {
        const DWORD bit = speakerBit(map->map[i]);
        if (!bit || (mask & bit))
            return 0;
        mask |= bit;
        places[i] = {bit, map->map[i]};
    }
    std::sort(places, places + map->channels);
    for (unsigned i = 0; i < map->channels; ++i)
        map->map[i] = places[i].second;
    return mask;
}
