// The engine's variant limits and playback counts against the sample origin: caps and a chosen
// variant decide which variant's segments are fetched (also when changed while playing), and a
// stall forced by a slow origin is counted with its length. Waits run the main loop.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"

#include "support/MainLoopWait.h"
#include "support/SampleOriginTest.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

using test::waitFor;

class PlaybackLimitsTest : public test::SampleOriginTest {
protected:
    void SetUp() override { origin_->clearRequests(); }
    void TearDown() override { origin_->faults().clear(); }

    void open(const std::string& path) {
        item_ = PlayerItem::make(UrlAsset::make(*Url::parse(origin_->url(path))));
    }
    void play() {
        player_->replaceCurrentItem(item_);
        player_->play();
    }
    // The variants ("v0", "v1", "v2") whose segments were requested, in order, from the
    // `from`th request on.
    std::vector<std::string> segmentVariants(std::size_t from = 0) const {
        std::vector<std::string> variants;
        const auto requests = origin_->requests();
        for (std::size_t i = from; i < requests.size(); ++i) {
            const auto& request = requests[i];
            const auto at = request.find("/vod/v");
            if (at != std::string::npos && request.find(".m3u8") == std::string::npos) {
                variants.push_back(request.substr(at + 5, 2));
            }
        }
        return variants;
    }
    std::size_t count(const std::string& variant, std::size_t from = 0) const {
        const auto variants = segmentVariants(from);
        return static_cast<std::size_t>(std::count(variants.begin(), variants.end(), variant));
    }
    std::string uriOf(const std::string& variant) const {
        return origin_->url("/vod/" + variant + "/index.m3u8");
    }

    std::shared_ptr<Player> player_ = Player::make();
    std::shared_ptr<PlayerItem> item_;
};

TEST_F(PlaybackLimitsTest, CapsKeepSwitchingWithinThemAlsoWhenSetWhilePlaying) {
    open("/vod/master.m3u8");
    item_->setPreferredMaximumResolution(480, 270);
    play();
    ASSERT_TRUE(waitFor([&] { return count("v1") >= 3; }))
        << testing::PrintToString(segmentVariants());
    EXPECT_EQ(count("v2"), 0u) << "640x360 is over the cap";
    ASSERT_EQ(item_->variants().size(), 3u);
    EXPECT_EQ(item_->variants()[2],
              (PlayerItemVariant{.uri = uriOf("v2"),
                                 .bandwidth = origin_->content().variants()[2].bandwidth,
                                 .width = 640,
                                 .height = 360,
                                 .codecs = "avc1.42c01e,mp4a.40.2"}));

    // A lower cap while playing: the segments fetched from the first of v0 on are all v0's.
    const std::size_t before = origin_->requests().size();
    item_->setPreferredPeakBitRate(static_cast<double>(origin_->content().variants()[0].bandwidth));
    ASSERT_TRUE(waitFor([&] { return count("v0", before) >= 2; }, 30s))
        << testing::PrintToString(segmentVariants(before));
    auto after = segmentVariants(before);
    after.erase(after.begin(), std::find(after.begin(), after.end(), "v0"));
    EXPECT_EQ(std::count(after.begin(), after.end(), "v0"), static_cast<long>(after.size()))
        << testing::PrintToString(after);
}

TEST_F(PlaybackLimitsTest, AChosenVariantStaysOverTheCapsUntilSwitchingIsAdaptiveAgain) {
    open("/vod/master.m3u8");
    // The loopback link is fast: left alone, the demuxer climbs to v2.
    item_->setPreferredPeakBitRate(1);
    item_->setPreferredVariantUri(uriOf("v1"));
    play();
    ASSERT_TRUE(waitFor([&] { return count("v1") >= 3; }))
        << testing::PrintToString(origin_->requests());
    EXPECT_EQ(count("v0") + count("v2"), 0u) << testing::PrintToString(segmentVariants());

    const std::size_t before = origin_->requests().size();
    item_->setPreferredPeakBitRate(0);
    item_->setPreferredVariantUri(std::nullopt);
    EXPECT_TRUE(waitFor([&] { return count("v2", before) >= 1; }, 30s))
        << testing::PrintToString(segmentVariants(before));
}

TEST_F(PlaybackLimitsTest, AStallIsCountedWithItsLengthAndTheFramesAndStartupAreKept) {
    open("/live/master.m3u8");
    std::vector<double> stallsEnded;
    auto token = NotificationCenter::defaultCenter().addObserver(
        PlayerItem::playbackStallEndedNotification, item_.get(), nullptr,
        [&](const Notification& n) {
            stallsEnded.push_back(
                std::any_cast<double>(n.userInfo.at(PlayerItem::stallDurationKey)));
        });
    play();
    ASSERT_TRUE(waitFor([&] {
        return player_->timeControlStatus() == Player::TimeControlStatus::playing &&
               item_->statistics().decodedVideoFrames > 24;
    }));
    const auto started = item_->statistics();
    ASSERT_TRUE(started.startupTime);
    EXPECT_GT(*started.startupTime, 0);
    EXPECT_LT(*started.startupTime, 20);
    EXPECT_EQ(started.numberOfStalls, 0);

    origin::Fault slow;
    slow.pathPrefix = "/live/";
    slow.delaySeconds = 5;
    origin_->faults().add(slow);
    ASSERT_TRUE(waitFor([&] { return item_->statistics().stalled; }, 30s));
    origin_->faults().clear();
    ASSERT_TRUE(waitFor([&] { return !stallsEnded.empty(); }, 30s));
    const auto after = item_->statistics();
    EXPECT_GE(after.numberOfStalls, 1);
    EXPECT_GT(stallsEnded.front(), 0);
    EXPECT_GE(after.stallDuration, stallsEnded.front());
    EXPECT_GT(after.decodedVideoFrames, started.decodedVideoFrames);
    EXPECT_GE(after.droppedVideoFrames, 0);

    // The item keeps its figures once it has left the player.
    player_->replaceCurrentItem(nullptr);
    EXPECT_EQ(item_->statistics().numberOfStalls, after.numberOfStalls);
    EXPECT_GE(item_->statistics().decodedVideoFrames, after.decodedVideoFrames);
}

}  // namespace
}  // namespace zarvo
