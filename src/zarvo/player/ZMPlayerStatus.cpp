#include "zarvo/player/ZMPlayerStatus.h"

namespace zarvo {

namespace {

// The player and its items share the platform values 0 (unknown), 1 and 2; anything else is
// reported as unknown.
template <class Status>
ZMPlayerStatus fromPlatform(Status status) {
    switch (status) {
        case Status::readyToPlay:
            return ZMPlayerStatus::readyToPlay;
        case Status::failed:
            return ZMPlayerStatus::failed;
        default:
            return ZMPlayerStatus::unknown;
    }
}

}  // namespace

ZMPlayerStatus toZMPlayerStatus(Player::Status status) {
    return fromPlatform(status);
}

ZMPlayerStatus toZMPlayerStatus(PlayerItem::Status status) {
    return fromPlatform(status);
}

ZMPlayerStatus toZMPlayerStatus(const PlayerItem* item) {
    return item ? fromPlatform(item->status()) : ZMPlayerStatus::unknown;
}

}  // namespace zarvo
