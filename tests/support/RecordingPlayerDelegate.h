#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/player/ZMPlayer.h"

namespace zarvo::test {

// A host's delegate that keeps what the player reports: each kind of call in its own list,
// and the order of errors and item changes. Ad events come with the item's programme date at
// the moment they were reported. For tests that link the player library.
class RecordingPlayerDelegate : public ZMPlayerDelegate {
public:
    struct Tick {
        double time;
        double duration;
    };
    struct Event {
        ZMPlayerMetadataEvent event;
        std::optional<Date> date;
    };

    std::vector<ZMPlayerStatus> playerStatuses;
    std::vector<ZMPlayerStatus> itemStatuses;
    std::vector<ZMPlaybackStatus> playback;
    std::vector<Tick> ticks;
    std::vector<double> bitrates;
    std::vector<Error> errors;
    std::vector<Event> events;
    std::vector<std::string> errorsAndItems;  // "error" or "item", in the order they came

    bool itemFailed() const {
        return std::find(itemStatuses.begin(), itemStatuses.end(), ZMPlayerStatus::failed) !=
               itemStatuses.end();
    }

    void playerCurrentTime(ZMPlayer&, double time, double duration) override {
        ticks.push_back({time, duration});
    }
    void playerDidChangePlayerStatus(ZMPlayer&, ZMPlayerStatus status) override {
        playerStatuses.push_back(status);
    }
    void playerPlayedItemDidChange(ZMPlayer&, ZMPlayerStatus status) override {
        itemStatuses.push_back(status);
        errorsAndItems.push_back("item");
    }
    void playerDidChangePlaybackStatus(ZMPlayer&, ZMPlaybackStatus status) override {
        playback.push_back(status);
    }
    void playerDidChangeIndicatedBitrate(ZMPlayer&, double bitrate) override {
        bitrates.push_back(bitrate);
    }
    void playerDidOccurError(ZMPlayer&, const Error& error) override {
        errors.push_back(error);
        errorsAndItems.push_back("error");
    }
    void playerDidOccurEvents(ZMPlayer& player,
                              const std::vector<ZMPlayerMetadataEvent>& due) override {
        for (const auto& event : due) {
            events.push_back({event, player.systemPlayer()->currentItem()->currentDate()});
        }
    }
    std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer&, const std::vector<MediaSelectionOption>&, const MediaCharacteristic&) override {
        return std::nullopt;
    }
    std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(ZMPlayer&,
                                       const std::vector<PlayerItemAccessLogEvent>&) override {}
};

}  // namespace zarvo::test
