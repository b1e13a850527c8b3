#include "platform/linux/audio/endpointannouncer.h"

#include <algorithm>

std::optional<EndpointAnnouncement> EndpointAnnouncer::next(const EndpointSnapshot &now,
                                                            Clock::time_point time)
{
    m_deadline = Clock::time_point::max();
    m_holding = false;
    if (!m_started) {
        if (now.serial)
            takeBaseline(now);
        return std::nullopt;
    }
    if (!now.connected)
        return nextLoss();
    if (now.connection != m_connection) {
        m_connection = now.connection;
        m_settled = time + kSettleTime;
        m_returned = time + kReturnTime;
    }
    if (auto announcement = nextPresent(now, time))
        return announcement;
    if (auto announcement = nextDefault(now, time))
        return announcement;
    return nextVanished(now, time);
}

void EndpointAnnouncer::takeBaseline(const EndpointSnapshot &now)
{
    m_started = true;
    m_connection = now.connection;
    for (const SoundEndpoint &e : now.present)
        m_known[e.id] = Known {e.flow, {now.connection, e.index}, e.state, e.name};
    for (const EDataFlow flow : {eRender, eCapture}) {
        if (const SoundEndpoint *const e = now.findDefault(flow))
            m_default[flow] = {e->id, {now.connection, e->index}};
    }
}

std::optional<EndpointAnnouncement> EndpointAnnouncer::nextLoss()
{
    for (auto &entry : m_known) {
        Known &known = entry.second;
        if (known.state != DEVICE_STATE_NOTPRESENT)
            return changeState(entry.first, &known, DEVICE_STATE_NOTPRESENT, {});
    }
    return std::nullopt;
}

std::optional<EndpointAnnouncement> EndpointAnnouncer::nextPresent(const EndpointSnapshot &now,
                                                                   Clock::time_point time)
{
    for (const SoundEndpoint &e : now.present) {
        const Key key {now.connection, e.index};
        const auto found = m_known.find(e.id);
        if (found == m_known.end()) {
            m_known[e.id] = Known {e.flow, key, e.state, e.name};
            return EndpointAnnouncement {EndpointAnnouncement::Added, e.id, e.flow, e.state};
        }
        Known &known = found->second;
        if (known.state == DEVICE_STATE_NOTPRESENT) {
            known = Known {e.flow, key, known.state, e.name};
            return changeState(e.id, &known, e.state, time);
        }
        if (known.key != key)
            continue; // another endpoint of the same name: removal first
        known.vanished = {};
        if (known.state != e.state)
            return changeState(e.id, &known, e.state, time);
        if (known.name != e.name) {
            known.name = e.name;
            return EndpointAnnouncement {EndpointAnnouncement::NameChanged, e.id, e.flow, e.state};
        }
    }
    return std::nullopt;
}

std::optional<EndpointAnnouncement> EndpointAnnouncer::nextDefault(const EndpointSnapshot &now,
                                                                   Clock::time_point time)
{
    for (const EDataFlow flow : {eRender, eCapture}) {
        const SoundEndpoint *const e = now.findDefault(flow);
        if (!e || m_default[flow].key == Key {now.connection, e->index})
            continue;
        if (time < m_settled) {
            wait(m_settled, true);
            continue;
        }
        m_default[flow] = {e->id, {now.connection, e->index}};
        return EndpointAnnouncement {EndpointAnnouncement::DefaultChanged, e->id, flow, e->state};
    }
    return std::nullopt;
}

std::optional<EndpointAnnouncement> EndpointAnnouncer::nextVanished(const EndpointSnapshot &now,
                                                                    Clock::time_point time)
{
    for (auto entry = m_known.begin(); entry != m_known.end(); ++entry) {
        const std::wstring &id = entry->first;
        Known &known = entry->second;
        const SoundEndpoint *const e = now.findPresent(id);
        if (e && known.key == Key {now.connection, e->index})
            continue;
        if (known.state == DEVICE_STATE_NOTPRESENT && time < m_returned) {
            wait(m_returned, false);
            continue;
        }
        // Was it the default output, and has nothing taken its place yet?
        if (!e && known.state != DEVICE_STATE_NOTPRESENT && known.flow == eRender
            && m_default[eRender].key == known.key) {
            if (known.vanished == Clock::time_point {})
                known.vanished = time;
            if (time < known.vanished + kTakeoverTime) {
                wait(known.vanished + kTakeoverTime, true);
                continue;
            }
            return changeState(id, &known, DEVICE_STATE_NOTPRESENT, time);
        }
        EndpointAnnouncement removed {EndpointAnnouncement::Removed, id, known.flow, known.state};
        m_known.erase(entry);
        return removed;
    }
    return std::nullopt;
}

EndpointAnnouncement EndpointAnnouncer::changeState(const std::wstring &id, Known *known,
                                                    DWORD state, Clock::time_point time)
{
    known->state = state;
    if (state == DEVICE_STATE_ACTIVE)
        m_settled = std::max(m_settled, time + kSettleTime);
    return EndpointAnnouncement {EndpointAnnouncement::StateChanged, id, known->flow, state};
}

void EndpointAnnouncer::wait(Clock::time_point until, bool holding)
{
    m_deadline = std::min(m_deadline, until);
    m_holding = m_holding || holding;
}
