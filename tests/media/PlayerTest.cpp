// The Player's own rules (observations, seeks, periodic time observers, items moving between
// players), on a scripted engine and a manual clock.
#include <gtest/gtest.h>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"

#include "support/ScriptedMediaEngine.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using TimeControl = Player::TimeControlStatus;

class PlayerTest : public ::testing::Test {
protected:
    void advance(Scheduler::Duration by) {
        scheduler->advance(by);
        RunLoop::main().runUntilIdle();
    }
    std::shared_ptr<PlayerItem> makeItem() {
        return PlayerItem::make(UrlAsset::make(*Url::parse("http://127.0.0.1:1/a.m3u8")));
    }
    // The player plays `item` at rate 1 from `time`.
    void startPlaying(const std::shared_ptr<PlayerItem>& item, double time) {
        player->replaceCurrentItem(item);
        engine->state(*player).time = MediaTime::make(time, 1000);
        player->play();
        engine->reportTimeControlStatus(*player, TimeControl::playing);
        RunLoop::main().runUntilIdle();
    }

    std::shared_ptr<ManualScheduler> scheduler = ManualScheduler::create();
    ScopedStandardScheduler scopedScheduler{scheduler};
    std::shared_ptr<test::ScriptedMediaEngine> engine =
        std::make_shared<test::ScriptedMediaEngine>();
    ScopedMediaEngine scopedEngine{engine};
    std::shared_ptr<Player> player = Player::make();
};

TEST_F(PlayerTest, ObservationsSeeNewValuesUntilInvalidatedOrDestroyed) {
    std::vector<Player::Status> statuses;
    std::vector<TimeControl> controls;
    auto statusToken = player->observeStatus([&](Player::Status s) { statuses.push_back(s); });
    std::optional<Observation> controlToken =
        player->observeTimeControlStatus([&](TimeControl s) { controls.push_back(s); });
    EXPECT_TRUE(statuses.empty()) << "no initial value";

    const Error failure = makeMediaError(MediaError::missingElement, "gone");
    engine->reportStatus(*player, Player::Status::readyToPlay);
    engine->reportStatus(*player, Player::Status::failed, failure);
    engine->reportTimeControlStatus(*player, TimeControl::waitingToPlayAtSpecifiedRate,
                                    Player::WaitingReason::toMinimizeStalls);
    EXPECT_EQ(player->reasonForWaitingToPlay(), Player::WaitingReason::toMinimizeStalls);
    engine->reportTimeControlStatus(*player, TimeControl::playing);
    EXPECT_EQ(player->reasonForWaitingToPlay(), std::nullopt);
    EXPECT_EQ(statuses, (std::vector{Player::Status::readyToPlay, Player::Status::failed}));
    EXPECT_EQ(player->error(), failure);

    statusToken.invalidate();
    controlToken.reset();
    engine->reportStatus(*player, Player::Status::readyToPlay);
    engine->reportTimeControlStatus(*player, TimeControl::paused);
    EXPECT_EQ(statuses.size(), 2u);
    EXPECT_EQ(controls,
              (std::vector{TimeControl::waitingToPlayAtSpecifiedRate, TimeControl::playing}));

    // A token that outlives its player ends quietly.
    auto item = makeItem();
    auto itemToken = item->observeStatus([](PlayerItem::Status) {});
    auto lateToken = player->observeStatus([](Player::Status) {});
    player.reset();
    lateToken.invalidate();
}

TEST_F(PlayerTest, SeeksFinishOrAreInterruptedByALaterSeekOrANewItem) {
    std::vector<std::pair<int, bool>> completions;
    auto record = [&](int which) {
        return [&completions, which](bool finished) {
            completions.emplace_back(which, finished);
        };
    };
    player->seek(MediaTime::make(5, 600), record(0));  // no item: not finished
    player->replaceCurrentItem(makeItem());
    player->seek(MediaTime::make(10, 600), MediaTime::zero(), MediaTime::zero(), record(1));
    player->seek(MediaTime::make(20, 600), MediaTime::zero(), MediaTime::zero(), record(2));
    auto& seeks = engine->state(*player).seeks;
    ASSERT_EQ(seeks.size(), 2u);
    EXPECT_EQ(seeks[1].time, MediaTime::make(20, 600));
    EXPECT_EQ(seeks[1].toleranceBefore, MediaTime::zero());
    engine->finishSeek(*player, seeks[0].id);  // too late for the interrupted one
    engine->finishSeek(*player, seeks[1].id);
    player->seek(MediaTime::make(3, 600), record(3));
    EXPECT_TRUE(engine->state(*player).seeks.back().toleranceAfter.isPositiveInfinity());
    player->replaceCurrentItem(makeItem());
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(completions,
              (std::vector<std::pair<int, bool>>{{0, false}, {1, false}, {2, true}, {3, false}}));
}

