#pragma once

#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// Options of a tracking session.
struct ZARVO_EXPORT ZMTrackingSessionConfiguration {
    /// A session is reported only if it lasted at least this many seconds; nothing, or a value
    /// not greater than 0, means no minimum. A session with a minimum sends nothing at all:
    /// start() holds its initialisation beacon back (see ZMTrackingSession::start()).
    std::optional<double> minSessionDuration;

    /// A configuration with `minSessionDuration`.
    explicit ZMTrackingSessionConfiguration(std::optional<double> minSessionDuration = std::nullopt)
        : minSessionDuration(minSessionDuration) {}

    /// Whether minSessionDuration is set and greater than 0.
    bool hasMinimumDuration() const { return minSessionDuration && *minSessionDuration > 0; }
};

}  // namespace zarvo
