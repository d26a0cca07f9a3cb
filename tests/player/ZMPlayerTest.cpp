// ZMPlayer's delegate rules on a scripted media engine and a manual clock: what each platform
// change becomes, in which order, and what the queries give with and without a source; how
// quality caps and the speed reach each item, and what stalls and statistics come of the
// item's reports.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/Base64.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/player/ZMPlayerView.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "support/ScriptedMediaEngine.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using TimeControl = Player::TimeControlStatus;

// Records every call as one line of text.
class Recorder : public ZMPlayerDelegate {
public:
    std::vector<std::string> calls;
    std::optional<std::vector<ZMMediaOption>> mapping;

    void playerCurrentTime(ZMPlayer&, double time, double duration) override {
        calls.push_back("time " + std::to_string(std::lround(time * 10)) + "/" +
                        std::to_string(std::lround(duration)));
    }
    void playerDidChangePlayerStatus(ZMPlayer&, ZMPlayerStatus status) override {
        calls.push_back("player " + name(status));
    }
    void playerPlayedItemDidChange(ZMPlayer&, ZMPlayerStatus status) override {
        calls.push_back("item " + name(status));
    }
    void playerDidChangePlaybackStatus(ZMPlayer&, ZMPlaybackStatus status) override {
        calls.push_back("playback " + std::to_string(static_cast<int>(status)));
    }
    void playerDidChangeIndicatedBitrate(ZMPlayer&, double bitrate) override {
        calls.push_back("bitrate " + std::to_string(std::lround(bitrate)));
    }
    void playerDidOccurError(ZMPlayer&, const Error& error) override {
        calls.push_back("error " + error.localizedDescription());
    }
    void playerDidOccurEvents(ZMPlayer&,
                              const std::vector<ZMPlayerMetadataEvent>& events) override {
        for (const auto& event : events) {
            calls.push_back("event " + event.identifier.value_or("?"));
        }
    }
    std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer&, const std::vector<MediaSelectionOption>&, const MediaCharacteristic&) override {
        return mapping;
    }
    std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(
        ZMPlayer&, const std::vector<PlayerItemAccessLogEvent>& events) override {
        calls.push_back("log " + std::to_string(events.size()));
    }
    std::vector<std::string> take() { return std::exchange(calls, {}); }

private:
    static std::string name(ZMPlayerStatus status) {
        return status == ZMPlayerStatus::failed        ? "failed"
               : status == ZMPlayerStatus::readyToPlay ? "ready"
                                                       : "unknown";
    }
};

// A source whose factory makes no item.
class EmptySource : public ZMPlaybackSource {
public:
    EmptySource() : ZMPlaybackSource(*Url::parse("http://127.0.0.1:1/a.m3u8"), options()) {}
    std::shared_ptr<PlayerItem> createPlayerItem() override { return nullptr; }
    static ZMPlaybackSourceOptions options() { return ZMPlaybackSourceOptions(false); }
};

PlayerItemAccessLogEvent logEvent(double indicated, double observed) {
    PlayerItemAccessLogEvent event;
    event.indicatedBitrate = indicated;
    event.observedBitrate = observed;
    return event;
}

class ZMPlayerTest : public ::testing::Test {
protected:
    void settle() { RunLoop::main().runUntilIdle(); }
    void advance(Scheduler::Duration by) {
        scheduler->advance(by);
        settle();
    }
    std::shared_ptr<PlayerItem> open(bool live) {
        player->open(std::make_shared<ZMPlaybackSource>(*Url::parse("http://127.0.0.1:1/m.m3u8"),
                                                        ZMPlaybackSourceOptions(live)),
                     true);
        settle();
        return player->systemPlayer()->currentItem();
    }
    Player& platform() { return *player->systemPlayer(); }

    std::shared_ptr<ManualScheduler> scheduler = ManualScheduler::create();
    ScopedStandardScheduler scopedScheduler{scheduler};
    std::shared_ptr<test::ScriptedMediaEngine> engine =
        std::make_shared<test::ScriptedMediaEngine>();
    ScopedMediaEngine scopedEngine{engine};
    std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
    std::shared_ptr<ZMPlayer> player = [this] {
        auto made = ZMPlayer::make();
        made->setDelegate(recorder);
        return made;
    }();
};

