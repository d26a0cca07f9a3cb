#pragma once

#include "zarvo/media/model/Player.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// What the platform player is doing, one case for each time-control status.
enum class ZMPlaybackStatus {
    paused,
    waiting,
    playing,
};

// A time-control value outside the three known ones stops the process (fatalError).
ZARVO_EXPORT ZMPlaybackStatus toZMPlaybackStatus(Player::TimeControlStatus status);

}  // namespace zarvo
