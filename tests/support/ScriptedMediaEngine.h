#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "zarvo/media/model/MediaEngine.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"

namespace zarvo::test {

// A media engine that plays nothing: it records what players ask of it, and the test says
// what the engine reports (statuses, times, access-log entries, metadata, loaded groups).
// Install it with a ScopedMediaEngine before making players and assets.
class ScriptedMediaEngine : public MediaEngine {
public:
    struct Seek {
        std::uint64_t id = 0;
        MediaTime time;
        MediaTime toleranceBefore;
        MediaTime toleranceAfter;
    };
    // What one player's engine was asked, and the time and date it reports.
    struct PlayerState {
        std::shared_ptr<PlayerItem> item;
        float rate = 0;
        bool muted = false;
        float volume = 1;
        std::vector<Seek> seeks;
        int selectionChanges = 0;
        int styleChanges = 0;
        MediaTime time = MediaTime::zero();
        std::optional<Date> date;
        std::map<std::uint64_t, VideoOutput> outputs;  // the windows it draws into, by id
    };

    std::unique_ptr<PlayerEngine> makePlayerEngine(const std::shared_ptr<Player>& player) override;
    void loadAsset(const std::shared_ptr<UrlAsset>& asset) override;

    // The engine state of `player` (made on this engine).
    PlayerState& state(const Player& player);
    const std::vector<std::shared_ptr<UrlAsset>>& assets() const { return assets_; }

    void reportStatus(Player& player, Player::Status status, std::optional<Error> error = {});
    void reportTimeControlStatus(Player& player, Player::TimeControlStatus status,
                                 std::optional<Player::WaitingReason> reason = {});
    void finishSeek(Player& player, std::uint64_t id);
    void reportStatus(PlayerItem& item, PlayerItem::Status status, std::optional<Error> error = {});
    void reportDuration(PlayerItem& item, MediaTime duration);
    void reportAccessLog(PlayerItem& item, std::vector<PlayerItemAccessLogEvent> events,
                         bool announce = true);
    void post(PlayerItem& item, const char* name, std::map<std::string, std::any> userInfo = {});
    void collect(PlayerItemMetadataCollector& collector,
                 const std::vector<DateRangeMetadataGroup>& groups);
    void finishAsset(UrlAsset& asset, std::vector<MediaSelectionGroup> groups);
    void failAsset(UrlAsset& asset, Error error);

private:
    std::map<const Player*, std::shared_ptr<PlayerState>> players_;
    std::vector<std::shared_ptr<UrlAsset>> assets_;
};

}  // namespace zarvo::test
