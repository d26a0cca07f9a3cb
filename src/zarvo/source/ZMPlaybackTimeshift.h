#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlQueryItem.h"
#include "zarvo/source/ZMPlaybackTimeshiftType.h"

namespace zarvo {

/// How far a live stream may be (or is to be) shifted back: either a start date or a number of
/// seconds, with the name of the query parameter that carries it in the playback address.
class ZARVO_EXPORT ZMPlaybackTimeshift {
public:
    /// A start date, carried as "startTime".
    explicit ZMPlaybackTimeshift(std::optional<Date> date);
    /// A window of seconds, carried as "dvr".
    explicit ZMPlaybackTimeshift(std::int64_t seconds);
    /// A start date carried as `queryName`.
    ZMPlaybackTimeshift(std::optional<Date> date, std::optional<std::string> queryName);
    /// A window of seconds carried as `queryName`.
    ZMPlaybackTimeshift(std::int64_t seconds, std::optional<std::string> queryName);

    /// startTime or dvrWindow, after the constructor used.
    const std::optional<ZMPlaybackTimeshiftType>& type() const { return type_; }
    /// The name of the query parameter.
    const std::optional<std::string>& queryName() const { return queryName_; }
    /// The start date of a startTime timeshift; nothing for a window.
    const std::optional<Date>& internalDate() const { return internalDate_; }
    /// The seconds of a window; 0 for a start date.
    std::int64_t internalSeconds() const { return internalSeconds_; }

    /// The query parameter in milliseconds: the window's seconds, or the date's whole seconds
    /// since 2001-01-01 (0 without a date), times 1000. The name is queryName, or "" without
    /// one. A value that does not fit a 64-bit integer is a fatal error.
    UrlQueryItem queryItem() const;
    /// The window's seconds, or the whole seconds from the date until now on the standard
    /// scheduler's clock (positive for a past date; 0 without a date).
    std::int64_t asSeconds() const;

    /// Equal type, name, date and seconds.
    bool operator==(const ZMPlaybackTimeshift&) const = default;

private:
    std::optional<ZMPlaybackTimeshiftType> type_;
    std::optional<std::string> queryName_;
    std::optional<Date> internalDate_;
    std::int64_t internalSeconds_ = 0;
};

}  // namespace zarvo
