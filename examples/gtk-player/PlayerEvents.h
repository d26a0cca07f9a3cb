#pragma once

#include <functional>
#include <zarvo/player/ZMPlayer.h>
#include <zarvo/player/ZMPlayerDelegate.h>

namespace gtkplayer {

// The player's delegate: passes on the calls this application uses to the functions set, and
// leaves the rest (bitrates, access log, ad events, option mapping, subtitle style) to the
// SDK's defaults. The player holds its delegate weakly; its owner keeps it alive.
class PlayerEvents : public zarvo::ZMPlayerDelegate {
public:
    std::function<void(double current, double duration)> timeChanged;
    std::function<void(zarvo::ZMPlayerStatus)> itemChanged;
    std::function<void(zarvo::ZMPlaybackStatus)> playbackChanged;
    std::function<void(const zarvo::Error&)> failed;

    void playerCurrentTime(zarvo::ZMPlayer&, double current, double duration) override {
        timeChanged(current, duration);
    }
    void playerPlayedItemDidChange(zarvo::ZMPlayer&, zarvo::ZMPlayerStatus status) override {
        itemChanged(status);
    }
    void playerDidChangePlaybackStatus(zarvo::ZMPlayer&, zarvo::ZMPlaybackStatus status) override {
        playbackChanged(status);
    }
    void playerDidOccurError(zarvo::ZMPlayer&, const zarvo::Error& error) override {
        failed(error);
    }

    void playerDidChangePlayerStatus(zarvo::ZMPlayer&, zarvo::ZMPlayerStatus) override {}
    void playerDidChangeIndicatedBitrate(zarvo::ZMPlayer&, double) override {}
    void playerDidOccurEvents(zarvo::ZMPlayer&,
                              const std::vector<zarvo::ZMPlayerMetadataEvent>&) override {}
    std::optional<std::vector<zarvo::ZMMediaOption>> playerMapMediaOptions(
        zarvo::ZMPlayer&, const std::vector<zarvo::MediaSelectionOption>&,
        const zarvo::MediaCharacteristic&) override {
        return std::nullopt;
    }
    std::vector<zarvo::TextStyleRule> playerInternalSubtitlesTextStyleRules(
        zarvo::ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(
        zarvo::ZMPlayer&, const std::vector<zarvo::PlayerItemAccessLogEvent>&) override {}
};

}  // namespace gtkplayer
