#pragma once

#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"

namespace zarvo {

// Readiness of the platform player or of its current item.
enum class ZMPlayerStatus {
    failed,
    readyToPlay,
    // Not known yet, a value without a case of its own, or no current item.
    unknown,
};

ZMPlayerStatus toZMPlayerStatus(Player::Status status);
ZMPlayerStatus toZMPlayerStatus(PlayerItem::Status status);
// The status of an item that may be missing: unknown without one.
ZMPlayerStatus toZMPlayerStatus(const PlayerItem* item);

}  // namespace zarvo
