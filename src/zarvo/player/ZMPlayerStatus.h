#pragma once

#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// Readiness of the platform player or of its current item.
enum class ZMPlayerStatus {
    failed,
    readyToPlay,
    // Not known yet, a value without a case of its own, or no current item.
    unknown,
};

ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(Player::Status status);
ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(PlayerItem::Status status);
// The status of an item that may be missing: unknown without one.
ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(const PlayerItem* item);

}  // namespace zarvo
