#pragma once

#include <optional>

#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingSessionNetworkStateValue.h"

namespace zarvo {

// A session's network state and the failure of its last beacon, if it failed.
struct ZARVO_EXPORT ZMTrackingSessionNetworkState {
    ZMTrackingSessionNetworkStateValue value = ZMTrackingSessionNetworkStateValue::uninitialized;
    std::optional<ZMTrackingSessionError> lastError;
};

}  // namespace zarvo
