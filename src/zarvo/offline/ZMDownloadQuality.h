#pragma once

#include <cstdint>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// A video quality that can be downloaded, with its estimated sizes in bytes. The bitrate is
/// the variant's BANDWIDTH.
struct ZARVO_EXPORT ZMDownloadQuality {
    /// The variant's width in pixels (0 without RESOLUTION).
    std::uint64_t width = 0;
    /// The variant's height in pixels (0 without RESOLUTION).
    std::uint64_t height = 0;
    std::uint64_t bitrate = 0;  ///< bits per second
    /// Estimated bytes with the full audio allowance (ZMOfflineSize::size).
    double size = 0;
    /// Estimated bytes with the basic audio allowance (ZMOfflineSize::sizeWithBasicAudio).
    double sizeWithBasicAudio = 0;

    /// Equal in every field.
    bool operator==(const ZMDownloadQuality&) const = default;
};

}  // namespace zarvo
