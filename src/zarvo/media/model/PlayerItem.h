#pragma once

#include <any>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "zarvo/media/model/MediaEngineKey.h"
#include "zarvo/media/model/MediaSelection.h"
#include "zarvo/media/model/MediaSelectionGroup.h"
#include "zarvo/media/model/MediaTime.h"
#include "zarvo/media/model/MediaTimeRange.h"
#include "zarvo/media/model/PlayerItemAccessLog.h"
#include "zarvo/media/model/PlayerItemMetadataCollector.h"
#include "zarvo/media/model/PlayerItemStatistics.h"
#include "zarvo/media/model/PlayerItemVariant.h"
#include "zarvo/media/model/TextStyleRule.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Observation.h"
#include "zarvo/platform/ObserverList.h"

namespace zarvo {

class Player;

// One playback of an asset: its status, timing, access log, media selection, subtitle style
// and metadata collectors. Used on the main thread. Notifications go through
// NotificationCenter::defaultCenter() with the item as object, on the main thread.
class ZARVO_EXPORT PlayerItem : public std::enable_shared_from_this<PlayerItem> {
public:
    enum class Status { unknown = 0, readyToPlay = 1, failed = 2 };

    // A new entry in the access log, or the last entry brought up to date.
    static constexpr const char* newAccessLogEntryNotification =
        "PlayerItemNewAccessLogEntryNotification";
    static constexpr const char* mediaSelectionDidChangeNotification =
        "PlayerItemMediaSelectionDidChangeNotification";
    static constexpr const char* didPlayToEndTimeNotification =
        "PlayerItemDidPlayToEndTimeNotification";
    // User info: failedToPlayToEndTimeErrorKey, the Error.
    static constexpr const char* failedToPlayToEndTimeNotification =
        "PlayerItemFailedToPlayToEndTimeNotification";
    static constexpr const char* failedToPlayToEndTimeErrorKey =
        "PlayerItemFailedToPlayToEndTimeErrorKey";
    static constexpr const char* playbackStalledNotification =
        "PlayerItemPlaybackStalledNotification";
    // A stall ended: playback has media again. User info: stallDurationKey, the stall's
    // length (double, seconds).
    static constexpr const char* playbackStallEndedNotification =
        "PlayerItemPlaybackStallEndedNotification";
    static constexpr const char* stallDurationKey = "PlayerItemStallDurationKey";
    // The first video frame reached the video sink. User info: firstVideoFrameUptimeKey, the
    // process uptime (double, seconds) at that moment.
    static constexpr const char* firstVideoFrameNotification =
        "PlayerItemFirstVideoFrameNotification";
    static constexpr const char* firstVideoFrameUptimeKey = "PlayerItemFirstVideoFrameUptimeKey";

    static std::shared_ptr<PlayerItem> make(std::shared_ptr<UrlAsset> asset);
    explicit PlayerItem(std::shared_ptr<UrlAsset> asset);
    PlayerItem(const PlayerItem&) = delete;
    PlayerItem& operator=(const PlayerItem&) = delete;

    const std::shared_ptr<UrlAsset>& asset() const { return asset_; }
    Status status() const { return status_; }
    const std::optional<Error>& error() const { return error_; }
    // Observes status changes (new values only).
    Observation observeStatus(std::function<void(Status)> handler);

    // The position on the item's timeline (zero before it plays).
    MediaTime currentTime() const;
    // The length of the item; indefinite for live streams and until it is known.
    MediaTime duration() const { return duration_; }
    // The programme date of the current position: the EXT-X-PROGRAM-DATE-TIME of the segment
    // on screen plus the offset into it; nothing for streams without dates.
    std::optional<Date> currentDate() const;
    // Where seeking is possible (the live window for live streams).
    const std::vector<MediaTimeRange>& seekableTimeRanges() const { return seekable_; }
    // Nothing until the first entry.
    std::shared_ptr<const PlayerItemAccessLog> accessLog() const { return accessLog_; }

