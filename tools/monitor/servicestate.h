#pragma once

/// The service, as seen from a consumer.
enum class ServiceState {
    Missing, ///< not there, or gone
    OtherType, ///< the source that answered last is of another type
    Connected
};
