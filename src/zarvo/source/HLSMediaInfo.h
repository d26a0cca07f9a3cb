#pragma once

#include <cstdint>
#include <string>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// One "#EXT-X-MEDIA" rendition line of a master playlist.
struct ZARVO_EXPORT HLSMediaInfo {
    std::int64_t index = 0;    // position among the rendition lines
    std::string originalLine;  // the line as read
    Url playlistUrl;           // absolute, with the master's query appended
};

}  // namespace zarvo
