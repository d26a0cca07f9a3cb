#pragma once

#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

/// Readiness of the platform player or of its current item.
enum class ZMPlayerStatus {
    /// Failed; ZMPlayerDelegate::playerDidOccurError came just before with the error.
    failed,
    /// Ready to play.
    readyToPlay,
    /// Not known yet, a value without a case of its own, or no current item.
    unknown,
};

/// The status of the platform player.
ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(Player::Status status);
/// The status of a player item.
ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(PlayerItem::Status status);
/// The status of an item that may be missing: unknown without one.
ZARVO_EXPORT ZMPlayerStatus toZMPlayerStatus(const PlayerItem* item);

}  // namespace zarvo
