#pragma once

#include <optional>

#include "zarvo/platform/Json.h"
#include "zarvo/tracking/ZMTrackingSessionDeviceInfo.h"

namespace zarvo {

// The JSON form of a device info in a stored session file.
struct TrackingSessionDeviceInfoJson {
    // The present fields under their own names, in field order.
    static Json toJson(const ZMTrackingSessionDeviceInfo& info);
    // Nothing when a required field is missing or a field has the wrong type.
    static std::optional<ZMTrackingSessionDeviceInfo> fromJson(const Json& json);
};

}  // namespace zarvo
