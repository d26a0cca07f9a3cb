#pragma once

#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A kind of media that selection groups are asked for. Compared by its string value.
struct ZARVO_EXPORT MediaCharacteristic {
    std::string rawValue;

    // Audio renditions (EXT-X-MEDIA TYPE=AUDIO).
    static MediaCharacteristic audible() { return {"AVMediaCharacteristicAudible"}; }
    // Text renditions: subtitles and closed captions.
    static MediaCharacteristic legible() { return {"AVMediaCharacteristicLegible"}; }
    static MediaCharacteristic visual() { return {"AVMediaCharacteristicVisual"}; }

    bool operator==(const MediaCharacteristic&) const = default;
    auto operator<=>(const MediaCharacteristic&) const = default;
};

}  // namespace zarvo
