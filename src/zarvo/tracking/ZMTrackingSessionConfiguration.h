#pragma once

#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

// Options of a tracking session.
struct ZARVO_EXPORT ZMTrackingSessionConfiguration {
    // A session is reported only if it lasted at least this many seconds; nothing, or a value
    // not greater than 0, means no minimum.
    std::optional<double> minSessionDuration;

    explicit ZMTrackingSessionConfiguration(std::optional<double> minSessionDuration = std::nullopt)
        : minSessionDuration(minSessionDuration) {}

    bool hasMinimumDuration() const { return minSessionDuration && *minSessionDuration > 0; }
};

}  // namespace zarvo
