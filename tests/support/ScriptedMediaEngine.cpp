#include "support/ScriptedMediaEngine.h"

namespace zarvo::test {

namespace {

class ScriptedPlayerEngine : public PlayerEngine {
public:
    explicit ScriptedPlayerEngine(std::shared_ptr<ScriptedMediaEngine::PlayerState> state)
        : state_(std::move(state)) {}

    void setItem(const std::shared_ptr<PlayerItem>& item) override { state_->item = item; }
    void setRate(float rate) override { state_->rate = rate; }
    void setMuted(bool muted) override { state_->muted = muted; }
    void setVolume(float volume) override { state_->volume = volume; }
    void seek(std::uint64_t id, MediaTime time, MediaTime before, MediaTime after) override {
        state_->seeks.push_back({id, time, before, after});
    }
    MediaTime currentTime() const override { return state_->time; }
    std::optional<Date> currentDate() const override { return state_->date; }
    void mediaSelectionChanged() override { ++state_->selectionChanges; }
    void textStyleRulesChanged() override { ++state_->styleChanges; }
    void setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) override {
        if (output) {
            state_->outputs[id] = *output;
        } else {
            state_->outputs.erase(id);
        }
    }
    void redrawVideoOutput(std::uint64_t) override {}

private:
    std::shared_ptr<ScriptedMediaEngine::PlayerState> state_;
};

}  // namespace

std::unique_ptr<PlayerEngine> ScriptedMediaEngine::makePlayerEngine(
    const std::shared_ptr<Player>& player) {
    auto state = std::make_shared<PlayerState>();
    players_[player.get()] = state;
    return std::make_unique<ScriptedPlayerEngine>(std::move(state));
}

void ScriptedMediaEngine::loadAsset(const std::shared_ptr<UrlAsset>& asset) {
    assets_.push_back(asset);
}

ScriptedMediaEngine::PlayerState& ScriptedMediaEngine::state(const Player& player) {
    return *players_.at(&player);
}

void ScriptedMediaEngine::reportStatus(Player& player, Player::Status status,
                                       std::optional<Error> error) {
    player.updateStatus(key(), status, std::move(error));
}

void ScriptedMediaEngine::reportTimeControlStatus(Player& player, Player::TimeControlStatus status,
                                                  std::optional<Player::WaitingReason> reason) {
    player.updateTimeControlStatus(key(), status, reason);
}

void ScriptedMediaEngine::finishSeek(Player& player, std::uint64_t id) {
    player.finishSeek(key(), id);
}

void ScriptedMediaEngine::reportStatus(PlayerItem& item, PlayerItem::Status status,
                                       std::optional<Error> error) {
    item.updateStatus(key(), status, std::move(error));
}

void ScriptedMediaEngine::reportDuration(PlayerItem& item, MediaTime duration) {
    item.updateDuration(key(), duration);
}

void ScriptedMediaEngine::reportAccessLog(PlayerItem& item,
                                          std::vector<PlayerItemAccessLogEvent> events,
                                          bool announce) {
    item.updateAccessLog(key(), std::move(events), announce);
}

void ScriptedMediaEngine::post(PlayerItem& item, const char* name,
                               std::map<std::string, std::any> userInfo) {
    item.post(key(), name, std::move(userInfo));
}

void ScriptedMediaEngine::collect(PlayerItemMetadataCollector& collector,
                                  const std::vector<DateRangeMetadataGroup>& groups) {
    collector.collect(key(), groups);
}

void ScriptedMediaEngine::finishAsset(UrlAsset& asset, std::vector<MediaSelectionGroup> groups) {
    asset.finishLoading(key(), std::move(groups));
}

void ScriptedMediaEngine::failAsset(UrlAsset& asset, Error error) {
    asset.failLoading(key(), std::move(error));
}

}  // namespace zarvo::test
