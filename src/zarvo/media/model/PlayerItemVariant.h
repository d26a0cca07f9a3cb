#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// One variant stream that an item's master playlist offers (I-frame-only variants are left
/// out). A size of 0 by 0 is a variant that gives no RESOLUTION.
struct ZARVO_EXPORT PlayerItemVariant {
    std::string uri;                               ///< its media playlist
    std::int64_t bandwidth = 0;                    ///< BANDWIDTH, bits per second
    std::optional<std::int64_t> averageBandwidth;  ///< AVERAGE-BANDWIDTH, when given
    int width = 0;                                 ///< RESOLUTION's width in pixels
    int height = 0;                                ///< RESOLUTION's height in pixels
    std::string codecs;                            ///< CODECS as written, or empty
    std::optional<double> frameRate;               ///< FRAME-RATE, when given

    /// Equal fields.
    bool operator==(const PlayerItemVariant&) const = default;
};

}  // namespace zarvo
