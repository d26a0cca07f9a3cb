#pragma once

#include <string>
#include <vector>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Json.h"

namespace zarvo::origin {

// One advertising break announced in the live playlists as an EXT-X-DATERANGE tag. Breaks
// repeat every `interval` seconds from the live epoch; break n starts at epoch + n * interval.
struct AdCue {
    long long index = 0;
    Date start;
    double duration = 0;

    // The client attribute that carries the encoded event.
    static constexpr const char* attributeName = "X-AD-EVENT";

    // The event object: "advert-id", "advert-sequence", "break-id", "duration", "event", "id",
    // "offset" (milliseconds since 2001-01-01 UTC of the start), "type", "url".
    Json event() const;
    // URL-safe Base64 without padding of {"vast":{"event":<event()>}}.
    std::string encodedValue() const;
    // The full "#EXT-X-DATERANGE:..." line.
    std::string dateRangeTag() const;

    // Every break that overlaps [from, to).
    static std::vector<AdCue> overlapping(Date epoch, double interval, double duration, Date from,
                                          Date to);
};

}  // namespace zarvo::origin
