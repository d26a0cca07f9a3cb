#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// One entry of an item's access log: the playback of one variant, from the moment the engine
/// switched to it until the next switch. Rates are in bits per second; a figure with nothing
/// behind it yet is NaN (observedBitrate before any transfer) or 0. The playback type "FILE"
/// is that of a package on disk.
struct ZARVO_EXPORT PlayerItemAccessLogEvent {
    std::string uri;                        ///< the variant's media playlist
    std::string serverAddress;              ///< host of that playlist
    std::optional<Date> playbackStartDate;  ///< when this entry began
    double playbackStartOffset = 0;         ///< media time, seconds, when it began
    std::string playbackType;               ///< "VOD", "LIVE" or "FILE"
    /// The media requests (segments) made for this variant.
    std::int64_t numberOfMediaRequests = 0;
    /// The bytes of media received.
    std::int64_t numberOfBytesTransferred = 0;
    double transferDuration = 0;            ///< seconds spent receiving media
    double segmentsDownloadedDuration = 0;  ///< media seconds of the segments received
    double durationWatched = 0;             ///< seconds played
    /// How often playback ran out of media.
    std::int64_t numberOfStalls = 0;
    double indicatedBitrate = 0;  ///< BANDWIDTH of the variant
    double observedBitrate = 0;   ///< bytes * 8 / transfer time; NaN before the first transfer
    double switchBitrate = 0;     ///< the indicated bitrate of the entry before, 0 for the first

    /// Equal fields (NaN never equals NaN).
    bool operator==(const PlayerItemAccessLogEvent&) const = default;
};

}  // namespace zarvo
