#pragma once

#include "zarvo/media/model/Player.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// What the platform player is doing, one case for each time-control status.
enum class ZMPlaybackStatus {
    /// Paused: not playing and not asked to (also at the end of an item).
    paused,
    /// Asked to play but waiting: for the item to load, for media (buffering), for a seek to
    /// land, or for an item to play.
    waiting,
    /// Playing.
    playing,
};

/// The playback status of a time-control status. A value outside the three known ones stops
/// the process (fatalError).
ZARVO_EXPORT ZMPlaybackStatus toZMPlaybackStatus(Player::TimeControlStatus status);

}  // namespace zarvo
