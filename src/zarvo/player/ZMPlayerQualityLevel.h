#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// One video quality of the current stream: a variant of its master playlist. The player lists
/// them once the item is ready (ZMPlayer::qualityLevels()); the host pins one with
/// ZMPlayer::selectQualityLevel().
struct ZARVO_EXPORT ZMPlayerQualityLevel {
    /// The variant's media playlist, which names the level.
    std::string uri;
    /// Its peak bitrate (BANDWIDTH), bits per second.
    std::int64_t bandwidth = 0;
    /// Its average bitrate (AVERAGE-BANDWIDTH), bits per second, when the playlist gives it.
    std::optional<std::int64_t> averageBandwidth;
    /// Picture width in pixels; 0 when the playlist does not give a RESOLUTION.
    int width = 0;
    /// Picture height in pixels; 0 when the playlist does not give a RESOLUTION.
    int height = 0;
    /// The CODECS attribute as written, or empty.
    std::string codecs;
    /// Frames per second (FRAME-RATE), when the playlist gives it.
    std::optional<double> frameRate;

    /// Equal fields.
    bool operator==(const ZMPlayerQualityLevel&) const = default;
};

}  // namespace zarvo
