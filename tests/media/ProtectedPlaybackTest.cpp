// Protected content through ZMPlayer on the real engine: the key comes from the origin's
// licence server through the FairPlay key loader; a refused or impossible key exchange fails
// the item, reported to the delegate before the failed status.
#include <gtest/gtest.h>

#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "origin/SampleOrigin.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

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
        for (const Error* error = recorder_->errors.empty() ? nullptr : &recorder_->errors.back();
             error; error = error->innerError()) {
            if (error->domain() == "ZMPlayerErrorDomain") {
                return *error;
            }
        }
        return std::nullopt;
    }

    inline static std::unique_ptr<origin::SampleOrigin> origin_;
    test::TempHome home_;
    std::shared_ptr<test::RecordingPlayerDelegate> recorder_ =
        std::make_shared<test::RecordingPlayerDelegate>();
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
    ASSERT_EQ(item->status(), PlayerItem::Status::readyToPlay);
    player_->seek(27, 600, MediaTime::zero(), MediaTime::zero());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return ended || recorder_->itemFailed(); }, 20s));
    EXPECT_TRUE(ended);
    EXPECT_TRUE(recorder_->errors.empty()) << recorder_->errors.front().description();
    EXPECT_EQ(origin_->requestCount("/fps/license"), 1u);
}

TEST_F(ProtectedPlaybackTest, ARefusedOrImpossibleKeyExchangeFailsTheItemAfterTheError) {
    // Without the licence header the server answers 403; its body is no key.
    open(origin_->url("/fps/cert"), {});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return recorder_->itemFailed(); }, 20s));
    EXPECT_EQ(recorder_->itemStatuses.back(), ZMPlayerStatus::failed);
    EXPECT_EQ(recorder_->errors.size(), 1u);
    const auto& order = recorder_->errorsAndItems;
    EXPECT_LT(std::find(order.begin(), order.end(), "error") - order.begin(),
              static_cast<std::ptrdiff_t>(order.size()) - 1)
        << "the error comes before the failed item";

    // A certificate that cannot be fetched ends the exchange at its fourth step.
    recorder_ = std::make_shared<test::RecordingPlayerDelegate>();
    open("http://127.0.0.1:1/fps/cert", {});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return recorder_->itemFailed(); }, 20s));
    auto error = playerError();
    ASSERT_TRUE(error) << recorder_->errors.size() << " errors";
    EXPECT_EQ(error->code(), 10);
    EXPECT_EQ(error->localizedDescription(), "FairPlay initialization error with code 4");
}

}  // namespace
}  // namespace zarvo
