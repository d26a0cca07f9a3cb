#include "zarvo/media/model/PlayerItem.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "zarvo/media/model/Player.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/NotificationCenter.h"

namespace zarvo {

std::shared_ptr<PlayerItem> PlayerItem::make(std::shared_ptr<UrlAsset> asset) {
    auto item = std::make_shared<PlayerItem>(std::move(asset));
    if (item->asset_ && !item->asset_->isLoaded()) {
        item->asset_->loadMediaSelections(
            DispatchQueue::main(),
            [weakItem = std::weak_ptr<PlayerItem>(item)](const std::optional<Error>& error) {
                auto item = weakItem.lock();
                if (item && !error) {
                    item->adoptDefaultSelection();
                }
            });
    }
    return item;
}

PlayerItem::PlayerItem(std::shared_ptr<UrlAsset> asset) : asset_(std::move(asset)) {
    if (asset_ && asset_->isLoaded()) {
        selection_ = asset_->preferredMediaSelection();
    }
}

Observation PlayerItem::observeStatus(std::function<void(Status)> handler) {
    return statusObservers_.add(std::move(handler));
}

MediaTime PlayerItem::currentTime() const {
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        const MediaTime time = player->engine_->currentTime();
        if (time.isNumeric()) {
            return time;
        }
    }
    return time_;
}

std::optional<Date> PlayerItem::currentDate() const {
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        return player->engine_->currentDate();
    }
    return std::nullopt;
}

void PlayerItem::select(const std::optional<MediaSelectionOption>& option,
                        const MediaSelectionGroup& group) {
    if (!option && !group.allowsEmptySelection()) {
        return;
    }
    if (option && !group.contains(*option)) {
        return;
    }
    selection_.select(option, group);
    chosenGroups_.insert(group.characteristic());
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        player->engine_->mediaSelectionChanged();
    }
    DispatchQueue::main()->async([weakSelf = weak_from_this()] {
        if (auto self = weakSelf.lock()) {
            NotificationCenter::defaultCenter().post(
                Notification::make(mediaSelectionDidChangeNotification, self));
        }
    });
}

void PlayerItem::setTextStyleRules(std::vector<TextStyleRule> rules) {
    textStyleRules_ = std::move(rules);
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        player->engine_->textStyleRulesChanged();
    }
}

void PlayerItem::setPreferredPeakBitRate(double bitsPerSecond) {
    // A negative or non-finite limit is no limit.
    peakBitRate_ = std::isfinite(bitsPerSecond) && bitsPerSecond > 0 ? bitsPerSecond : 0;
    variantPreferencesChanged();
}

void PlayerItem::setPreferredMaximumResolution(int width, int height) {
    maximumResolution_ = width > 0 && height > 0 ? std::pair{width, height} : std::pair{0, 0};
    variantPreferencesChanged();
}

void PlayerItem::setPreferredVariantUri(std::optional<std::string> uri) {
    preferredVariant_ = std::move(uri);
    variantPreferencesChanged();
}

void PlayerItem::variantPreferencesChanged() {
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        player->engine_->variantPreferencesChanged();
    }
}

PlayerItemStatistics PlayerItem::statistics() const {
    auto player = player_.lock();
    if (player && player->currentItem_.get() == this && player->engine_) {
        if (auto current = player->engine_->statistics()) {
            return *current;
        }
    }
    return statistics_;
}

void PlayerItem::add(std::shared_ptr<PlayerItemMetadataCollector> collector) {
    if (collector &&
        std::find(collectors_.begin(), collectors_.end(), collector) == collectors_.end()) {
        collectors_.push_back(std::move(collector));
    }
}

void PlayerItem::remove(const std::shared_ptr<PlayerItemMetadataCollector>& collector) {
    collectors_.erase(std::remove(collectors_.begin(), collectors_.end(), collector),
                      collectors_.end());
}

void PlayerItem::updateStatus(const MediaEngineKey&, Status status, std::optional<Error> error) {
    status_ = status;
    error_ = std::move(error);
    statusObservers_.notify(status);
}

void PlayerItem::updateAccessLog(const MediaEngineKey& key,
                                 std::vector<PlayerItemAccessLogEvent> events, bool announce) {
    accessLog_ = std::make_shared<const PlayerItemAccessLog>(std::move(events));
    if (announce) {
        post(key, newAccessLogEntryNotification);
    }
}

void PlayerItem::adoptDefaultSelection() {
    const MediaSelection defaults = asset_->preferredMediaSelection();
    for (const auto& characteristic :
         {MediaCharacteristic::audible(), MediaCharacteristic::legible()}) {
        auto group = asset_->mediaSelectionGroup(characteristic);
        if (group && chosenGroups_.count(characteristic) == 0) {
            selection_.select(defaults.selectedMediaOption(*group), *group);
        }
    }
}

void PlayerItem::post(const MediaEngineKey&, const char* name,
                      std::map<std::string, std::any> userInfo) {
    auto notification = Notification::make(name, shared_from_this());
    notification.userInfo = std::move(userInfo);
    NotificationCenter::defaultCenter().post(notification);
}

}  // namespace zarvo
