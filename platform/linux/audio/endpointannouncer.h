// Which change of the endpoints is to be announced next.
#pragma once

#include "platform/linux/audio/soundendpoint.h"

#include <chrono>
#include <map>
#include <optional>

struct EndpointAnnouncement {
    enum Kind { Added, Removed, StateChanged, DefaultChanged, NameChanged };
    Kind kind;
    std::wstring id;
    EDataFlow flow = eRender;
    DWORD state = DEVICE_STATE_ACTIVE; ///< of StateChanged
};

/// Compares the latest snapshot with what has been announced so far, one announcement at a time.
/// Working from the difference, it catches up however long the listeners take, and never queues.
/// The first snapshot is the state that listeners find when they come: nothing is announced.
///
/// A server in use changes like this:
///  - a new endpoint: Added, and DefaultChanged if it became the default;
///  - one that vanished: Removed; when it was the default output, first DefaultChanged to the
///    endpoint that took over. If none does within kTakeoverTime: StateChanged to
///    DEVICE_STATE_NOTPRESENT, then Removed;
///  - one that came back under its old name before its going was announced: Removed, Added;
///  - its ports were all unplugged, or one was plugged in: StateChanged.
/// A server that goes away takes every endpoint to DEVICE_STATE_NOTPRESENT by StateChanged. When
/// it is back, each endpoint that is there again has a StateChanged, then the default of each flow
/// a DefaultChanged, even when it is the same as before. What has not come back by then is
/// Removed kReturnTime later.
/// After an endpoint became active, the default is left to settle for kSettleTime: servers move it
/// about while their devices appear one by one.
class EndpointAnnouncer {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kTakeoverTime {300};
    static constexpr std::chrono::milliseconds kSettleTime {200};
    static constexpr std::chrono::milliseconds kReturnTime {2000};

    /// The next announcement, regarded as made; none when everything is announced that can be now.
    std::optional<EndpointAnnouncement> next(const EndpointSnapshot &now, Clock::time_point time);

    /// After next() gave nothing: when to ask again even though no snapshot is newer.
    Clock::time_point deadline() const { return m_deadline; }

    /// After next() gave nothing: whether a change of the defaults or a removal is being held back.
    bool holding() const { return m_holding; }

private:
    // A connection's number and the server's index: never the same for two endpoints.
    using Key = std::pair<std::uint32_t, std::uint32_t>;

    struct Known {
        EDataFlow flow;
        Key key;
        DWORD state;
        std::wstring name;
        Clock::time_point vanished {}; // when its absence was first seen
    };

    std::optional<EndpointAnnouncement> nextLoss();
    std::optional<EndpointAnnouncement> nextPresent(const EndpointSnapshot &now,
                                                    Clock::time_point time);
    std::optional<EndpointAnnouncement> nextDefault(const EndpointSnapshot &now,
                                                    Clock::time_point time);
    std::optional<EndpointAnnouncement> nextVanished(const EndpointSnapshot &now,
                                                     Clock::time_point time);
    void takeBaseline(const EndpointSnapshot &now);
    EndpointAnnouncement changeState(const std::wstring &id, Known *known, DWORD state,
                                     Clock::time_point time);
    void wait(Clock::time_point until, bool holding);

    bool m_started = false;
    std::uint32_t m_connection = 0;
    std::map<std::wstring, Known> m_known;
    struct {
        std::wstring id;
        Key key {0, 0};
    } m_default[2]; // by flow
    Clock::time_point m_settled {};
    Clock::time_point m_returned {};
    Clock::time_point m_deadline = Clock::time_point::max();
    bool m_holding = false;
};
