#pragma once

#include <nlohmann/json.hpp>

#include "zarvo/offline/ZMDownloadQuality.h"

namespace zarvo {

// The JSON form of a download quality, found by nlohmann's get<>() and assignment.

// Serialised under the keys "width", "height", "bitrate", "size", "sizeWithBasicAudio".
void to_json(nlohmann::json& json, const ZMDownloadQuality& quality);
void to_json(nlohmann::ordered_json& json, const ZMDownloadQuality& quality);
// Missing or mistyped keys throw nlohmann::json::exception, as for any decoded record.
void from_json(const nlohmann::json& json, ZMDownloadQuality& quality);

}  // namespace zarvo
