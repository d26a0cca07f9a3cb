// ZMPlayer on the GStreamer engine against the sample origin: what a host's delegate receives
// for a VOD (statuses, ticks, an audio switch, the end), a live stream's ad break and a DVR
// source's timeshift, the pace of each playback speed, and the stalls and statistics of a
// capped live stream. Playback runs in real time; waits run the main loop until a condition.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/ProcessInfo.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "origin/SampleOrigin.h"
#include "support/MainLoopWait.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

using test::waitFor;

using Recorder = test::RecordingPlayerDelegate;

class ZMPlayerPlaybackTest : public ::testing::Test {
protected:
    // The live schedule's break 1 begins this long after the origin starts.
    static constexpr double adBreakAfter = 2;

    void SetUp() override {
        origin::OriginOptions options;
        options.schedule.beginAdBreakAfter(adBreakAfter, Date::systemNow());
        origin_ = std::make_unique<origin::SampleOrigin>(options);
        auto error = origin_->start();
        ASSERT_FALSE(error) << error->description();
        player_->setDelegate(recorder_);
    }

    std::shared_ptr<ZMPlaybackSource> source(const std::string& path,
                                             const ZMPlaybackSourceOptions& options) const {
        return std::make_shared<ZMPlaybackSource>(*Url::parse(origin_->url(path)), options);
    }
    bool playing() const { return player_->playbackStatus() == ZMPlaybackStatus::playing; }
    std::optional<Date> date() const {
        return player_->systemPlayer()->currentItem()->currentDate();
    }

    test::TempHome home_;  // a new player restores tracking sessions from the home
    std::unique_ptr<origin::SampleOrigin> origin_;
    std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
    std::shared_ptr<ZMPlayer> player_ = ZMPlayer::make();
};

TEST_F(ZMPlayerPlaybackTest, VodReportsItsStatusesTicksAnAudioSwitchAndItsEnd) {
    player_->open(source("/vod/master.m3u8", ZMPlaybackSourceOptions(false)), true);
    ASSERT_TRUE(waitFor([&] { return playing() && player_->currentTime() > 0.6; }));
    EXPECT_EQ(recorder_->playerStatuses, std::vector{ZMPlayerStatus::readyToPlay});
    ASSERT_FALSE(recorder_->itemStatuses.empty());
    EXPECT_EQ(recorder_->itemStatuses.front(), ZMPlayerStatus::readyToPlay);
    EXPECT_EQ(recorder_->playback,
              (std::vector{ZMPlaybackStatus::waiting, ZMPlaybackStatus::playing}));
    EXPECT_EQ(player_->streamType(), ZMStreamType::vod);
    EXPECT_NEAR(player_->duration(), 30.0, 0.1);
    ASSERT_FALSE(recorder_->bitrates.empty());
    bool announced = false;
    for (const auto& variant : origin_->content().variants()) {
        announced |= recorder_->bitrates.front() == variant.bandwidth / 1000.0;
    }
    EXPECT_TRUE(announced) << recorder_->bitrates.front() << " kbit/s is no variant's";

    // The audio options are the master's renditions; choosing English fetches its rendition.
    const auto audio = player_->audioOptions();
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(audio[0].title(), "Polski");
    EXPECT_EQ(audio[1].title(), "English");
    EXPECT_EQ(player_->currentAudioOption(), audio[0].audioSelectionOption());
    origin_->clearRequests();
    const std::size_t itemReports = recorder_->itemStatuses.size();
    player_->selectOptionGroup(audio[1].audioSelectionOption(), MediaCharacteristic::audible());
    EXPECT_EQ(player_->currentAudioOption(), audio[1].audioSelectionOption());
    EXPECT_TRUE(waitFor([&] { return origin_->requestCount("/vod/a_eng/seg") > 0; }));
    // The item posts the change on the main queue; the player reports it as an item status.
    EXPECT_TRUE(waitFor([&] { return recorder_->itemStatuses.size() > itemReports; }));
    EXPECT_EQ(recorder_->itemStatuses.back(), ZMPlayerStatus::readyToPlay);

    // An exact seek near the end, then playing to it.
    bool ended = false;
    auto end = NotificationCenter::defaultCenter().addObserver(
        PlayerItem::didPlayToEndTimeNotification, player_->systemPlayer()->currentItem().get(),
        nullptr, [&](const Notification&) { ended = true; });
    bool seeked = false;
    player_->seek(27.0, 600, MediaTime::zero(), MediaTime::zero(),
                  [&](bool finished) { seeked = finished; });
    ASSERT_TRUE(waitFor([&] { return seeked; }));
    EXPECT_NEAR(player_->currentTime(), 27.0, 1.0 / 24);
    const std::size_t ticksBefore = recorder_->ticks.size();
    ASSERT_TRUE(waitFor([&] { return ended; }));
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(recorder_->playback.back(), ZMPlaybackStatus::paused);
    EXPECT_TRUE(player_->isPaused());
    EXPECT_NEAR(player_->currentTime(), 30.0, 0.2);

    // A tick on every half second of media time played, each with the item's duration.
    std::vector<Recorder::Tick> ticks(recorder_->ticks.begin() + ticksBefore,
                                      recorder_->ticks.end());
    for (double boundary = 27.5; boundary < 30.0; boundary += 0.5) {
        EXPECT_TRUE(std::any_of(ticks.begin(), ticks.end(), [&](const Recorder::Tick& tick) {
            return std::fabs(tick.time - boundary) < 0.04;
        })) << boundary;
    }
    for (std::size_t i = 1; i < ticks.size(); ++i) {
        EXPECT_GE(ticks[i].time, ticks[i - 1].time - 1e-6) << i;
        EXPECT_NEAR(ticks[i].duration, 30.0, 0.1);
    }
    EXPECT_TRUE(recorder_->errors.empty()) << recorder_->errors.front().description();
}

