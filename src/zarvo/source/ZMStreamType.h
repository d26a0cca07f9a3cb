#pragma once

#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// What kind of stream a source plays, decided from its options when it is made.
enum class ZMStreamType : int {
    /// Options that are not live.
    vod = 0,
    /// Live, without a timeshift.
    live = 1,
    /// Live with a timeshift window of seconds (ZMPlaybackTimeshiftType::dvrWindow).
    dvrWindowLive = 2,
    /// Live from a start date (ZMPlaybackTimeshiftType::startTime).
    startTimeLive = 3,
    /// Not decided; no source gets this type from its options.
    unknown = 4,
};

/// The stream type with the raw value `rawValue`; nothing outside 0 to 4.
ZARVO_EXPORT std::optional<ZMStreamType> makeZMStreamType(int rawValue);

}  // namespace zarvo
