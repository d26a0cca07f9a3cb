#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/MediaSelectionOption.h"
#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/PlayerItemMetadataCollectorPushDelegate.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Notification.h"
#include "zarvo/platform/Observation.h"
#include "zarvo/player/ZMMediaOption.h"
#include "zarvo/player/ZMMetadataHolder.h"
#include "zarvo/player/ZMPlaybackStatistics.h"
#include "zarvo/player/ZMPlaybackStatisticsDelegate.h"
#include "zarvo/player/ZMPlaybackStatus.h"
#include "zarvo/player/ZMPlayerDelegate.h"
#include "zarvo/player/ZMPlayerQualityLevel.h"
#include "zarvo/player/ZMPlayerStatus.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMStreamType.h"

namespace zarvo {

/// The object a host application drives: it opens a playback source on its platform player and
/// reports statuses, times, bitrates, access-log events, media options and ad events to its
/// delegate. Used on the main thread; made with make() because its observations hold it weakly.
///
/// Every delegate call comes on the main thread, on GLib's default main context, either from
/// the player's observations or within the host's own call (open() asks for the subtitle style,
/// audioOptions() and subtitleOptions() for the host's option lists). The player holds its
/// delegate weakly, and itself while it calls the delegate.
class ZARVO_EXPORT ZMPlayer : public PlayerItemMetadataCollectorPushDelegate,
                              public std::enable_shared_from_this<ZMPlayer> {
public:
    /// A player with its observations set up. The first player a process makes also sends the
    /// tracking sessions that earlier runs left (ZMTrackingSessionsRestoreManager).
    static std::shared_ptr<ZMPlayer> make();
    /// Stops observing the platform player; no delegate call follows.
    ~ZMPlayer() override;
    ZMPlayer(const ZMPlayer&) = delete;
    ZMPlayer& operator=(const ZMPlayer&) = delete;

    /// The SDK's marketing version: the CMake project's version, for example "1.0.0".
    static std::string version();
    /// The SDK's build number: the build's ZM_BUILD_NUMBER, "1" unless it was set.
    static std::string build();

    /// The delegate; nullptr when none was set or the host let it go.
    std::shared_ptr<ZMPlayerDelegate> delegate() const { return delegate_.lock(); }
    /// Sets the delegate, held weakly: the host keeps it alive.
    virtual void setDelegate(std::weak_ptr<ZMPlayerDelegate> delegate) {
        delegate_ = std::move(delegate);
    }
    /// Whether the platform player's rate is 0 (paused, or never played).
    virtual bool isPaused() const;
    /// The stream type of the source; nothing without a source.
    virtual std::optional<ZMStreamType> streamType() const;
    /// Whether the source has a timeshift (ZMPlaybackSource::maxAllowedTimeshift()); nothing
    /// without a source.
    virtual std::optional<bool> timeshiftAvailable() const;
    /// The indicated bitrate (the variant's BANDWIDTH) of the current item's last access-log
    /// entry, in kbit/s; nothing before the first entry.
    virtual std::optional<double> currentIndictatedVideoBitrate() const;
    /// The platform player's time-control status.
    virtual ZMPlaybackStatus playbackStatus() const;
    /// The observed bitrate of the current item's last access-log entry, in kbit/s; nothing
    /// before the first entry or before its first transfer.
    virtual std::optional<double> currentVideoBandwidth() const;
    /// Whether the audio is muted.
    virtual bool isMuted() const;
    /// Mutes or unmutes the audio.
    virtual void setMuted(bool muted);
    /// Stored for hosts that ask (true by default); Linux has no external playback route.
    virtual bool allowsExternalPlayback();
    /// Stores the value and hands it to the platform player.
    virtual void setAllowsExternalPlayback(bool allows);
    /// The source opened last; nullptr before open() and after removeCurrentSource().
    virtual std::shared_ptr<ZMPlaybackSource> source() const { return source_; }
    /// Replaces the source without building an item from it (see open() and
    /// reloadPlayerItem()).
    virtual void setSource(std::shared_ptr<ZMPlaybackSource> source) {
        source_ = std::move(source);
    }
    /// The last status given to ZMPlayerDelegate::playerDidChangePlaybackStatus; nothing
    /// before the first.
    virtual std::optional<ZMPlaybackStatus> lastPlaybackStatus() const {
        return lastPlaybackStatus_;
    }
    /// Replaces the last reported status: a time-control change to a status equal to it is
    /// not reported.
    virtual void setLastPlaybackStatus(std::optional<ZMPlaybackStatus> status) {
        lastPlaybackStatus_ = status;
    }
    /// For a VOD source, the current item's time in seconds; for any other stream, the date
    /// being played (from EXT-X-PROGRAM-DATE-TIME, else the clock's now) in seconds since
    /// 1970-01-01 UTC. 0 without a current item.
    virtual double currentTime() const;
    /// The current item's time in seconds, whatever the stream type; 0 without an item.
    virtual double currentPlayerTimeOffset() const;
    /// The current item's duration in seconds: 0 without an item, NaN while the item has no
    /// known duration (as for a live stream).
    virtual double duration() const;
    /// The selected option of the current item's audio group; nothing without an item, a
    /// group or a selection.
    virtual std::optional<MediaSelectionOption> currentAudioOption() const;
    /// The audio options to offer: see ZMMediaOption::list(). The delegate's
    /// playerMapMediaOptions() is asked first, within this call; empty without a current item
    /// or an audio group.
    virtual std::vector<ZMMediaOption> audioOptions();
    /// The selected option of the current item's legible (subtitle) group; nothing without
    /// an item, a group or a selection.
    virtual std::optional<MediaSelectionOption> currentSubtitleOption() const;
    /// The subtitle options to offer, as audioOptions() does for the legible group.
    virtual std::vector<ZMMediaOption> subtitleOptions();
    /// Plays at rate 1.
    virtual void play();
    /// Pauses (rate 0).
    virtual void pause();
    /// Seeks the current item to `to` seconds (a MediaTime of `preferredTimescale`) within the
    /// tolerances (zero for both: exactly). The completion runs on the main thread with true
    /// when the seek finished, false when a later seek or a new item interrupted it.
    virtual void seek(double to, std::int32_t preferredTimescale, MediaTime toleranceBefore,
                      MediaTime toleranceAfter, std::function<void(bool)> completion = nullptr);
    /// Pauses, builds a new item from the source and makes it current with its status
    /// observed, selects again the audio and subtitle options the new item has selected (the
    /// old item's choices are not carried over), plays, and runs `completion` before
    /// returning. Unlike open(), it does not subscribe to the new item's access-log entries,
    /// so ZMPlayerDelegate::playerDidChangeIndicatedBitrate is not called for that item.
    virtual void reloadPlayerItem(const std::function<void()>& completion);
    /// reloadPlayerItem(), then a seek to `time` (default tolerances), then `completion`.
    virtual void reloadPlayerItemAndSeekTo(MediaTime time, const std::function<void()>& completion);
    /// A new item from the source (nullptr without a source or a playback address), with the
    /// date-range metadata collector of this player and the delegate's subtitle style (asked
    /// within this call). Forgets the ad events of the item before. Does not make it current.
    virtual std::shared_ptr<PlayerItem> createAVPlayerItem();
    /// Observes the status of `playerItem` (replacing the item observed before) and the
    /// media-selection changes.
    virtual void setupObserversForPlayerItem(const std::shared_ptr<PlayerItem>& playerItem);
    /// Makes `source` the source, builds its item and makes it current, observing its status,
    /// media selection and access log; plays when `autoPlay`. Nothing of the item left reaches
    /// the delegate afterwards. When the source gives no item (no playback address), the
    /// current item stays. May be called from inside a delegate call.
    virtual void open(std::shared_ptr<ZMPlaybackSource> source, bool autoPlay);
    /// Forgets the source and leaves the player without a current item.
    virtual void removeCurrentSource();

    /// The video qualities of the current item, lowest bandwidth first: known once the item is
    /// ready; empty before, and for a stream that has no master playlist.
    virtual std::vector<ZMPlayerQualityLevel> qualityLevels() const;
    /// Keeps adaptive switching to qualities of at most `bitsPerSecond` (0, a negative or a
    /// non-finite value: no cap), for the current item and the next ones; while playing, the
    /// segments fetched from then on follow it. Below the lowest quality, the lowest plays.
    virtual void setMaximumBitrate(double bitsPerSecond);
    /// The bitrate cap, bits per second; 0 for none.
    virtual double maximumBitrate() const { return maximumBitrate_; }
    /// Keeps adaptive switching to qualities whose picture fits within `width` by `height`
    /// pixels (either 0 or less: no cap), like setMaximumBitrate(); both caps hold together.
    /// When no quality fits, the lowest plays.
    virtual void setMaximumResolution(int width, int height);
    /// The resolution cap as width and height; 0 by 0 for none.
    virtual std::pair<int, int> maximumResolution() const { return maximumResolution_; }
    /// Plays `level` (one of qualityLevels()) whatever the network does, over the caps; none
    /// returns to adaptive switching within the caps. A level the item does not offer leaves
    /// switching adaptive.
    virtual void selectQualityLevel(const std::optional<ZMPlayerQualityLevel>& level);
    /// The quality pinned with selectQualityLevel(), if any.
    virtual std::optional<ZMPlayerQualityLevel> selectedQualityLevel() const {
        return selectedQualityLevel_;
    }
    /// The speed that play() plays at, the sound kept at its pitch: one of the source's
    /// speedOptions or any value up to 4; 0, a negative, a non-finite value or one above 4 is
    /// ignored. While playing it takes effect at once; pause, seek and audio switching keep it.
    virtual void setPlaybackSpeed(float speed);
    /// The speed that play() plays at; 1 until set.
    virtual float playbackSpeed() const { return playbackSpeed_; }
    /// The delegate told of stalls.
    std::shared_ptr<ZMPlaybackStatisticsDelegate> statisticsDelegate() const {
        return statisticsDelegate_.lock();
    }
    /// Sets the delegate told of stalls; the player holds it weakly.
    virtual void setStatisticsDelegate(std::weak_ptr<ZMPlaybackStatisticsDelegate> delegate) {
        statisticsDelegate_ = std::move(delegate);
    }
    /// How the current item has played so far; all zero without one.
    virtual ZMPlaybackStatistics playbackStatistics() const;

    /// The platform player underneath (the views draw its video).
    const std::shared_ptr<Player>& systemPlayer() const { return systemPlayer_; }
    /// Selects `option` (none clears the selection) in the current item's group for
    /// `characteristic`; nothing without an item or such a group.
    void selectOptionGroup(const std::optional<MediaSelectionOption>& option,
                           const MediaCharacteristic& characteristic);

    // Notification entry points.
    /// A media selection changed: reports the current item's status
    /// (ZMPlayerDelegate::playerPlayedItemDidChange) and its access log.
    void mediaSelectionDidChange();
    /// An item logged a new access-log entry: on the main queue, when it is the current item,
    /// reports a changed indicated bitrate, then the whole access log.
    void playerItemDidAddNewAccessLogEntry(const Notification& notification);

    /// The date-range metadata of the current item.
    /// Collects the ad events the groups carry; they are reported when the playback date
    /// reaches them (ZMPlayerDelegate::playerDidOccurEvents).
    void metadataCollector(PlayerItemMetadataCollector& collector,
                           const std::vector<DateRangeMetadataGroup>& groups,
                           const std::vector<std::size_t>& indexesOfNewGroups,
                           const std::vector<std::size_t>& indexesOfModifiedGroups) override;

private:
    struct Token {
        explicit Token() = default;
    };

public:
    /// Used by make() (the token is private): sends the tracking sessions of earlier runs, once
    /// per process, and makes the platform player.
    explicit ZMPlayer(Token);

private:
    void setUpPlayerObservers();
    void observeItemStatus(const std::shared_ptr<PlayerItem>& item);
    // Adds a registration with the default notification centre; registering the same name
    // and object again replaces the earlier registration.
    void registerFor(const char* name, const PlayerItem* object,
                     std::function<void(ZMPlayer&, const Notification&)> handler);
    void playerStatusChanged(Player::Status status);
    void itemStatusChanged(const std::shared_ptr<PlayerItem>& item);
    void reportItemStatus(const std::shared_ptr<PlayerItem>& item);
    void timeControlChanged(Player::TimeControlStatus status);
    void timeTick(MediaTime time);
    void reportAccessLogEvents(const std::shared_ptr<PlayerItem>& item);
    void applyQualityPreferences(PlayerItem& item) const;
    void stallChanged(const Notification& notification, bool started);
    std::vector<ZMMediaOption> options(const MediaCharacteristic& characteristic);
    std::optional<MediaSelectionOption> selectedOption(
        const MediaCharacteristic& characteristic) const;

    std::weak_ptr<ZMPlayerDelegate> delegate_;
    std::shared_ptr<Player> systemPlayer_;
    std::optional<bool> allowsExternalPlayback_;
    std::shared_ptr<ZMPlaybackSource> source_;
    std::optional<ZMPlaybackStatus> lastPlaybackStatus_;
    std::optional<double> lastReadIndicatedBitrate_;
    Observation playerStatusObservation_;
    Observation playerTimeControlObservation_;
    Observation playerItemStatusObservation_;
    std::optional<Player::TimeObserverToken> playerTimeObserver_;
    ZMMetadataHolder metadataHolder_;
    std::map<std::pair<std::string, const PlayerItem*>, Observation> registrations_;
    std::weak_ptr<ZMPlaybackStatisticsDelegate> statisticsDelegate_;
    double maximumBitrate_ = 0;
    std::pair<int, int> maximumResolution_{0, 0};
    std::optional<ZMPlayerQualityLevel> selectedQualityLevel_;
    float playbackSpeed_ = 1;
};

}  // namespace zarvo