TEST_F(PlayerTest, PeriodicObserverTicksOnIntervalBoundariesWhilePlayingAndWhenPlaybackStops) {
    std::vector<double> ticks;
    auto token =
        player->addPeriodicTimeObserver(MediaTime::make(0.5, 1000000000), nullptr,
                                        [&](MediaTime time) { ticks.push_back(time.seconds()); });
    auto& state = engine->state(*player);
    startPlaying(makeItem(), 0.2);
    ASSERT_EQ(ticks, (std::vector{0.2})) << "playback started";
    for (double time : {0.5, 1.0, 1.5}) {
        state.time = MediaTime::make(time, 1000);
        advance(500ms);
    }
    EXPECT_EQ(ticks, (std::vector{0.2, 0.5, 1.0, 1.5}));

    // A stall: the timer finds the time short of the boundary and waits for it.
    advance(500ms);
    EXPECT_EQ(ticks.size(), 4u);
    state.time = MediaTime::make(2.0, 1000);
    advance(500ms);
    EXPECT_EQ(ticks.back(), 2.0);

    player->pause();
    engine->reportTimeControlStatus(*player, TimeControl::paused);
    advance(5s);
    EXPECT_EQ(ticks.size(), 6u) << "one tick when playback stopped, none while paused";

    player->removeTimeObserver(token);
    player->play();
    engine->reportTimeControlStatus(*player, TimeControl::playing);
    advance(5s);
    EXPECT_EQ(ticks.size(), 6u);
    EXPECT_EQ(scheduler->pendingCount(), 0u);
}

TEST_F(PlayerTest, AnItemIsCurrentInOnePlayerAndKeepsItsTimeWhenItLeaves) {
    auto item = makeItem();
    startPlaying(item, 7.5);
    EXPECT_EQ(item->currentTime(), MediaTime::make(7.5, 1000));
    auto other = Player::make();
    other->replaceCurrentItem(item);
    EXPECT_EQ(player->currentItem(), nullptr);
    EXPECT_EQ(engine->state(*player).item, nullptr);
    EXPECT_EQ(engine->state(*other).item, item);
    engine->state(*other).time = MediaTime::make(9, 1);
    EXPECT_EQ(item->currentTime(), MediaTime::make(9, 1));
    other.reset();
    EXPECT_EQ(item->currentTime(), MediaTime::make(9, 1)) << "where it stood";
}

TEST_F(PlayerTest, SelectionTakesTheDefaultsOnceLoadedAndOnlyOptionsOfTheGroup) {
    auto item = makeItem();
    player->replaceCurrentItem(item);
    using Rendition = MediaSelectionOption::Rendition;
    auto option = [](const char* name, bool isDefault, MediaSelectionOption::MediaType type) {
        Rendition rendition;
        rendition.name = name;
        rendition.isDefault = isDefault;
        rendition.mediaType = type;
        return MediaSelectionOption(rendition);
    };
    using Type = MediaSelectionOption::MediaType;
    const MediaSelectionGroup audible(
        MediaCharacteristic::audible(),
        {option("Polski", false, Type::audio), option("English", true, Type::audio)});
    const MediaSelectionGroup legible(MediaCharacteristic::legible(),
                                      {option("Polski", false, Type::subtitle)});
    int notifications = 0;
    auto observer = NotificationCenter::defaultCenter().addObserver(
        PlayerItem::mediaSelectionDidChangeNotification, item.get(), nullptr,
        [&](const Notification&) { ++notifications; });
    engine->finishAsset(*item->asset(), {audible, legible});
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(item->currentMediaSelection().selectedMediaOption(audible)->displayName(), "English");
    EXPECT_EQ(item->currentMediaSelection().selectedMediaOption(legible), std::nullopt);

    item->select(audible.options()[0], audible);
    item->select(std::nullopt, audible);          // audio cannot be switched off
    item->select(audible.options()[1], legible);  // not an option of that group
    item->select(legible.options()[0], legible);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(item->currentMediaSelection().selectedMediaOption(audible)->displayName(), "Polski");
    EXPECT_EQ(item->currentMediaSelection().selectedMediaOption(legible)->displayName(), "Polski");
    EXPECT_EQ(notifications, 2);
    EXPECT_EQ(engine->state(*player).selectionChanges, 2);
}

}  // namespace
}  // namespace zarvo
