#pragma once

/// The service, as seen from a consumer.
enum class ServiceState {
    Missing, ///< not there, or gone
    OtherType, ///< what answered last is of another type
    Connected
};