    // The current choice in each media selection group of the asset.
    MediaSelection currentMediaSelection() const { return selection_; }
    // Selects `option` in `group` (nothing clears it, where the group allows that), and posts
    // mediaSelectionDidChangeNotification.
    void select(const std::optional<MediaSelectionOption>& option,
                const MediaSelectionGroup& group);

    const std::vector<TextStyleRule>& textStyleRules() const { return textStyleRules_; }
    void setTextStyleRules(std::vector<TextStyleRule> rules);

    // The master playlist's variants, known once the engine has read it (before the item is
    // ready); none for a stream without a master.
    const std::vector<PlayerItemVariant>& variants() const { return variants_; }
    // Limits on the variants that adaptive switching picks from, also while playing: a peak
    // bitrate (bits per second, 0: none) and a largest picture (0 by 0: none). A variant
    // chosen by its URI wins over both; nothing returns to adaptive switching.
    double preferredPeakBitRate() const { return peakBitRate_; }
    void setPreferredPeakBitRate(double bitsPerSecond);
    std::pair<int, int> preferredMaximumResolution() const { return maximumResolution_; }
    void setPreferredMaximumResolution(int width, int height);
    const std::optional<std::string>& preferredVariantUri() const { return preferredVariant_; }
    void setPreferredVariantUri(std::optional<std::string> uri);
    // What the engine counts of this playback so far (the last figures once it has left the
    // player).
    PlayerItemStatistics statistics() const;

    void add(std::shared_ptr<PlayerItemMetadataCollector> collector);
    void remove(const std::shared_ptr<PlayerItemMetadataCollector>& collector);
    const std::vector<std::shared_ptr<PlayerItemMetadataCollector>>& metadataCollectors() const {
        return collectors_;
    }

    // Engine side.
    void updateStatus(const MediaEngineKey&, Status status, std::optional<Error> error = {});
    void updateDuration(const MediaEngineKey&, MediaTime duration) { duration_ = duration; }
    void updateSeekableTimeRanges(const MediaEngineKey&, std::vector<MediaTimeRange> ranges) {
        seekable_ = std::move(ranges);
    }
    // Replaces the log; posts newAccessLogEntryNotification when `announce` is set.
    void updateAccessLog(const MediaEngineKey&, std::vector<PlayerItemAccessLogEvent> events,
                         bool announce);
    // The limits are worked out again from the variants.
    void updateVariants(const MediaEngineKey&, std::vector<PlayerItemVariant> variants) {
        variants_ = std::move(variants);
        variantPreferencesChanged();
    }
    void updateStatistics(const MediaEngineKey&, const PlayerItemStatistics& statistics) {
        statistics_ = statistics;
    }
    // Where the item stands while no player plays it.
    void updateTime(const MediaEngineKey&, MediaTime time) { time_ = time; }
    // Posts a notification about this item (on the calling thread).
    void post(const MediaEngineKey&, const char* name,
              std::map<std::string, std::any> userInfo = {});

private:
    friend class Player;
    // The asset's groups became known: their defaults become the selection where nothing was
    // chosen yet.
    void adoptDefaultSelection();
    void variantPreferencesChanged();

    const std::shared_ptr<UrlAsset> asset_;
    std::weak_ptr<Player> player_;  // the player it is current in
    Status status_ = Status::unknown;
    std::optional<Error> error_;
    MediaTime time_ = MediaTime::zero();
    MediaTime duration_ = MediaTime::indefinite();
    std::vector<MediaTimeRange> seekable_;
    std::shared_ptr<const PlayerItemAccessLog> accessLog_;
    MediaSelection selection_;
    std::set<MediaCharacteristic> chosenGroups_;  // groups the application chose in
    std::vector<TextStyleRule> textStyleRules_;
    std::vector<PlayerItemVariant> variants_;
    double peakBitRate_ = 0;
    std::pair<int, int> maximumResolution_{0, 0};
    std::optional<std::string> preferredVariant_;
    PlayerItemStatistics statistics_;
    std::vector<std::shared_ptr<PlayerItemMetadataCollector>> collectors_;
    ObserverList<Status> statusObservers_;
};

}  // namespace zarvo
