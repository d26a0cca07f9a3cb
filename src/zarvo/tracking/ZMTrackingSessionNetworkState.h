#pragma once

#include <optional>

#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionNetworkStateValue.h"

namespace zarvo {

// A session's network state and the failure of its last beacon, if it failed.
struct ZMTrackingSessionNetworkState {
    ZMTrackingSessionNetworkStateValue value = ZMTrackingSessionNetworkStateValue::uninitialized;
    std::optional<ZMTrackingSessionError> lastError;
};

}  // namespace zarvo
