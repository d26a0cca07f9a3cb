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
#include "zarvo/player/ZMPlaybackStatus.h"
#include "zarvo/player/ZMPlayerDelegate.h"
#include "zarvo/player/ZMPlayerStatus.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMStreamType.h"

namespace zarvo {

// The object a host application drives: it opens a playback source on its platform player and
// reports statuses, times, bitrates, access-log events, media options and ad events to its
// delegate. Used on the main thread; made with make() because its observations hold it weakly.
class ZARVO_EXPORT ZMPlayer : public PlayerItemMetadataCollectorPushDelegate,
                              public std::enable_shared_from_this<ZMPlayer> {
public:
    static std::shared_ptr<ZMPlayer> make();
    ~ZMPlayer() override;
    ZMPlayer(const ZMPlayer&) = delete;
    ZMPlayer& operator=(const ZMPlayer&) = delete;

    // The SDK's marketing version and build number.
    static std::string version();
    static std::string build();

    std::shared_ptr<ZMPlayerDelegate> delegate() const { return delegate_.lock(); }
    virtual void setDelegate(std::weak_ptr<ZMPlayerDelegate> delegate) {
        delegate_ = std::move(delegate);
    }
    virtual bool isPaused() const;
    virtual std::optional<ZMStreamType> streamType() const;
    virtual std::optional<bool> timeshiftAvailable() const;
    // kbit/s.
    virtual std::optional<double> currentIndictatedVideoBitrate() const;
    virtual ZMPlaybackStatus playbackStatus() const;
    virtual std::optional<double> currentVideoBandwidth() const;
    virtual bool isMuted() const;
    virtual void setMuted(bool muted);
    virtual bool allowsExternalPlayback();
    virtual void setAllowsExternalPlayback(bool allows);
    virtual std::shared_ptr<ZMPlaybackSource> source() const { return source_; }
    virtual void setSource(std::shared_ptr<ZMPlaybackSource> source) {
        source_ = std::move(source);
    }
    virtual std::optional<ZMPlaybackStatus> lastPlaybackStatus() const {
        return lastPlaybackStatus_;
    }
    virtual void setLastPlaybackStatus(std::optional<ZMPlaybackStatus> status) {
        lastPlaybackStatus_ = status;
    }
    virtual double currentTime() const;
    virtual double currentPlayerTimeOffset() const;
    virtual double duration() const;
    virtual std::optional<MediaSelectionOption> currentAudioOption() const;
    virtual std::vector<ZMMediaOption> audioOptions();
    virtual std::optional<MediaSelectionOption> currentSubtitleOption() const;
    virtual std::vector<ZMMediaOption> subtitleOptions();
    virtual void play();
    virtual void pause();
    virtual void seek(double to, std::int32_t preferredTimescale, MediaTime toleranceBefore,
                      MediaTime toleranceAfter, std::function<void(bool)> completion = nullptr);
    virtual void reloadPlayerItem(const std::function<void()>& completion);
    virtual void reloadPlayerItemAndSeekTo(MediaTime time, const std::function<void()>& completion);
    virtual std::shared_ptr<PlayerItem> createAVPlayerItem();
    virtual void setupObserversForPlayerItem(const std::shared_ptr<PlayerItem>& playerItem);
    virtual void open(std::shared_ptr<ZMPlaybackSource> source, bool autoPlay);
    virtual void removeCurrentSource();

    const std::shared_ptr<Player>& systemPlayer() const { return systemPlayer_; }
    // Selects `option` (none clears the selection) in the current item's group for
    // `characteristic`; nothing without an item or such a group.
    void selectOptionGroup(const std::optional<MediaSelectionOption>& option,
                           const MediaCharacteristic& characteristic);

    // Notification entry points.
    void mediaSelectionDidChange();
    void playerItemDidAddNewAccessLogEntry(const Notification& notification);

    // The date-range metadata of the current item.
    void metadataCollector(PlayerItemMetadataCollector& collector,
                           const std::vector<DateRangeMetadataGroup>& groups,
                           const std::vector<std::size_t>& indexesOfNewGroups,
                           const std::vector<std::size_t>& indexesOfModifiedGroups) override;

private:
    struct Token {
        explicit Token() = default;
    };

public:
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
};

}  // namespace zarvo
