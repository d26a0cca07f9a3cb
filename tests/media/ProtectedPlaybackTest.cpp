// Protected content through ZMPlayer on the real engine: the key comes from the origin's
// licence server through the FairPlay key loader; a refused or impossible key exchange fails
// the item, reported to the delegate before the failed status.
#include <gtest/gtest.h>

#include "zarvo/media/PlayerItem.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "origin/SampleOrigin.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

class Recorder : public ZMPlayerDelegate {
public:
    std::vector<std::string> calls;
    std::optional<Error> error;

    void playerCurrentTime(ZMPlayer&, double, double) override {}
    void playerDidChangePlayerStatus(ZMPlayer&, ZMPlayerStatus) override {}
    void playerPlayedItemDidChange(ZMPlayer&, ZMPlayerStatus status) override {
        calls.push_back(status == ZMPlayerStatus::failed ? "item failed" : "item changed");
    }
    void playerDidChangePlaybackStatus(ZMPlayer&, ZMPlaybackStatus) override {}
    void playerDidChangeIndicatedBitrate(ZMPlayer&, double) override {}
    void playerDidOccurError(ZMPlayer&, const Error& occurred) override {
        calls.push_back("error");
        error = occurred;
    }
    void playerDidOccurEvents(ZMPlayer&, const std::vector<ZMPlayerMetadataEvent>&) override {}
    std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer&, const std::vector<MediaSelectionOption>&, const MediaCharacteristic&) override {
        return std::nullopt;
    }
    std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(ZMPlayer&,
                                       const std::vector<PlayerItemAccessLogEvent>&) override {}
    bool failed() const {
        return std::find(calls.begin(), calls.end(), "item failed") != calls.end();
    }
};

class ProtectedPlaybackTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        origin::OriginOptions options;
        options.requiredLicenseHeaders = {{"X-Licence-Token", "secret"}};
        origin_ = std::make_unique<origin::SampleOrigin>(options);
        auto error = origin_->start();
        ASSERT_FALSE(error) << error->description();
    }
    static void TearDownTestSuite() { origin_.reset(); }

    void open(const std::string& certUrl, std::map<std::string, std::string> headers) {
        ZMPlaybackSourceOptions options(false);
        options.setDrm(ZMFairPlayUrls(
            *Url::parse(certUrl), *Url::parse(origin_->url("/fps/license")), std::move(headers)));
        player_->setDelegate(recorder_);
        player_->open(std::make_shared<ZMPlaybackSource>(
                          *Url::parse(origin_->url("/protected/master.m3u8")), options),
                      true);
    }

    // The error the delegate got, or one of its inner errors, in the player's domain.
    std::optional<Error> playerError() const {
        for (const Error* error = recorder_->error ? &*recorder_->error : nullptr; error;
             error = error->innerError()) {
            if (error->domain() == "ZMPlayerErrorDomain") {
                return *error;
            }
        }
        return std::nullopt;
    }

    inline static std::unique_ptr<origin::SampleOrigin> origin_;
    test::TempHome home_;
    std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
    std::shared_ptr<ZMPlayer> player_ = ZMPlayer::make();
};

TEST_F(ProtectedPlaybackTest, PlaysToItsEndWithTheKeyFromTheLicenceServer) {
    open(origin_->url("/fps/cert"), {{"X-Licence-Token", "secret"}});
    auto item = player_->systemPlayer()->currentItem();
    ASSERT_TRUE(item);
    bool ended = false;
    auto end = NotificationCenter::defaultCenter().addObserver(
        PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
        [&ended](const Notification&) { ended = true; });
    ASSERT_TRUE(RunLoop::main().runUntil(
        [&] { return item->status() != PlayerItem::Status::unknown; }, 20s));
    ASSERT_EQ(item->status(), PlayerItem::Status::readyToPlay) << recorder_->calls.size();
    player_->seek(27, 600, MediaTime::zero(), MediaTime::zero());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return ended || recorder_->failed(); }, 20s));
    EXPECT_TRUE(ended);
    EXPECT_FALSE(recorder_->error) << recorder_->error->description();
    EXPECT_EQ(origin_->requestCount("/fps/license"), 1u);
}

TEST_F(ProtectedPlaybackTest, ARefusedOrImpossibleKeyExchangeFailsTheItemAfterTheError) {
    // Without the licence header the server answers 403; its body is no key.
    open(origin_->url("/fps/cert"), {});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return recorder_->failed(); }, 20s));
    EXPECT_EQ(recorder_->calls.back(), "item failed");
    EXPECT_EQ(std::count(recorder_->calls.begin(), recorder_->calls.end(), "error"), 1);
    EXPECT_LT(std::find(recorder_->calls.begin(), recorder_->calls.end(), "error"),
              std::find(recorder_->calls.begin(), recorder_->calls.end(), "item failed"));

    // A certificate that cannot be fetched ends the exchange at its fourth step.
    recorder_->calls.clear();
    recorder_->error.reset();
    open("http://127.0.0.1:1/fps/cert", {});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return recorder_->failed(); }, 20s));
    auto error = playerError();
    ASSERT_TRUE(error) << (recorder_->error ? recorder_->error->description() : "no error");
    EXPECT_EQ(error->code(), 10);
    EXPECT_EQ(error->localizedDescription(), "FairPlay initialization error with code 4");
}

}  // namespace
}  // namespace zarvo
