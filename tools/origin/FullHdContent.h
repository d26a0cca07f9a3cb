#pragma once

#include <filesystem>
#include <string>
#include <variant>

#include "zarvo/platform/Error.h"

namespace zarvo::origin {

// A 1080p50 H.264 VOD with AAC stereo audio in the same transport streams: 20 seconds of test
// pattern and tone in 2-second segments, at the rate a 1080p50 rendition of a streaming service
// has. Made once with the ffmpeg tool and kept in a cache folder named after a hash of the
// recipe; the folder holds master.m3u8 (one variant), index.m3u8 and the segments.
class FullHdContent {
public:
    // Finds the content under `cacheRoot` (ContentCache::defaultRoot() when empty), making it
    // first when missing: that takes a while, as every frame is encoded at full size.
    static std::variant<FullHdContent, Error> prepare(std::filesystem::path cacheRoot = {});
    // Everything that shapes the content; its hash names the cache folder.
    static std::string recipe();
    // Seconds of media.
    static double duration();

    const std::filesystem::path& directory() const { return directory_; }

private:
    friend class ContentCache;
    explicit FullHdContent(std::filesystem::path directory) : directory_(std::move(directory)) {}

    std::filesystem::path directory_;
};

}  // namespace zarvo::origin
