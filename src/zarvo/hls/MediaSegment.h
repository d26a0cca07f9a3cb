#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

class MediaPlaylist;

// One segment of a media playlist: its "#EXTINF" values, byte range and URI line.
class ZARVO_EXPORT MediaSegment {
public:
    std::weak_ptr<MediaPlaylist> mediaPlaylist;  // the playlist that lists it (not owned)
    std::optional<float> duration;               // seconds
    std::int64_t sequence = 0;
    std::optional<std::int64_t> subrangeLength;  // bytes
    std::optional<std::int64_t> subrangeStart;   // byte offset
    std::optional<std::string> title;
    bool discontinuity = false;
    std::optional<std::string> path;  // the URI line as written
};

}  // namespace zarvo
