#pragma once

#include <optional>

#include "zarvo/platform/Export.h"

namespace zarvo {

// What kind of stream a source plays, decided from its options when it is made.
enum class ZMStreamType : int {
    vod = 0,
    live = 1,
    dvrWindowLive = 2,
    startTimeLive = 3,
    unknown = 4,
};

// The stream type with the raw value `rawValue`; nothing outside 0 to 4.
ZARVO_EXPORT std::optional<ZMStreamType> makeZMStreamType(int rawValue);

}  // namespace zarvo
