#pragma once

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Json.h"
#include "zarvo/player/ZMPlayerMetadataEvent.h"

namespace zarvo {

/// The "vast" object of a metadata item: `{"event": {...}}`.
struct ZARVO_EXPORT ZMPlayerMetadataVast {
    /// The "event" object.
    ZMPlayerMetadataEvent event;

    /// Equal events.
    bool operator==(const ZMPlayerMetadataVast&) const = default;
};

/// Reads a "vast" object. "event" is required; without it (or with a non-object) this throws
/// nlohmann::json::exception.
void from_json(const Json& json, ZMPlayerMetadataVast& vast);

}  // namespace zarvo
