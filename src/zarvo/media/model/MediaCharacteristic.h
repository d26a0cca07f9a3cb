#pragma once

#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// A kind of media that selection groups are asked for. Compared by its string value.
struct ZARVO_EXPORT MediaCharacteristic {
    /// The characteristic's name, for example "AVMediaCharacteristicAudible".
    std::string rawValue;

    /// Audio renditions (EXT-X-MEDIA TYPE=AUDIO): "AVMediaCharacteristicAudible".
    static MediaCharacteristic audible() { return {"AVMediaCharacteristicAudible"}; }
    /// Text renditions, subtitles and closed captions: "AVMediaCharacteristicLegible".
    static MediaCharacteristic legible() { return {"AVMediaCharacteristicLegible"}; }
    /// Video: "AVMediaCharacteristicVisual".
    static MediaCharacteristic visual() { return {"AVMediaCharacteristicVisual"}; }

    /// Equal names.
    bool operator==(const MediaCharacteristic&) const = default;
    /// Orders by name.
    auto operator<=>(const MediaCharacteristic&) const = default;
};

}  // namespace zarvo
