#pragma once

#include "zarvo/player/ZMPlayerMetadataVast.h"

namespace zarvo {

// The whole JSON of one metadata item: {"vast": {"event": {...}}}.
struct ZMPlayerMetadataValue {
    ZMPlayerMetadataVast vast;

    bool operator==(const ZMPlayerMetadataValue&) const = default;
};

}  // namespace zarvo
