#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Json.h"

namespace zarvo {

// One advertising event carried by a date-range metadata item.
struct ZARVO_EXPORT ZMPlayerMetadataEvent {
    std::optional<std::string> advertIdentifier;  // "advert-id"
    std::optional<std::string> advertSequence;    // "advert-sequence"
    std::optional<std::string> breakIdentifier;   // "break-id"
    std::optional<std::string> duration;          // "duration", seconds as text
    std::optional<std::string> event;             // "event"
    std::optional<std::string> identifier;        // "id"
    std::optional<long long> offset;  // "offset", milliseconds since 2001-01-01 00:00:00 UTC
    std::optional<std::string> type;  // "type"
    std::optional<std::string> url;   // "url"

    // The reference date plus `offset` (the reference date itself without one).
    Date startDate() const;
    // The start plus `duration` seconds (plus nothing when it is missing or not a number).
    Date endDate() const;
    // Whether `date` lies from the start to the end, both included.
    bool contains(Date date) const;

    bool operator==(const ZMPlayerMetadataEvent&) const = default;
};

// Missing members stay unset and are not written. A member of the wrong type (a number for a
// text, a fraction for the offset) throws nlohmann::json::exception.
void to_json(Json& json, const ZMPlayerMetadataEvent& event);
void from_json(const Json& json, ZMPlayerMetadataEvent& event);

}  // namespace zarvo

template <>
struct std::hash<zarvo::ZMPlayerMetadataEvent> {
    std::size_t operator()(const zarvo::ZMPlayerMetadataEvent& event) const noexcept;
};
