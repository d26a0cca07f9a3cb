#pragma once

#include <cstdint>
#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// What an engine counts about the playback of one item, beside its access log.
struct ZARVO_EXPORT PlayerItemStatistics {
    /// Seconds from the item becoming current to its first video frame; none before it.
    std::optional<double> startupTime;
    /// Times that playback ran out of media while playing.
    std::int64_t numberOfStalls = 0;
    /// Seconds spent stalled, the stall going on included.
    double stallDuration = 0;
    /// Whether playback is stalled now.
    bool stalled = false;
    /// Video frames dropped for being late (by the decoder or the sink).
    std::int64_t droppedVideoFrames = 0;
    /// Video frames that reached the video sink.
    std::int64_t decodedVideoFrames = 0;

    /// Equal fields.
    bool operator==(const PlayerItemStatistics&) const = default;
};

}  // namespace zarvo
