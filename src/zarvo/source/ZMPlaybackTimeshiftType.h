#pragma once

#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// How a timeshift is given: as a start date or as a window of seconds behind the live edge.
enum class ZMPlaybackTimeshiftType : int {
    /// A start date.
    startTime = 0,
    /// A window of seconds.
    dvrWindow = 1,
};

/// The timeshift type with the raw value `rawValue`; nothing for any other value.
ZARVO_EXPORT std::optional<ZMPlaybackTimeshiftType> makeZMPlaybackTimeshiftType(int rawValue);

}  // namespace zarvo
