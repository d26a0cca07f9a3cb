#pragma once

#include <compare>
#include <cstdint>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A point or span on a media timeline: a rational number of seconds (value / timescale), or
// one of the non-numeric times (invalid, indefinite, positive or negative infinity).
class ZARVO_EXPORT MediaTime {
public:
    // The invalid time.
    constexpr MediaTime() = default;
    constexpr MediaTime(std::int64_t value, std::int32_t timescale)
        : value_(value),
          timescale_(timescale),
          kind_(timescale > 0 ? Kind::numeric : Kind::invalid) {}
    // `seconds` rounded to the nearest multiple of 1 / preferredTimescale; a non-finite
    // number gives the matching non-numeric time (NaN: invalid).
    static MediaTime make(double seconds, std::int32_t preferredTimescale);

    static constexpr MediaTime zero() { return MediaTime(0, 1); }
    static constexpr MediaTime invalid() { return MediaTime(); }
    static constexpr MediaTime indefinite() { return MediaTime(Kind::indefinite); }
    static constexpr MediaTime positiveInfinity() { return MediaTime(Kind::positiveInfinity); }
    static constexpr MediaTime negativeInfinity() { return MediaTime(Kind::negativeInfinity); }

    // Seconds as a double: NaN for invalid and indefinite, +/- infinity for the infinities.
    double seconds() const;
    constexpr std::int64_t value() const { return value_; }
    constexpr std::int32_t timescale() const { return timescale_; }

    constexpr bool isValid() const { return kind_ != Kind::invalid; }
    constexpr bool isNumeric() const { return kind_ == Kind::numeric; }
    constexpr bool isIndefinite() const { return kind_ == Kind::indefinite; }
    constexpr bool isPositiveInfinity() const { return kind_ == Kind::positiveInfinity; }
    constexpr bool isNegativeInfinity() const { return kind_ == Kind::negativeInfinity; }

    // Numeric times compare by value whatever their timescales; -inf < numeric < +inf <
    // indefinite; invalid times are equal to each other and below everything else.
    std::partial_ordering operator<=>(const MediaTime& other) const;
    bool operator==(const MediaTime& other) const { return (*this <=> other) == 0; }

private:
    enum class Kind { invalid, numeric, indefinite, positiveInfinity, negativeInfinity };
    constexpr explicit MediaTime(Kind kind) : kind_(kind) {}
    int rank() const;

    std::int64_t value_ = 0;
    std::int32_t timescale_ = 0;
    Kind kind_ = Kind::invalid;
};

}  // namespace zarvo
