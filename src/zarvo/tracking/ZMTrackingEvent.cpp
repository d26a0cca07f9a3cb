#include "zarvo/tracking/ZMTrackingEvent.h"

#include <array>
#include <charconv>

namespace zarvo {
namespace {

constexpr std::array<std::string_view, 11> kindNames = {
    "playing", "buffering", "paused", "seeking",           "videoTrackChanged",    "complete",
    "stopped", "closed",    "error",  "audioTrackChanged", "subtitleTrackChanged",
};

bool carriesText(ZMTrackingEvent::Kind kind) {
    return kind == ZMTrackingEvent::Kind::audioTrackChanged ||
           kind == ZMTrackingEvent::Kind::subtitleTrackChanged;
}

}  // namespace

std::string ZMTrackingEvent::valueText() const {
    if (const auto* number = std::get_if<std::int64_t>(&payload_)) {
        return std::to_string(*number);
    }
    return std::get<std::string>(payload_);
}

std::string_view ZMTrackingEvent::name(Kind kind) {
    return kindNames[static_cast<std::size_t>(kind)];
}

std::optional<ZMTrackingEvent::Kind> ZMTrackingEvent::kindNamed(std::string_view name) {
    for (std::size_t index = 0; index < kindNames.size(); ++index) {
        if (kindNames[index] == name) {
            return static_cast<Kind>(index);
        }
    }
    return std::nullopt;
}

std::optional<ZMTrackingEvent> ZMTrackingEvent::fromText(std::string_view kindName,
                                                         std::string_view valueText) {
    auto kind = kindNamed(kindName);
    if (!kind) {
        return std::nullopt;
    }
    if (carriesText(*kind)) {
        return ZMTrackingEvent(*kind, std::string(valueText));
    }
    std::int64_t number = 0;
    const char* end = valueText.data() + valueText.size();
    auto [last, status] = std::from_chars(valueText.data(), end, number);
    if (valueText.empty() || status != std::errc() || last != end) {
        return std::nullopt;
    }
    return ZMTrackingEvent(*kind, number);
}

}  // namespace zarvo
