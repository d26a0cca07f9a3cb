#pragma once

#include <memory>

#include "zarvo/platform/Export.h"
#include "zarvo/tracking/ZMTrackingSessionObjectLifecycleState.h"

namespace zarvo {

class ZMTrackingSession;

// A session's lifecycle, and the reference that keeps a finishing session alive until its
// last events are sent even when the application has let go of it.
struct ZARVO_EXPORT ZMTrackingSessionObjectLifecycle {
    ZMTrackingSessionObjectLifecycleState state =
        ZMTrackingSessionObjectLifecycleState::performingTasks;
    std::shared_ptr<ZMTrackingSession> referenceToContainer;
};

}  // namespace zarvo
