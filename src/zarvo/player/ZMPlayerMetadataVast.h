#pragma once

#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMPlayerMetadataEvent.h"

namespace zarvo {

/// The "vast" object of a metadata item: `{"event": {...}}`.
struct ZARVO_EXPORT ZMPlayerMetadataVast {
    /// The "event" object.
    ZMPlayerMetadataEvent event;

    /// Equal events.
    bool operator==(const ZMPlayerMetadataVast&) const = default;
};

}  // namespace zarvo
