#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// One advertising event carried by a date-range metadata item (the "event" object of
/// `{"vast": {"event": {...}}}`). Every member is optional.
struct ZARVO_EXPORT ZMPlayerMetadataEvent {
    std::optional<std::string> advertIdentifier;  ///< "advert-id"
    std::optional<std::string> advertSequence;    ///< "advert-sequence"
    std::optional<std::string> breakIdentifier;   ///< "break-id"
    std::optional<std::string> duration;          ///< "duration", seconds as text
    std::optional<std::string> event;             ///< "event"
    std::optional<std::string> identifier;        ///< "id"
    std::optional<long long> offset;  ///< "offset", milliseconds since 2001-01-01 00:00:00 UTC
    std::optional<std::string> type;  ///< "type"
    std::optional<std::string> url;   ///< "url"

    /// The reference date (2001-01-01 00:00:00 UTC) plus `offset` (the reference date itself
    /// without one).
    Date startDate() const;
    /// The start plus `duration` seconds (plus nothing when it is missing or not a number).
    Date endDate() const;
    /// Whether `date` lies from the start to the end, both included.
    bool contains(Date date) const;

    /// Equal in every member.
    bool operator==(const ZMPlayerMetadataEvent&) const = default;
};

}  // namespace zarvo

/// Hashes every member of an event, so that events can key unordered containers.
template <>
struct std::hash<zarvo::ZMPlayerMetadataEvent> {
    /// The hash of `event`.
    std::size_t operator()(const zarvo::ZMPlayerMetadataEvent& event) const noexcept;
};
