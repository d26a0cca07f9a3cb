#include "zarvo/player/ZMPlayerMetadataEvent.h"

#include <charconv>

namespace zarvo {

namespace {

// Reads a text the way a decimal floating-point literal is read: the whole text, with an
// optional sign, "inf" and "nan" included; nothing for anything else.
std::optional<double> parseSeconds(const std::string& text) {
    const char* begin = text.data();
    const char* end = begin + text.size();
    bool negative = false;
    if (begin != end && (*begin == '+' || *begin == '-')) {
        negative = *begin == '-';
        ++begin;
    }
    // from_chars takes no "+" and would read a second sign after one.
    if (begin == end || *begin == '+' || *begin == '-') {
        return std::nullopt;
    }
    double value = 0;
    auto [stop, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

template <class T>
void combine(std::size_t& seed, const std::optional<T>& value) {
    std::size_t hash = value ? std::hash<T>()(*value) : 0x9e3779b9u;
    seed ^= hash + 0x9e3779b97f4a7c15ull + (seed << 6) + (seed >> 2);
}

}  // namespace

Date ZMPlayerMetadataEvent::startDate() const {
    return Date::fromReferenceDate(offset ? static_cast<double>(*offset) / 1000.0 : 0.0);
}

Date ZMPlayerMetadataEvent::endDate() const {
    std::optional<double> seconds = duration ? parseSeconds(*duration) : std::nullopt;
    return startDate().addingTimeInterval(seconds.value_or(0.0));
}

bool ZMPlayerMetadataEvent::contains(Date date) const {
    return startDate() <= date && date <= endDate();
}

}  // namespace zarvo

std::size_t std::hash<zarvo::ZMPlayerMetadataEvent>::operator()(
    const zarvo::ZMPlayerMetadataEvent& event) const noexcept {
    std::size_t seed = 0;
    zarvo::combine(seed, event.advertIdentifier);
    zarvo::combine(seed, event.advertSequence);
    zarvo::combine(seed, event.breakIdentifier);
    zarvo::combine(seed, event.duration);
    zarvo::combine(seed, event.event);
    zarvo::combine(seed, event.identifier);
    zarvo::combine(seed, event.offset);
    zarvo::combine(seed, event.type);
    zarvo::combine(seed, event.url);
    return seed;
}
