#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

class PlayerItem;

/// How the current item has played so far (ZMPlayer::playbackStatistics()). Times are in
/// seconds and bitrates in bits per second.
struct ZARVO_EXPORT ZMPlaybackStatistics {
    /// From opening the item to its first video frame; none before that frame.
    std::optional<double> startupTime;
    /// Times that playback ran out of media while playing.
    std::int64_t stallCount = 0;
    /// Time spent stalled, a stall going on included.
    double stallDuration = 0;
    /// Video frames dropped for being late.
    std::int64_t droppedFrames = 0;
    /// Video frames decoded and handed to the video output.
    std::int64_t decodedFrames = 0;
    /// The indicated bitrate (BANDWIDTH) of the qualities played, weighted by the time each
    /// played; the current one's before anything has played; 0 without any.
    double averageBitrate = 0;
    /// The indicated bitrate of the quality playing now, when one is.
    std::optional<double> currentBitrate;
    /// Bytes of media (segments) downloaded.
    std::int64_t bytesDownloaded = 0;
    /// Time played at each quality, by its indicated bitrate.
    std::map<std::int64_t, double> timeByBitrate;

    /// The statistics of `item`: what its engine counted and what its access log holds.
    static ZMPlaybackStatistics of(const PlayerItem& item);

    /// Equal fields.
    bool operator==(const ZMPlaybackStatistics&) const = default;
};

}  // namespace zarvo
