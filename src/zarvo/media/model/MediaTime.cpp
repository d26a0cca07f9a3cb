#include "zarvo/media/model/MediaTime.h"

#include <cmath>
#include <limits>

namespace zarvo {

MediaTime MediaTime::make(double seconds, std::int32_t preferredTimescale) {
    if (std::isnan(seconds)) {
        return invalid();
    }
    if (std::isinf(seconds)) {
        return seconds > 0 ? positiveInfinity() : negativeInfinity();
    }
    std::int32_t timescale = preferredTimescale > 0 ? preferredTimescale : 1;
    const double scaled = std::round(seconds * timescale);
    constexpr double limit = static_cast<double>(std::numeric_limits<std::int64_t>::max());
    if (std::fabs(scaled) >= limit) {
        return seconds > 0 ? positiveInfinity() : negativeInfinity();
    }
    return MediaTime(static_cast<std::int64_t>(scaled), timescale);
}

double MediaTime::seconds() const {
    switch (kind_) {
        case Kind::numeric:
            return static_cast<double>(value_) / static_cast<double>(timescale_);
        case Kind::positiveInfinity:
            return std::numeric_limits<double>::infinity();
        case Kind::negativeInfinity:
            return -std::numeric_limits<double>::infinity();
        case Kind::invalid:
        case Kind::indefinite:
            break;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

int MediaTime::rank() const {
    switch (kind_) {
        case Kind::invalid:
            return 0;
        case Kind::negativeInfinity:
            return 1;
        case Kind::numeric:
            return 2;
        case Kind::positiveInfinity:
            return 3;
        case Kind::indefinite:
            return 4;
    }
    return 0;
}

std::partial_ordering MediaTime::operator<=>(const MediaTime& other) const {
    if (kind_ != Kind::numeric || other.kind_ != Kind::numeric) {
        return rank() <=> other.rank();
    }
    // Cross-multiplied in long double so that different timescales compare exactly enough.
    const long double left = static_cast<long double>(value_) * other.timescale_;
    const long double right = static_cast<long double>(other.value_) * timescale_;
    return left <=> right;
}

}  // namespace zarvo
