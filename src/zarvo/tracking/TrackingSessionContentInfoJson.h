#pragma once

#include <optional>

#include "zarvo/platform/Json.h"
#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"

namespace zarvo {

// The JSON form of a content info in a stored session file.
struct TrackingSessionContentInfoJson {
    // Every field under its own name in field order, optional ones only when set.
    static Json toJson(const ZMTrackingSessionContentInfo& info);
    // Nothing when a required field is missing or a field has the wrong type.
    static std::optional<ZMTrackingSessionContentInfo> fromJson(const Json& json);
};

}  // namespace zarvo
