#pragma once

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Json.h"
#include "zarvo/player/ZMPlayerMetadataVast.h"

namespace zarvo {

/// The whole JSON of one metadata item: `{"vast": {"event": {...}}}`.
struct ZARVO_EXPORT ZMPlayerMetadataValue {
    /// The "vast" object.
    ZMPlayerMetadataVast vast;

    /// Equal "vast" objects.
    bool operator==(const ZMPlayerMetadataValue&) const = default;
};

/// Reads a metadata item's JSON. "vast" is required; without it (or with a non-object) this
/// throws nlohmann::json::exception.
void from_json(const Json& json, ZMPlayerMetadataValue& value);

}  // namespace zarvo
