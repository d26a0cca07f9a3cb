#include "zarvo/player/ZMPlayer.h"

#include <algorithm>
#include <any>
#include <cmath>

#include "zarvo/media/model/PlayerItemAccessLog.h"
#include "zarvo/media/model/PlayerItemMetadataCollector.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Bundle.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/tracking/ZMTrackingSessionsRestoreManager.h"

namespace zarvo {

namespace {

std::optional<PlayerItemAccessLogEvent> lastAccessLogEvent(
    const std::shared_ptr<PlayerItem>& item) {
    if (!item || !item->accessLog() || item->accessLog()->events().empty()) {
        return std::nullopt;
    }
    return item->accessLog()->events().back();
}

}  // namespace

std::shared_ptr<ZMPlayer> ZMPlayer::make() {
    auto player = std::make_shared<ZMPlayer>(Token());
    player->setUpPlayerObservers();
    return player;
}

ZMPlayer::ZMPlayer(Token) {
    auto restore = ZMTrackingSessionsRestoreManager::sharedManager();
    restore->restoreSessionsIfNotRestored();
    restore->sendAllRestoredSessions();
    systemPlayer_ = Player::make();
    systemPlayer_->setAllowsExternalPlayback(allowsExternalPlayback());
}

ZMPlayer::~ZMPlayer() {
    playerTimeControlObservation_.invalidate();
    playerStatusObservation_.invalidate();
    playerItemStatusObservation_.invalidate();
}

std::string ZMPlayer::version() {
    return Bundle::sdk().shortVersion;
}

std::string ZMPlayer::build() {
    return Bundle::sdk().buildVersion;
}

void ZMPlayer::setUpPlayerObservers() {
    playerStatusObservation_.invalidate();
    playerTimeControlObservation_.invalidate();
    if (playerTimeObserver_) {
        systemPlayer_->removeTimeObserver(*playerTimeObserver_);
    }
    std::weak_ptr<ZMPlayer> weakSelf = weak_from_this();
    playerStatusObservation_ = systemPlayer_->observeStatus([weakSelf](Player::Status status) {
        if (auto self = weakSelf.lock()) {
            self->playerStatusChanged(status);
        }
    });
    playerTimeControlObservation_ =
        systemPlayer_->observeTimeControlStatus([weakSelf](Player::TimeControlStatus status) {
            if (auto self = weakSelf.lock()) {
                self->timeControlChanged(status);
            }
        });
    registerFor(PlayerItem::playbackStalledNotification, nullptr,
                [](ZMPlayer& self, const Notification& n) { self.stallChanged(n, true); });
    registerFor(PlayerItem::playbackStallEndedNotification, nullptr,
                [](ZMPlayer& self, const Notification& n) { self.stallChanged(n, false); });
    playerTimeObserver_ = systemPlayer_->addPeriodicTimeObserver(
        MediaTime::make(0.5, 1000000000), DispatchQueue::main(), [weakSelf](MediaTime time) {
            if (auto self = weakSelf.lock()) {
                self->timeTick(time);
            }
        });
}

bool ZMPlayer::isPaused() const {
    return systemPlayer_->rate() == 0.0f;
}

std::optional<ZMStreamType> ZMPlayer::streamType() const {
    if (!source_) {
        return std::nullopt;
    }
    return source_->streamType();
}

std::optional<bool> ZMPlayer::timeshiftAvailable() const {
    if (!source_) {
        return std::nullopt;
    }
    return source_->maxAllowedTimeshift().has_value();
}

std::optional<double> ZMPlayer::currentIndictatedVideoBitrate() const {
    auto event = lastAccessLogEvent(systemPlayer_->currentItem());
    if (!event) {
        return std::nullopt;
    }
    return event->indicatedBitrate / 1000;
}

ZMPlaybackStatus ZMPlayer::playbackStatus() const {
    return toZMPlaybackStatus(systemPlayer_->timeControlStatus());
}

std::optional<double> ZMPlayer::currentVideoBandwidth() const {
    auto event = lastAccessLogEvent(systemPlayer_->currentItem());
    if (!event || !std::isfinite(event->observedBitrate)) {
        return std::nullopt;
    }
    return event->observedBitrate / 1000;
}

bool ZMPlayer::isMuted() const {
    return systemPlayer_->isMuted();
}

void ZMPlayer::setMuted(bool muted) {
    systemPlayer_->setMuted(muted);
}

bool ZMPlayer::allowsExternalPlayback() {
    if (!allowsExternalPlayback_) {
        allowsExternalPlayback_ = true;
    }
    return *allowsExternalPlayback_;
}

void ZMPlayer::setAllowsExternalPlayback(bool allows) {
    allowsExternalPlayback_ = allows;
    systemPlayer_->setAllowsExternalPlayback(allowsExternalPlayback());
}

double ZMPlayer::currentTime() const {
    const auto& item = systemPlayer_->currentItem();
    if (!item) {
        return 0.0;
    }
    if (source_ && source_->streamType() == ZMStreamType::vod) {
        return item->currentTime().seconds();
    }
    return item->currentDate().value_or(Scheduler::standard()->now()).timeIntervalSince1970();
}

double ZMPlayer::currentPlayerTimeOffset() const {
    const auto& item = systemPlayer_->currentItem();
    return item ? item->currentTime().seconds() : 0.0;
}

double ZMPlayer::duration() const {
    const auto& item = systemPlayer_->currentItem();
    return item ? item->duration().seconds() : 0.0;
}

std::optional<MediaSelectionOption> ZMPlayer::selectedOption(
    const MediaCharacteristic& characteristic) const {
    const auto& item = systemPlayer_->currentItem();
    if (!item) {
        return std::nullopt;
    }
    auto group = item->asset()->mediaSelectionGroup(characteristic);
    if (!group) {
        return std::nullopt;
    }
    return item->currentMediaSelection().selectedMediaOption(*group);
}

std::optional<MediaSelectionOption> ZMPlayer::currentAudioOption() const {
    return selectedOption(MediaCharacteristic::audible());
}

std::optional<MediaSelectionOption> ZMPlayer::currentSubtitleOption() const {
    return selectedOption(MediaCharacteristic::legible());
}

std::vector<ZMMediaOption> ZMPlayer::options(const MediaCharacteristic& characteristic) {
    const auto& item = systemPlayer_->currentItem();
    if (!item) {
        return {};
    }
    return ZMMediaOption::list(
        item->asset()->mediaSelectionGroup(characteristic), characteristic,
        [this, &characteristic](const std::vector<MediaSelectionOption>& options)
            -> std::optional<std::vector<ZMMediaOption>> {
            if (auto delegate = delegate_.lock()) {
                return delegate->playerMapMediaOptions(*this, options, characteristic);
            }
            return std::nullopt;
        });
}

std::vector<ZMMediaOption> ZMPlayer::audioOptions() {
    return options(MediaCharacteristic::audible());
}

std::vector<ZMMediaOption> ZMPlayer::subtitleOptions() {
    return options(MediaCharacteristic::legible());
}

void ZMPlayer::play() {
    systemPlayer_->setRate(playbackSpeed_);
}

void ZMPlayer::pause() {
    systemPlayer_->pause();
}

void ZMPlayer::seek(double to, std::int32_t preferredTimescale, MediaTime toleranceBefore,
                    MediaTime toleranceAfter, std::function<void(bool)> completion) {
    const MediaTime target = MediaTime::make(to, preferredTimescale);
    if (completion) {
        systemPlayer_->seek(target, toleranceBefore, toleranceAfter, std::move(completion));
    } else {
        systemPlayer_->seek(target, toleranceBefore, toleranceAfter);
    }
}

void ZMPlayer::reloadPlayerItem(const std::function<void()>& completion) {
    systemPlayer_->pause();
    playerItemStatusObservation_.invalidate();
    auto item = createAVPlayerItem();
    playerItemStatusObservation_.invalidate();
    if (item) {
        observeItemStatus(item);
    }
    registerFor(PlayerItem::mediaSelectionDidChangeNotification, nullptr,
                [](ZMPlayer& self, const Notification&) { self.mediaSelectionDidChange(); });
    systemPlayer_->replaceCurrentItem(item);
    // The options are read from the item now current, so this applies its own selection again.
    if (auto subtitle = currentSubtitleOption()) {
        if (item && item->asset()->mediaSelectionGroup(MediaCharacteristic::legible())) {
            selectOptionGroup(subtitle, MediaCharacteristic::legible());
        }
    }
    if (auto audio = currentAudioOption()) {
        if (item && item->asset()->mediaSelectionGroup(MediaCharacteristic::audible())) {
            selectOptionGroup(audio, MediaCharacteristic::audible());
        }
    }
    systemPlayer_->setRate(playbackSpeed_);
    completion();
}

void ZMPlayer::reloadPlayerItemAndSeekTo(MediaTime time, const std::function<void()>& completion) {
    reloadPlayerItem([this, time, &completion] {
        systemPlayer_->seek(time);
        completion();
    });
}

std::shared_ptr<PlayerItem> ZMPlayer::createAVPlayerItem() {
    metadataHolder_.clear();
    auto collector = PlayerItemMetadataCollector::make();
    collector->setDelegate(weak_from_this(), DispatchQueue::main());
    std::shared_ptr<PlayerItem> item;
    if (source_) {
        item = source_->createPlayerItem();
        if (item) {
            item->add(collector);
            applyQualityPreferences(*item);
        }
    }
    if (auto delegate = delegate_.lock()) {
        auto rules = delegate->playerInternalSubtitlesTextStyleRules(*this);
        if (!rules.empty() && item) {
            item->setTextStyleRules(std::move(rules));
        }
    }
    return item;
}

void ZMPlayer::setupObserversForPlayerItem(const std::shared_ptr<PlayerItem>& playerItem) {
    playerItemStatusObservation_.invalidate();
    if (playerItem) {
        observeItemStatus(playerItem);
    } else {
        playerItemStatusObservation_ = Observation();
    }
    registerFor(PlayerItem::mediaSelectionDidChangeNotification, nullptr,
                [](ZMPlayer& self, const Notification&) { self.mediaSelectionDidChange(); });
}

void ZMPlayer::open(std::shared_ptr<ZMPlaybackSource> source, bool autoPlay) {
    source_ = std::move(source);
    auto item = createAVPlayerItem();
    if (item) {
        systemPlayer_->replaceCurrentItem(item);
        playerItemStatusObservation_.invalidate();
        observeItemStatus(item);
        registerFor(PlayerItem::mediaSelectionDidChangeNotification, nullptr,
                    [](ZMPlayer& self, const Notification&) { self.mediaSelectionDidChange(); });
        registerFor(PlayerItem::newAccessLogEntryNotification, item.get(),
                    [](ZMPlayer& self, const Notification& notification) {
                        self.playerItemDidAddNewAccessLogEntry(notification);
                    });
    }
    if (autoPlay) {
        systemPlayer_->setRate(playbackSpeed_);
    }
}

std::vector<ZMPlayerQualityLevel> ZMPlayer::qualityLevels() const {
    auto item = systemPlayer_->currentItem();
    if (!item || item->status() != PlayerItem::Status::readyToPlay) {
        return {};
    }
    std::vector<ZMPlayerQualityLevel> levels;
    for (const auto& variant : item->variants()) {
        levels.push_back({variant.uri, variant.bandwidth, variant.averageBandwidth, variant.width,
                          variant.height, variant.codecs, variant.frameRate});
    }
    std::stable_sort(levels.begin(), levels.end(),
                     [](const auto& a, const auto& b) { return a.bandwidth < b.bandwidth; });
    return levels;
}

void ZMPlayer::setMaximumBitrate(double bitsPerSecond) {
    maximumBitrate_ = std::isfinite(bitsPerSecond) && bitsPerSecond > 0 ? bitsPerSecond : 0;
    if (auto item = systemPlayer_->currentItem()) {
        item->setPreferredPeakBitRate(maximumBitrate_);
    }
}

void ZMPlayer::setMaximumResolution(int width, int height) {
    maximumResolution_ = width > 0 && height > 0 ? std::pair{width, height} : std::pair{0, 0};
    if (auto item = systemPlayer_->currentItem()) {
        item->setPreferredMaximumResolution(maximumResolution_.first, maximumResolution_.second);
    }
}

void ZMPlayer::selectQualityLevel(const std::optional<ZMPlayerQualityLevel>& level) {
    selectedQualityLevel_ = level;
    if (auto item = systemPlayer_->currentItem()) {
        item->setPreferredVariantUri(level ? std::optional(level->uri) : std::nullopt);
    }
}

void ZMPlayer::applyQualityPreferences(PlayerItem& item) const {
    item.setPreferredPeakBitRate(maximumBitrate_);
    item.setPreferredMaximumResolution(maximumResolution_.first, maximumResolution_.second);
    item.setPreferredVariantUri(selectedQualityLevel_ ? std::optional(selectedQualityLevel_->uri)
                                                      : std::nullopt);
}

void ZMPlayer::setPlaybackSpeed(float speed) {
    constexpr float fastest = 4;
    if (!std::isfinite(speed) || speed <= 0 || speed > fastest) {
        return;
    }
    playbackSpeed_ = speed;
    if (systemPlayer_->rate() != 0) {
        systemPlayer_->setRate(speed);
    }
}

ZMPlaybackStatistics ZMPlayer::playbackStatistics() const {
    auto item = systemPlayer_->currentItem();
    return item ? ZMPlaybackStatistics::of(*item) : ZMPlaybackStatistics{};
}

void ZMPlayer::stallChanged(const Notification& notification, bool started) {
    auto item = notification.objectAs<PlayerItem>();
    auto delegate = statisticsDelegate_.lock();
    if (!delegate || !item || item != systemPlayer_->currentItem()) {
        return;
    }
    if (started) {
        delegate->playerDidStartStall(*this);
        return;
    }
    double duration = 0;
    if (auto found = notification.userInfo.find(PlayerItem::stallDurationKey);
        found != notification.userInfo.end()) {
        if (const auto* seconds = std::any_cast<double>(&found->second)) {
            duration = *seconds;
        }
    }
    delegate->playerDidEndStall(*this, duration);
}

void ZMPlayer::removeCurrentSource() {
    source_.reset();
    playerItemStatusObservation_.invalidate();
    systemPlayer_->replaceCurrentItem(nullptr);
}

void ZMPlayer::selectOptionGroup(const std::optional<MediaSelectionOption>& option,
                                 const MediaCharacteristic& characteristic) {
    const auto& item = systemPlayer_->currentItem();
    if (!item) {
        return;
    }
    if (auto group = item->asset()->mediaSelectionGroup(characteristic)) {
        item->select(option, *group);
    }
}

void ZMPlayer::mediaSelectionDidChange() {
    reportItemStatus(systemPlayer_->currentItem());
}

void ZMPlayer::playerItemDidAddNewAccessLogEntry(const Notification& notification) {
    DispatchQueue::main()->async([weakSelf = weak_from_this(), notification] {
        auto self = weakSelf.lock();
        if (!self || !self->systemPlayer_->currentItem()) {
            return;
        }
        const auto& item = self->systemPlayer_->currentItem();
        if (notification.objectIdentity == item.get()) {
            const auto bitrate = self->currentIndictatedVideoBitrate();
            const auto& last = self->lastReadIndicatedBitrate_;
            const bool changed = (!last && bitrate) || (last && (!bitrate || *bitrate != *last));
            if (changed) {
                self->lastReadIndicatedBitrate_ = bitrate;
                auto delegate = self->delegate_.lock();
                if (bitrate && delegate) {
                    delegate->playerDidChangeIndicatedBitrate(*self, *bitrate);
                }
            }
        }
        if (item->accessLog()) {
            if (auto delegate = self->delegate_.lock()) {
                delegate->playerDidOccurAccessLogEvents(*self, item->accessLog()->events());
            }
        }
    });
}

void ZMPlayer::metadataCollector(PlayerItemMetadataCollector&,
                                 const std::vector<DateRangeMetadataGroup>& groups,
                                 const std::vector<std::size_t>&, const std::vector<std::size_t>&) {
    metadataHolder_.collect(groups);
}

void ZMPlayer::observeItemStatus(const std::shared_ptr<PlayerItem>& item) {
    playerItemStatusObservation_ =
        item->observeStatus([weakSelf = weak_from_this(),
                             weakItem = std::weak_ptr<PlayerItem>(item)](PlayerItem::Status) {
            auto self = weakSelf.lock();
            auto item = weakItem.lock();
            if (self && item) {
                self->itemStatusChanged(item);
            }
        });
}

void ZMPlayer::registerFor(const char* name, const PlayerItem* object,
                           std::function<void(ZMPlayer&, const Notification&)> handler) {
    registrations_[{name, object}] = NotificationCenter::defaultCenter().addObserver(
        name, object, nullptr,
        [weakSelf = weak_from_this(), handler = std::move(handler)](const Notification& n) {
            if (auto self = weakSelf.lock()) {
                handler(*self, n);
            }
        });
}

void ZMPlayer::playerStatusChanged(Player::Status status) {
    const ZMPlayerStatus mapped = toZMPlayerStatus(status);
    auto delegate = delegate_.lock();
    if (!delegate) {
        return;
    }
    if (mapped == ZMPlayerStatus::failed && systemPlayer_->error()) {
        delegate->playerDidOccurError(*this, *systemPlayer_->error());
    }
    delegate->playerDidChangePlayerStatus(*this, mapped);
}

void ZMPlayer::itemStatusChanged(const std::shared_ptr<PlayerItem>& item) {
    reportItemStatus(item);
    reportAccessLogEvents(item);
}

void ZMPlayer::reportItemStatus(const std::shared_ptr<PlayerItem>& item) {
    ZMPlayerStatus status = toZMPlayerStatus(item.get());
    auto delegate = delegate_.lock();
    if (!delegate) {
        return;
    }
    if (status == ZMPlayerStatus::failed && item->error()) {
        delegate->playerDidOccurError(*this, *item->error());
    }
    delegate->playerPlayedItemDidChange(*this, status);
    reportAccessLogEvents(item);
}

void ZMPlayer::reportAccessLogEvents(const std::shared_ptr<PlayerItem>& item) {
    if (auto delegate = delegate_.lock()) {
        std::vector<PlayerItemAccessLogEvent> events;
        if (item && item->accessLog()) {
            events = item->accessLog()->events();
        }
        delegate->playerDidOccurAccessLogEvents(*this, events);
    }
}

void ZMPlayer::timeControlChanged(Player::TimeControlStatus status) {
    const ZMPlaybackStatus mapped = toZMPlaybackStatus(status);
    if (lastPlaybackStatus_ && *lastPlaybackStatus_ == mapped) {
        return;
    }
    lastPlaybackStatus_ = mapped;
    if (auto delegate = delegate_.lock()) {
        delegate->playerDidChangePlaybackStatus(*this, mapped);
    }
}

void ZMPlayer::timeTick(MediaTime time) {
    const auto& item = systemPlayer_->currentItem();
    if (!item) {
        return;
    }
    if (auto delegate = delegate_.lock()) {
        delegate->playerCurrentTime(*this, time.seconds(), item->duration().seconds());
    }
    auto due = metadataHolder_.dueEvents(item->currentDate());
    if (!due.empty()) {
        if (auto delegate = delegate_.lock()) {
            delegate->playerDidOccurEvents(*this, due);
        }
    }
}

}  // namespace zarvo
