#pragma once

#include <compare>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A point in wall-clock time: seconds since 1970-01-01 00:00:00 UTC.
class ZARVO_EXPORT Date {
public:
    // Seconds from 1970-01-01 to the reference date 2001-01-01 00:00:00 UTC.
    static constexpr double referenceDateOffset = 978307200.0;

    constexpr Date() = default;
    constexpr explicit Date(double timeIntervalSince1970) : seconds_(timeIntervalSince1970) {}

    // The real wall clock (not the injectable scheduler's; see Scheduler::now()).
    static Date systemNow();
    static constexpr Date fromReferenceDate(double secondsSince2001) {
        return Date(secondsSince2001 + referenceDateOffset);
    }

    constexpr double timeIntervalSince1970() const { return seconds_; }
    constexpr double timeIntervalSinceReferenceDate() const {
        return seconds_ - referenceDateOffset;
    }
    constexpr double timeIntervalSince(Date other) const { return seconds_ - other.seconds_; }
    constexpr Date addingTimeInterval(double seconds) const { return Date(seconds_ + seconds); }

    // ISO 8601 in UTC with milliseconds: "2026-11-22T10:00:00.000Z".
    std::string iso8601() const;
    // Parses ISO 8601 date-times as used by EXT-X-PROGRAM-DATE-TIME ("...Z" or "+hh:mm" offsets).
    static bool parseIso8601(const std::string& text, Date& out);

    constexpr auto operator<=>(const Date&) const = default;

private:
    double seconds_ = 0;
};

}  // namespace zarvo
