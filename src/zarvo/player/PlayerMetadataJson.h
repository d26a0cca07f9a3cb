#pragma once

#include "zarvo/platform/Json.h"
#include "zarvo/player/ZMPlayerMetadataEvent.h"
#include "zarvo/player/ZMPlayerMetadataValue.h"
#include "zarvo/player/ZMPlayerMetadataVast.h"

namespace zarvo {

// The JSON forms of a date-range metadata item, found by Json's get<>() and assignment.

// Missing members stay unset and are not written. A member of the wrong type (a number for a
// text, a fraction for the offset) throws nlohmann::json::exception.
void to_json(Json& json, const ZMPlayerMetadataEvent& event);
void from_json(const Json& json, ZMPlayerMetadataEvent& event);

// "event" is required; without it (or with a non-object) this throws nlohmann::json::exception.
void from_json(const Json& json, ZMPlayerMetadataVast& vast);

// "vast" is required; without it (or with a non-object) this throws nlohmann::json::exception.
void from_json(const Json& json, ZMPlayerMetadataValue& value);

}  // namespace zarvo