// Media seconds played per second of the process's clock: the fastest pace over `span` media
// seconds within the next 0.4 + 2 * `span`. The first moments after a change of speed, seek or
// pause flush the pipeline, and a change of speed may first wait for downloads under way, at
// the old speed; a loaded machine may stall a while after a flush. When the speed goes up,
// neither reaches the new speed, so the fastest stretch is the one the speed plays at.
double pace(ZMPlayer& player, double span) {
    struct Sample {
        double time;
        double uptime;
    };
    std::vector<Sample> samples;
    const double end = player.currentTime() + 0.4 + 2 * span;
    if (!waitFor([&] {
            // Only times that go on from the last one: a flush may show an earlier time.
            const Sample now{player.currentTime(), ProcessInfo::systemUptime()};
            if (samples.empty() || now.time >= samples.back().time) {
                samples.push_back(now);
            }
            return now.time >= end;
        })) {
        return 0;
    }
    double fastest = 0;
    for (auto from = samples.begin(); from != samples.end(); ++from) {
        const auto to = std::find_if(from, samples.end(),
                                     [&](const Sample& s) { return s.time >= from->time + span; });
        if (to != samples.end()) {
            fastest = std::max(fastest, (to->time - from->time) / (to->uptime - from->uptime));
        }
    }
    return fastest;
}

TEST_F(ZMPlayerPlaybackTest, EverySpeedOptionPlaysAtItsPaceThroughPauseSeekAndAudioSwitch) {
    auto vod = source("/vod/master.m3u8", ZMPlaybackSourceOptions(false));
    ASSERT_TRUE(std::is_sorted(vod->speedOptions().begin(), vod->speedOptions().end()));
    player_->setPlaybackSpeed(vod->speedOptions().front());  // from the slowest up
    player_->open(vod, true);
    ASSERT_TRUE(waitFor([&] { return playing() && player_->currentTime() > 0.2; }));
    for (const float speed : vod->speedOptions()) {
        player_->setPlaybackSpeed(speed);
        EXPECT_NEAR(pace(*player_, speed), speed, 0.25 * speed) << speed;
    }
    EXPECT_FLOAT_EQ(player_->playbackSpeed(), 2.0F);

    player_->pause();
    ASSERT_TRUE(waitFor([&] { return !playing(); }));
    player_->play();
    EXPECT_NEAR(pace(*player_, 2), 2.0, 0.5) << "after pause";

    bool seeked = false;
    player_->seek(4.0, 600, MediaTime::zero(), MediaTime::zero(),
                  [&](bool finished) { seeked = finished; });
    ASSERT_TRUE(waitFor([&] { return seeked; }));
    EXPECT_NEAR(pace(*player_, 2), 2.0, 0.5) << "after a seek";

    const auto audio = player_->audioOptions();
    ASSERT_EQ(audio.size(), 2u);
    player_->selectOptionGroup(audio[1].audioSelectionOption(), MediaCharacteristic::audible());
    EXPECT_NEAR(pace(*player_, 2), 2.0, 0.5) << "after an audio switch";

    // Values no player can play are ignored.
    player_->setPlaybackSpeed(0);
    player_->setPlaybackSpeed(std::nanf(""));
    player_->setPlaybackSpeed(16);
    EXPECT_FLOAT_EQ(player_->playbackSpeed(), 2.0F);
}

// Keeps the stalls a statistics delegate learns.
struct StallRecorder : ZMPlaybackStatisticsDelegate {
    int started = 0;
    std::vector<double> ended;
    void playerDidStartStall(ZMPlayer&) override { ++started; }
    void playerDidEndStall(ZMPlayer&, double duration) override { ended.push_back(duration); }
};

