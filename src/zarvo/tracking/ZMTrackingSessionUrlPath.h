#pragma once

#include <string_view>

namespace zarvo {

// The beacon a request is for.
enum class ZMTrackingSessionUrlPath {
    initialize,  // "init.gif": the session's initialisation
    report,      // "events.gif": a batch of events
};

// The path component appended to the endpoint for `path`.
constexpr std::string_view pathComponent(ZMTrackingSessionUrlPath path) {
    return path == ZMTrackingSessionUrlPath::initialize ? "init.gif" : "events.gif";
}

}  // namespace zarvo
