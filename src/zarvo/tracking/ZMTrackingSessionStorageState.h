#pragma once

#include <optional>
#include <string_view>

namespace zarvo {

// How far a stored session got: "none" (not initialised on the service), "initialized"
// (events may be reported), "markedAsFinished" (everything was sent).
enum class ZMTrackingSessionStorageState { none, initialized, markedAsFinished };

constexpr std::string_view storageStateText(ZMTrackingSessionStorageState state) {
    switch (state) {
        case ZMTrackingSessionStorageState::none:
            return "none";
        case ZMTrackingSessionStorageState::initialized:
            return "initialized";
        case ZMTrackingSessionStorageState::markedAsFinished:
            return "markedAsFinished";
    }
    return "none";
}

constexpr std::optional<ZMTrackingSessionStorageState> storageStateNamed(std::string_view text) {
    if (text == "none") {
        return ZMTrackingSessionStorageState::none;
    }
    if (text == "initialized") {
        return ZMTrackingSessionStorageState::initialized;
    }
    if (text == "markedAsFinished") {
        return ZMTrackingSessionStorageState::markedAsFinished;
    }
    return std::nullopt;
}

}  // namespace zarvo