TEST_F(ZMPlayerPlaybackTest, ACappedLiveStreamReportsItsLevelsStallsAndStatistics) {
    auto stalls = std::make_shared<StallRecorder>();
    player_->setStatisticsDelegate(stalls);
    const auto& variants = origin_->content().variants();
    player_->setMaximumBitrate(static_cast<double>(variants[1].bandwidth));
    EXPECT_EQ(player_->playbackStatistics(), ZMPlaybackStatistics{});
    player_->open(source("/live/master.m3u8", ZMPlaybackSourceOptions(true)), true);
    ASSERT_TRUE(waitFor([&] { return playing(); }));

    const auto levels = player_->qualityLevels();
    ASSERT_EQ(levels.size(), variants.size());
    for (std::size_t i = 0; i < levels.size(); ++i) {
        EXPECT_EQ(levels[i].bandwidth, variants[i].bandwidth);
        EXPECT_EQ(levels[i].width, variants[i].width);
        EXPECT_EQ(levels[i].height, variants[i].height);
    }

    origin::Fault slow;
    slow.pathPrefix = "/live/";
    slow.delaySeconds = 5;
    origin_->faults().add(slow);
    ASSERT_TRUE(waitFor([&] { return stalls->started > 0; }, 30s));
    origin_->faults().clear();
    ASSERT_TRUE(waitFor([&] { return !stalls->ended.empty(); }, 30s));
    EXPECT_GT(stalls->ended.front(), 0);

    const auto statistics = player_->playbackStatistics();
    ASSERT_TRUE(statistics.startupTime);
    EXPECT_GT(*statistics.startupTime, 0);
    EXPECT_GE(statistics.stallCount, 1);
    EXPECT_GE(statistics.stallDuration, stalls->ended.front());
    EXPECT_GT(statistics.decodedFrames, 0);
    EXPECT_GT(statistics.bytesDownloaded, 0);
    // Nothing over the cap has played.
    ASSERT_TRUE(statistics.currentBitrate);
    EXPECT_LE(*statistics.currentBitrate, static_cast<double>(variants[1].bandwidth));
    EXPECT_GT(statistics.averageBitrate, 0);
    EXPECT_LE(statistics.averageBitrate, static_cast<double>(variants[1].bandwidth));
    for (const auto& [bitrate, seconds] : statistics.timeByBitrate) {
        EXPECT_LE(bitrate, variants[1].bandwidth);
        EXPECT_GT(seconds, 0);
    }
}

TEST_F(ZMPlayerPlaybackTest, LiveReportsItsAdBreakOnceAndDvrAsksForItsWindow) {
    player_->open(source("/live/master.m3u8", ZMPlaybackSourceOptions(true)), true);
    ASSERT_TRUE(waitFor([&] { return playing(); }));
    EXPECT_EQ(player_->streamType(), ZMStreamType::live);
    EXPECT_EQ(player_->timeshiftAvailable(), false);
    ASSERT_TRUE(date());
    EXPECT_NEAR(player_->currentTime(), date()->timeIntervalSince1970(), 0.5);

    // The break the origin puts shortly after its start: reported at the first tick within it,
    // and only once while it lasts.
    const auto& schedule = origin_->livePlaylist().schedule();
    const Date breakStart = schedule.epoch.addingTimeInterval(schedule.adInterval);
    ASSERT_TRUE(waitFor([&] { return !recorder_->events.empty(); }, 30s));
    const auto& first = recorder_->events.front();
    EXPECT_EQ(first.event.identifier, "zm-cue-1");
    EXPECT_EQ(first.event.offset,
              std::llround(breakStart.timeIntervalSinceReferenceDate() * 1000.0));
    ASSERT_TRUE(first.date);
    EXPECT_GE(first.date->timeIntervalSince(breakStart), 0.0);
    EXPECT_LE(first.date->timeIntervalSince(breakStart), 1.0);
    ASSERT_TRUE(waitFor([&] { return date() && date()->timeIntervalSince(breakStart) > 3.0; }));
    EXPECT_EQ(recorder_->events.size(), 1u);

    // Half a minute back (the origin's history starts shortly before it did): the seconds go
    // into the playback address and from there into every playlist the engine asks for, and
    // playback starts that far behind.
    origin_->clearRequests();
    const Date opened = origin_->now();
    player_->open(source("/dvr/master.m3u8",
                         ZMPlaybackSourceOptions(ZMPlaybackTimeshift(std::int64_t{30}), true)),
                  true);
    EXPECT_EQ(player_->streamType(), ZMStreamType::dvrWindowLive);
    EXPECT_EQ(player_->timeshiftAvailable(), true);
    ASSERT_TRUE(waitFor([&] { return playing() && date(); }));
    EXPECT_GE(origin_->requestCount("/dvr/master.m3u8?dvr=30000"), 1u);
    std::size_t playlists = 0;
    for (const auto& request : origin_->requests()) {
        if (request.find("/index.m3u8") != std::string::npos) {
            ++playlists;
            EXPECT_NE(request.find("/index.m3u8?dvr=30000"), std::string::npos) << request;
        }
    }
    EXPECT_GE(playlists, 2u) << "a video and an audio playlist";
    // From the start of the (two-second) segment that holds that moment. The origin counts the
    // half minute from when it is asked for the playlist: after the time to start is taken
    // off, no more than that segment is left over.
    const Date now = origin_->now();
    const double behind = now.timeIntervalSince(*date());
    EXPECT_GE(behind, 29.9);
    EXPECT_LE(behind - now.timeIntervalSince(opened), 32.5);
    EXPECT_TRUE(recorder_->errors.empty()) << recorder_->errors.front().description();
}

}  // namespace
}  // namespace zarvo
