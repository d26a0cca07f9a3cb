#pragma once

#include "zarvo/player/ZMPlayerMetadataEvent.h"

namespace zarvo {

// The "vast" object of a metadata item: {"event": {...}}.
struct ZMPlayerMetadataVast {
    ZMPlayerMetadataEvent event;

    bool operator==(const ZMPlayerMetadataVast&) const = default;
};

}  // namespace zarvo
