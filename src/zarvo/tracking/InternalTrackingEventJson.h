#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Json.h"
#include "zarvo/tracking/ZMInternalTrackingEvent.h"

namespace zarvo {

// The JSON form of a recorded event in a stored session file: an object with the keys
// "eventType", "sessionOffset", "movieOffset" and "value", in that order.
struct InternalTrackingEventJson {
    static Json toJson(const ZMInternalTrackingEvent& event);
    // Appends the JSON object to `out` without building a Json value (used on every file write).
    static void appendJson(const ZMInternalTrackingEvent& event, std::string& out);
    // Nothing when a key is missing or has the wrong type.
    static std::optional<ZMInternalTrackingEvent> fromJson(const Json& json);
};

}  // namespace zarvo