TEST_F(ZMPlayerTest, StatusesErrorsAndAccessLogsReachTheDelegateInOrder) {
    EXPECT_TRUE(player->allowsExternalPlayback());
    EXPECT_TRUE(platform().allowsExternalPlayback()) << "set before any source";
    auto item = open(false);
    ASSERT_TRUE(item);
    EXPECT_EQ(platform().rate(), 1.0f) << "autoplay";

    engine->reportTimeControlStatus(platform(), TimeControl::waitingToPlayAtSpecifiedRate);
    engine->reportTimeControlStatus(platform(), TimeControl::waitingToPlayAtSpecifiedRate);
    engine->reportStatus(*item, PlayerItem::Status::readyToPlay);
    EXPECT_EQ(recorder->take(),
              (std::vector<std::string>{"playback 1", "item ready", "log 0", "log 0"}));

    // The first entry's bitrate is reported once; the same bitrate again only repeats the log.
    engine->reportAccessLog(*item, {logEvent(1'500'000, NAN)});
    settle();
    engine->reportAccessLog(*item, {logEvent(1'500'000, NAN), logEvent(1'500'000, 2e6)});
    settle();
    EXPECT_EQ(recorder->take(), (std::vector<std::string>{"bitrate 1500", "log 1", "log 2"}));
    EXPECT_EQ(player->currentIndictatedVideoBitrate(), 1500.0);
    EXPECT_EQ(player->currentVideoBandwidth(), 2000.0);
    engine->reportAccessLog(*item, {logEvent(800'000, INFINITY)});
    settle();
    EXPECT_EQ(player->currentVideoBandwidth(), std::nullopt) << "infinite observed bitrate";
    EXPECT_EQ(recorder->take(), (std::vector<std::string>{"bitrate 800", "log 1"}));

    // A failing item reports its error first; the player's own failure likewise.
    engine->reportStatus(*item, PlayerItem::Status::failed,
                         makeMediaError(MediaError::networkFailure, "no network"));
    engine->reportStatus(platform(), Player::Status::failed,
                         makeMediaError(MediaError::missingElement, "no sink"));
    engine->reportStatus(platform(), Player::Status::unknown);
    EXPECT_EQ(recorder->take(),
              (std::vector<std::string>{"error no network", "item failed", "log 1", "log 1",
                                        "error no sink", "player failed", "player unknown"}));

    // The media-selection notification reports the current item's status once more.
    item->select(std::nullopt, MediaSelectionGroup(MediaCharacteristic::legible(), {}));
    settle();
    EXPECT_EQ(recorder->take(),
              (std::vector<std::string>{"error no network", "item failed", "log 1"}));
}

TEST_F(ZMPlayerTest, TimesFollowTheStreamTypeAndTicksDeliverDueAdEventsOnce) {
    auto item = open(true);
    engine->reportDuration(*item, MediaTime::make(30, 1));
    const Date date = Date::fromReferenceDate(1.0);
    engine->state(platform()).date = date;
    EXPECT_EQ(player->currentTime(), date.timeIntervalSince1970()) << "live: the programme date";
    engine->state(platform()).date.reset();
    EXPECT_EQ(player->currentTime(), scheduler->now().timeIntervalSince1970()) << "or now";

    // An ad event from 00:00:01 for 15 s, in URL-safe Base64 without padding, delivered twice.
    std::string value = Base64::encode(
        R"({"vast":{"event":{"id":"ad-1","event":"start","offset":1000,"duration":"15"}}})");
    for (char& c : value) {
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    }
    value.erase(value.find_last_not_of('=') + 1);
    DateRangeMetadataGroup group{"ad-1",
                                 std::nullopt,
                                 date,
                                 std::nullopt,
                                 {MetadataItem{"lsdr/X-AD-EVENT", "X-AD-EVENT", value}}};
    ASSERT_EQ(item->metadataCollectors().size(), 1u);
    engine->collect(*item->metadataCollectors()[0], {group});
    engine->collect(*item->metadataCollectors()[0], {group});
    settle();
    engine->state(platform()).date = date.addingTimeInterval(5);
    engine->state(platform()).time = MediaTime::make(2, 1);
    engine->reportTimeControlStatus(platform(), TimeControl::playing);
    settle();
    advance(500ms);
    advance(500ms);
    auto calls = recorder->take();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "event ad-1"), 1)
        << ::testing::PrintToString(calls);
    EXPECT_EQ(calls.at(1), "time 20/30") << "the observed time and the item's duration";

    // Without a source the queries are neutral, but the player stays usable.
    player->removeCurrentSource();
    settle();
    EXPECT_EQ(player->duration(), 0.0);
    EXPECT_EQ(player->currentPlayerTimeOffset(), 0.0);
    EXPECT_EQ(player->streamType(), std::nullopt);
    EXPECT_EQ(player->timeshiftAvailable(), std::nullopt);
    EXPECT_EQ(player->currentTime(), 0.0);

    // A source that makes no item leaves nothing current and still starts the player.
    platform().pause();
    player->open(std::make_shared<EmptySource>(), true);
    EXPECT_EQ(platform().currentItem(), nullptr);
    EXPECT_EQ(platform().rate(), 1.0f);
    EXPECT_EQ(player->streamType(), ZMStreamType::vod);
}

TEST_F(ZMPlayerTest, OptionListsDropClosedCaptionsFromTheGroupAndFromTheDelegate) {
    auto item = open(false);
    auto option = [](const char* name) {
        MediaSelectionOption::Rendition rendition;
        rendition.name = name;
        rendition.mediaType = MediaSelectionOption::MediaType::subtitle;
        return MediaSelectionOption(rendition);
    };
    engine->finishAsset(
        *item->asset(),
        {MediaSelectionGroup(MediaCharacteristic::legible(),
                             {option("English"), option("English CC"), option("Polski")})});
    settle();
    std::vector<std::string> titles;
    for (const auto& subtitle : player->subtitleOptions()) {
        titles.push_back(subtitle.title());
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"English", "Polski"}));
    EXPECT_TRUE(player->audioOptions().empty()) << "no audible group";

    recorder->mapping =
        std::vector<ZMMediaOption>{ZMMediaOption("CC1", ZMMediaOptionType::noSubtitles()),
                                   ZMMediaOption("Off", ZMMediaOptionType::noSubtitles())};
    auto mapped = player->subtitleOptions();
    ASSERT_EQ(mapped.size(), 1u);
    EXPECT_EQ(mapped[0].uid(), "no-subtitles");
    recorder->mapping = std::vector<ZMMediaOption>{};
    EXPECT_TRUE(player->subtitleOptions().empty()) << "an empty mapping is used as given";

    player->selectOptionGroup(option("Polski"), MediaCharacteristic::legible());
    EXPECT_EQ(player->currentSubtitleOption(), option("Polski"));
}

}  // namespace
}  // namespace zarvo

