#pragma once

namespace zarvo {

// Whether a session still takes events or is finishing.
enum class ZMTrackingSessionObjectLifecycleState {
    performingTasks,           // taking events
    markedAsFinishing,         // cancelled: nothing more is stored or sent
    markedAsSendAllAndFinish,  // finished: the pending events go out, then the file goes
};

}  // namespace zarvo
