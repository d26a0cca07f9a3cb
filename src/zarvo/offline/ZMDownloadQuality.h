#pragma once

#include <cstdint>

namespace zarvo {

// A video quality that can be downloaded, with its estimated sizes in bytes.
struct ZMDownloadQuality {
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t bitrate = 0;  // bits per second
    double size = 0;
    double sizeWithBasicAudio = 0;

    bool operator==(const ZMDownloadQuality&) const = default;
};

}  // namespace zarvo