namespace zarvo {
namespace {

TEST_F(ZMPlayerTest, CapsAChosenQualityAndTheSpeedReachEachItemAndBadValuesAreIgnored) {
    player->setMaximumBitrate(500000);
    player->setMaximumResolution(640, 360);
    player->setPlaybackSpeed(1.5F);
    auto item = open(false);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->preferredPeakBitRate(), 500000);
    EXPECT_EQ(item->preferredMaximumResolution(), (std::pair{640, 360}));
    EXPECT_EQ(platform().rate(), 1.5F) << "opened to play at the speed set";
    EXPECT_TRUE(player->qualityLevels().empty()) << "not ready yet";

    player->pause();
    player->setPlaybackSpeed(2);
    EXPECT_EQ(platform().rate(), 0) << "a new speed does not start playback";
    player->play();
    EXPECT_EQ(platform().rate(), 2);

    player->selectQualityLevel(ZMPlayerQualityLevel{.uri = "http://127.0.0.1:1/v1.m3u8"});
    EXPECT_EQ(item->preferredVariantUri(), "http://127.0.0.1:1/v1.m3u8");
    player->selectQualityLevel(std::nullopt);
    EXPECT_EQ(item->preferredVariantUri(), std::nullopt);
    player->setMaximumBitrate(std::nan(""));
    player->setMaximumResolution(-1, 360);
    player->setPlaybackSpeed(-1);
    EXPECT_EQ(item->preferredPeakBitRate(), 0);
    EXPECT_EQ(item->preferredMaximumResolution(), (std::pair{0, 0}));
    EXPECT_EQ(player->playbackSpeed(), 2);
}

// Keeps the stalls a statistics delegate learns.
struct StallRecorder : ZMPlaybackStatisticsDelegate {
    std::vector<std::string> calls;
    void playerDidStartStall(ZMPlayer&) override { calls.push_back("started"); }
    void playerDidEndStall(ZMPlayer&, double duration) override {
        calls.push_back("ended " + std::to_string(duration));
    }
};

TEST_F(ZMPlayerTest, StallsOfTheCurrentItemReachTheStatisticsDelegateAndTheLogMakesTheRates) {
    auto stalls = std::make_shared<StallRecorder>();
    player->setStatisticsDelegate(stalls);
    auto item = open(false);
    engine->post(*item, PlayerItem::playbackStalledNotification);
    engine->post(*item, PlayerItem::playbackStallEndedNotification,
                 {{PlayerItem::stallDurationKey, 2.5}});
    // Another item's stall is not the player's.
    auto other = PlayerItem::make(UrlAsset::make(*Url::parse("http://127.0.0.1:1/o.m3u8")));
    engine->post(*other, PlayerItem::playbackStalledNotification);
    settle();
    EXPECT_EQ(stalls->calls, (std::vector<std::string>{"started", "ended 2.500000"}));

    auto played = [](double indicated, double watched, std::int64_t bytes) {
        PlayerItemAccessLogEvent event = logEvent(indicated, NAN);
        event.durationWatched = watched;
        event.numberOfBytesTransferred = bytes;
        return event;
    };
    engine->reportAccessLog(*item, {played(400000, 3, 1000), played(1000000, 1, 500),
                                    played(400000, 1, 200), played(600000, 0, 100)});
    const auto statistics = player->playbackStatistics();
    EXPECT_EQ(statistics.bytesDownloaded, 1800);
    EXPECT_DOUBLE_EQ(statistics.averageBitrate, (400000.0 * 4 + 1000000.0) / 5);
    EXPECT_EQ(statistics.currentBitrate, 600000.0);
    EXPECT_EQ(statistics.timeByBitrate,
              (std::map<std::int64_t, double>{{400000, 4.0}, {1000000, 1.0}}));
    EXPECT_EQ(statistics.stallCount, 0) << "the scripted engine counts nothing";

    // One rate watched in uneven pieces averages to exactly that rate.
    engine->reportAccessLog(*item,
                            {played(610428, 1.9, 1), played(610428, 0.2, 1), played(610428, 1.1, 1),
                             played(610428, 0.1, 1), played(610428, 0.3, 1)});
    EXPECT_EQ(player->playbackStatistics().averageBitrate, 610428.0);
}

TEST_F(ZMPlayerTest, ViewsShowTheSystemPlayerWithTheirGravityAndRunHeadlessWithoutADisplay) {
    unsetenv("DISPLAY");
    auto view = ZMPlayerView::make(Rect{0, 0, 640, 360});
    EXPECT_FALSE(view->nativeWindow());
    EXPECT_EQ(view->backgroundColor(), Color::black());
    EXPECT_EQ(view->videoGravity(), LayerVideoGravity::resizeAspect);
    ASSERT_TRUE(view->playerLayer());
    EXPECT_EQ(view->playerLayer()->videoGravity(), LayerVideoGravity::resizeAspect);

    auto second = ZMPlayerView::make(Rect{0, 0, 320, 180});
    view->setPlayer(player);
    second->setPlayer(player);
    EXPECT_EQ(view->playerLayer()->player(), player->systemPlayer());
    EXPECT_EQ(second->playerLayer()->player(), player->systemPlayer());
    view->setVideoGravity(LayerVideoGravity::resizeAspectFill);
    EXPECT_EQ(view->playerLayer()->videoGravity(), LayerVideoGravity::resizeAspectFill);
    EXPECT_TRUE(engine->state(platform()).outputs.empty()) << "no window to draw into";

    view->setPlayer(nullptr);
    EXPECT_FALSE(view->playerLayer()->player());
    EXPECT_EQ(second->player(), player) << "the other view keeps showing it";
}

}  // namespace
}  // namespace zarvo
