#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "zarvo/platform/Date.h"

namespace zarvo {

// One advertising event carried by a date-range metadata item.
struct ZMPlayerMetadataEvent {
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

}  // namespace zarvo

template <>
struct std::hash<zarvo::ZMPlayerMetadataEvent> {
    std::size_t operator()(const zarvo::ZMPlayerMetadataEvent& event) const noexcept;
};
