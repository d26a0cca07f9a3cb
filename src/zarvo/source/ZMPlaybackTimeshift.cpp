#include "zarvo/source/ZMPlaybackTimeshift.h"

#include <cmath>
#include <utility>

#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

namespace {

// Whole seconds toward zero; values that no 64-bit integer holds stop the process.
std::int64_t truncatedSeconds(double seconds) {
    // 2^63: the doubles in [-2^63, 2^63) truncate to representable values.
    constexpr double limit = 9223372036854775808.0;
    if (!std::isfinite(seconds) || seconds >= limit || seconds < -limit) {
        fatalError("Timeshift seconds cannot be represented as an integer");
    }
    return static_cast<std::int64_t>(seconds);
}

}  // namespace

ZMPlaybackTimeshift::ZMPlaybackTimeshift(std::optional<Date> date)
    : ZMPlaybackTimeshift(date, std::string("startTime")) {}

ZMPlaybackTimeshift::ZMPlaybackTimeshift(std::int64_t seconds)
    : ZMPlaybackTimeshift(seconds, std::string("dvr")) {}

ZMPlaybackTimeshift::ZMPlaybackTimeshift(std::optional<Date> date,
                                         std::optional<std::string> queryName)
    : type_(ZMPlaybackTimeshiftType::startTime),
      queryName_(std::move(queryName)),
      internalDate_(date),
      internalSeconds_(0) {}

ZMPlaybackTimeshift::ZMPlaybackTimeshift(std::int64_t seconds, std::optional<std::string> queryName)
    : type_(ZMPlaybackTimeshiftType::dvrWindow),
      queryName_(std::move(queryName)),
      internalSeconds_(seconds) {}

UrlQueryItem ZMPlaybackTimeshift::queryItem() const {
    std::int64_t number = 0;
    if (type_ == ZMPlaybackTimeshiftType::dvrWindow) {
        number = internalSeconds_;
    } else if (internalDate_) {
        number = truncatedSeconds(internalDate_->timeIntervalSinceReferenceDate());
    }
    std::int64_t milliseconds = 0;
    if (__builtin_mul_overflow(number, std::int64_t{1000}, &milliseconds)) {
        fatalError("Timeshift milliseconds overflow");
    }
    return UrlQueryItem{queryName_.value_or(""), std::to_string(milliseconds)};
}

std::int64_t ZMPlaybackTimeshift::asSeconds() const {
    if (type_ == ZMPlaybackTimeshiftType::dvrWindow) {
        return internalSeconds_;
    }
    if (!internalDate_) {
        return 0;
    }
    return truncatedSeconds(Scheduler::standard()->now().timeIntervalSince(*internalDate_));
}

}  // namespace zarvo
