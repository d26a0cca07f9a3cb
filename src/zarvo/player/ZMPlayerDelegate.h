#pragma once

#include <optional>
#include <vector>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/media/model/PlayerItemAccessLogEvent.h"
#include "zarvo/media/model/TextStyleRule.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/player/ZMMediaOption.h"
#include "zarvo/player/ZMPlaybackStatus.h"
#include "zarvo/player/ZMPlayerMetadataEvent.h"
#include "zarvo/player/ZMPlayerStatus.h"

namespace zarvo {

class ZMPlayer;

/// Receives everything a ZMPlayer reports. The player holds its delegate weakly: the host
/// owns it. Every call comes on the main thread (GLib's default main context); a call may open
/// another source on the player (ZMPlayer::open()), after which nothing more of the item left is
/// reported. No call reports the end of an item: a VOD has ended when the time reaches the
/// duration and playback pauses.
class ZARVO_EXPORT ZMPlayerDelegate {
public:
    virtual ~ZMPlayerDelegate() = default;

    /// Every 0.5 s of media time while there is a current item and it plays, and when playback
    /// starts, stops or jumps: the observed media time and the item's duration (NaN while
    /// unknown, as for a live stream), in seconds.
    virtual void playerCurrentTime(ZMPlayer& player, double currentTime, double duration) = 0;
    /// On each new status of the platform player.
    virtual void playerDidChangePlayerStatus(ZMPlayer& player, ZMPlayerStatus status) = 0;
    /// On each new status of the current item and on each change of its media selection.
    virtual void playerPlayedItemDidChange(ZMPlayer& player, ZMPlayerStatus status) = 0;
    /// When the time-control status differs from the last one reported.
    virtual void playerDidChangePlaybackStatus(ZMPlayer& player, ZMPlaybackStatus status) = 0;
    /// When the indicated bitrate (kbit/s) of the access log's last event changes.
    virtual void playerDidChangeIndicatedBitrate(ZMPlayer& player, double bitrate) = 0;
    /// Just before a failed status of the player or the item, with its error (see the errors
    /// page for the domains).
    virtual void playerDidOccurError(ZMPlayer& player, const Error& error) = 0;
    /// When timed-metadata (ad) events fall due: each event once, when the playback date
    /// enters its span, in the order they were collected.
    virtual void playerDidOccurEvents(ZMPlayer& player,
                                      const std::vector<ZMPlayerMetadataEvent>& events) = 0;
    /// The host's own audio or subtitle option list for these options of the asset; nothing
    /// keeps the default list. Asked within ZMPlayer::audioOptions() and
    /// ZMPlayer::subtitleOptions().
    virtual std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer& player, const std::vector<MediaSelectionOption>& options,
        const MediaCharacteristic& characteristic) = 0;
    /// Subtitle style for each new item; an empty list leaves the item's style alone. Asked
    /// within ZMPlayer::open() (and whenever the player builds an item).
    virtual std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer& player) = 0;
    /// The whole access log of the current item, after each change that may touch it (empty
    /// when there is none yet).
    virtual void playerDidOccurAccessLogEvents(
        ZMPlayer& player, const std::vector<PlayerItemAccessLogEvent>& events) = 0;
};

}  // namespace zarvo
