#include "zarvo/player/ZMPlaybackStatus.h"

#include <string>

#include "zarvo/platform/FatalError.h"

namespace zarvo {

ZMPlaybackStatus toZMPlaybackStatus(Player::TimeControlStatus status) {
    switch (status) {
        case Player::TimeControlStatus::paused:
            return ZMPlaybackStatus::paused;
        case Player::TimeControlStatus::waitingToPlayAtSpecifiedRate:
            return ZMPlaybackStatus::waiting;
        case Player::TimeControlStatus::playing:
            return ZMPlaybackStatus::playing;
    }
    fatalError("Unknown time control status " + std::to_string(static_cast<int>(status)));
}

}  // namespace zarvo
