#include "platform/linux/audio/endpointcatalogue.h"

#include "platform/timesource.h"

#include <algorithm>

namespace {

// How many endpoints that are gone keep their name. A device that comes and goes under ever new
// names must not grow the process.
constexpr std::size_t kRememberedEndpoints = 64;

} // namespace

EndpointCatalogue::EndpointCatalogue()
    : m_snapshot(std::make_shared<EndpointSnapshot>())
{
}

void EndpointCatalogue::begin()
{
    m_filling = true;
}

void EndpointCatalogue::complete()
{
    m_filling = false;
    m_connected = true;
    ++m_connection;
    publish();
}

void EndpointCatalogue::disconnect()
{
    m_filling = false;
    m_endpoints[eRender].clear();
    m_endpoints[eCapture].clear();
    m_defaultId = {};
    // Every failed attempt to connect ends here; only the first one is news.
    if (m_connected || m_serial == 0) {
        m_connected = false;
        publish();
    }
}

void EndpointCatalogue::update(SoundEndpoint endpoint)
{
    // Most events are about volumes and streams, which are no part of an endpoint here.
    auto &endpoints = m_endpoints[endpoint.flow];
    const auto known = endpoints.find(endpoint.index);
    if (known != endpoints.end() && known->second == endpoint)
        return;
    const std::uint32_t index = endpoint.index;
    endpoints[index] = std::move(endpoint);
    publish();
}

void EndpointCatalogue::remove(EDataFlow flow, std::uint32_t index)
{
    if (m_endpoints[flow].erase(index))
        publish();
}

void EndpointCatalogue::setDefaults(std::wstring render, std::wstring capture)
{
    std::array<std::wstring, 2> ids {std::move(render), std::move(capture)};
    if (ids == m_defaultId)
        return;
    m_defaultId = std::move(ids);
    publish();
}

bool EndpointCatalogue::isPresent(EDataFlow flow, const std::wstring &id) const
{
    const auto &endpoints = m_endpoints[flow];
    return std::any_of(endpoints.begin(), endpoints.end(),
                       [&](const auto &entry) { return entry.second.id == id; });
}

std::shared_ptr<const EndpointSnapshot> EndpointCatalogue::snapshot() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_snapshot;
}

std::shared_ptr<const EndpointSnapshot>
EndpointCatalogue::waitForChange(std::uint64_t serial, Clock::time_point deadline) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto changed = [&] { return m_awake || m_snapshot->serial > serial; };
    waitUntil(m_changed, &lock, deadline, changed);
    return m_snapshot;
}

void EndpointCatalogue::wakeUp()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_awake = true;
    m_changed.notify_all();
}

void EndpointCatalogue::publish()
{
    if (m_filling)
        return;
    const std::shared_ptr<const EndpointSnapshot> last = snapshot();
    auto next = std::make_shared<EndpointSnapshot>();
    next->serial = last->serial + 1;
    next->connection = m_connection;
    next->connected = m_connected;
    next->defaultId = m_defaultId;

    // A server may give two endpoints one name; the older one has it.
    for (const auto &endpoints : m_endpoints) {
        for (const auto &entry : endpoints) {
            if (!next->findPresent(entry.second.id))
                next->present.push_back(entry.second);
        }
    }

    for (const auto *known : {&last->gone, &last->present}) {
        for (const SoundEndpoint &endpoint : *known) {
            if (next->findPresent(endpoint.id))
                continue;
            next->gone.push_back(endpoint);
            next->gone.back().state = DEVICE_STATE_NOTPRESENT;
        }
    }
    if (next->gone.size() > kRememberedEndpoints)
        next->gone.erase(next->gone.begin(), next->gone.end() - kRememberedEndpoints);

    const std::lock_guard<std::mutex> lock(m_mutex);
    m_snapshot = std::move(next);
    m_serial = m_snapshot->serial;
    m_changed.notify_all();
}
