#pragma once

namespace zarvo {

// Where a session stands with the tracking service.
enum class ZMTrackingSessionNetworkStateValue {
    uninitialized,
    ongoingSessionInitialization,
    sessionInitialized,
    sendingEvents,
};

}  // namespace zarvo
