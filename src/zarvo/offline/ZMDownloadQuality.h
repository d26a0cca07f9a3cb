#pragma once

#include <cstdint>

#include <nlohmann/json.hpp>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A video quality that can be downloaded, with its estimated sizes in bytes.
struct ZARVO_EXPORT ZMDownloadQuality {
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t bitrate = 0;  // bits per second
    double size = 0;
    double sizeWithBasicAudio = 0;

    bool operator==(const ZMDownloadQuality&) const = default;
};

// Serialised under the keys "width", "height", "bitrate", "size", "sizeWithBasicAudio".
void to_json(nlohmann::json& json, const ZMDownloadQuality& quality);
void to_json(nlohmann::ordered_json& json, const ZMDownloadQuality& quality);
// Missing or mistyped keys throw nlohmann::json::exception, as for any decoded record.
void from_json(const nlohmann::json& json, ZMDownloadQuality& quality);

}  // namespace zarvo
