#pragma once

#include <cstdint>
#include <string>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// One variant ("#EXT-X-STREAM-INF" and its URI line) of a master playlist.
struct ZARVO_EXPORT HLSStreamInfo {
    std::int64_t index = 0;  // ordinal among the variants, from 0
    std::int64_t bandwidth = 0;
    std::int64_t width = 0;   // 0 when it does not parse
    std::int64_t height = 0;  // 0 when it does not parse
    std::string resolution;   // the RESOLUTION value as written, empty if none
    Url playlistUrl;
};

}  // namespace zarvo
