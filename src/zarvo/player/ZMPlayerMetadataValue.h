#pragma once

#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMPlayerMetadataVast.h"

namespace zarvo {

/// The whole JSON of one metadata item: `{"vast": {"event": {...}}}`.
struct ZARVO_EXPORT ZMPlayerMetadataValue {
    /// The "vast" object.
    ZMPlayerMetadataVast vast;

    /// Equal "vast" objects.
    bool operator==(const ZMPlayerMetadataValue&) const = default;
};

}  // namespace zarvo
