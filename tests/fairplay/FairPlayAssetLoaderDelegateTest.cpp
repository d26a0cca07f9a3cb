// The streaming key loader against the sample origin's certificate and licence endpoints:
// keys, the failures of each step, persistent keys kept in a file, a delegate that goes away.
#include <atomic>
#include <filesystem>

#include <gtest/gtest.h>

#include "zarvo/fairplay/FairPlayAssetLoaderDelegate.h"
#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/platform/UserDefaults.h"

#include "origin/SampleOrigin.h"
#include "support/KeyRequestOutcome.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Outcome = AssetResourceLoadingRequest::Outcome;

class FairPlayAssetLoaderDelegateTest : public ::testing::Test {
protected:
    void SetUp() override {
        origin::OriginOptions options;
        options.requiredLicenseHeaders = {{"X-Licence-Token", "secret"}};
        origin_ = std::make_unique<origin::SampleOrigin>(options);
        auto error = origin_->start();
        ASSERT_FALSE(error) << error->description();
    }

    std::shared_ptr<FairPlayAssetLoaderDelegate> delegate(
        std::map<std::string, std::string> headers = {{"X-Licence-Token", "secret"}},
        const std::string& certPath = "/fps/cert") {
        return FairPlayAssetLoaderDelegate::make(
            asset_, "movie-7", *Url::parse(origin_->url(certPath)),
            *Url::parse(origin_->url("/fps/license")), std::move(headers), home_.path() / "keys");
    }

    // Offers a key request for `url` and waits for its outcome; nothing when it was declined.
    std::optional<Outcome> load(FairPlayAssetLoaderDelegate& loader, const std::string& url) {
        return test::keyRequestOutcome(loader, *asset_->resourceLoader(), url);
    }

    static std::string failure(const Outcome& outcome) {
        return outcome.error ? outcome.error->localizedDescription() : "no error";
    }

    test::TempHome home_;
    std::unique_ptr<origin::SampleOrigin> origin_;
    std::shared_ptr<UrlAsset> asset_ =
        UrlAsset::make(*Url::parse("http://127.0.0.1:9/protected/master.m3u8"));
};

TEST_F(FairPlayAssetLoaderDelegateTest, KeysComeFromTheLicenceServerAndFailuresNameTheirStep) {
    auto loader = delegate();
    EXPECT_EQ(asset_->resourceLoader()->delegate(), loader);
    EXPECT_EQ(loader->assetUserDefaultsKey(), "movie-7-Key");
    EXPECT_FALSE(load(*loader, "https://127.0.0.1:1/key")) << "only skd URLs are taken";

    auto key = load(*loader, "skd://zm-sample-1");
    ASSERT_TRUE(key);
    EXPECT_FALSE(key->error) << failure(*key);
    EXPECT_TRUE(ContentKeyRequest::contentKey(key->data)) << "a 16-byte content key";

    auto noHost = load(*loader, "skd://");
    ASSERT_TRUE(noHost);
    ASSERT_TRUE(noHost->error);
    EXPECT_EQ(noHost->error->domain(), "ZMPlayerErrorDomain");
    EXPECT_EQ(noHost->error->code(), 10);
    EXPECT_EQ(failure(*noHost), "FairPlay initialization error with code 1");

    // The licence server refuses a request without its header; its answer is passed on.
    auto refused = load(*delegate({}), "skd://zm-sample-1");
    ASSERT_TRUE(refused);
    EXPECT_FALSE(refused->error) << failure(*refused);
    EXPECT_FALSE(refused->data.empty());
    EXPECT_FALSE(ContentKeyRequest::contentKey(refused->data));

    auto noCertificate = load(*FairPlayAssetLoaderDelegate::make(
                                  asset_, "movie-7", *Url::parse("http://127.0.0.1:1/fps/cert"),
                                  *Url::parse(origin_->url("/fps/license")), {}),
                              "skd://zm-sample-1");
    ASSERT_TRUE(noCertificate);
    EXPECT_EQ(failure(*noCertificate), "FairPlay initialization error with code 4");

    // The origin's certificate path answers 404 with a body: not a certificate, so no request.
    auto notACertificate = load(*delegate({}, "/fps/missing"), "skd://zm-sample-1");
    ASSERT_TRUE(notACertificate);
    EXPECT_EQ(failure(*notACertificate), "FairPlay initialization error with code 5");
}

TEST_F(FairPlayAssetLoaderDelegateTest, PersistentKeysAreKeptInAPrivateFileAndAnsweredFromIt) {
    asset_->resourceLoader()->setPreloadsEligibleContentKeys(true);
    auto loader = delegate();
    auto first = load(*loader, "skd://zm-sample-1");
    ASSERT_TRUE(first);
    ASSERT_FALSE(first->error) << failure(*first);
    EXPECT_EQ(first->contentType,
              AssetResourceLoadingContentInformationRequest::persistentContentKeyType);
    EXPECT_TRUE(ContentKeyRequest::contentKeyFromPersistentKey(first->data));

    auto fileName = UserDefaults::standard()->string("movie-7-Key");
    ASSERT_TRUE(fileName);
    EXPECT_TRUE(fileName->ends_with(".key"));
    const fs::path file = home_.path() / "keys" / *fileName;
    ASSERT_TRUE(fs::exists(file));
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // Later requests, by this delegate or a new one, never reach the network.
    origin_->clearRequests();
    for (const auto& next : {loader, delegate()}) {
        auto again = load(*next, "skd://zm-sample-1");
        ASSERT_TRUE(again);
        EXPECT_FALSE(again->error) << failure(*again);
        EXPECT_EQ(again->data, first->data);
    }
    EXPECT_EQ(origin_->requestCount("/fps/"), 0u);

    // A request without a content-information request cannot take a persistent key.
    UserDefaults::standard()->removeObject("movie-7-Key");
    auto bare =
        test::keyRequestOutcome(*loader, *asset_->resourceLoader(), "skd://zm-sample-1", false);
    ASSERT_TRUE(bare);
    EXPECT_EQ(failure(*bare), "FairPlay initialization error with code 3");
}

TEST_F(FairPlayAssetLoaderDelegateTest, ARequestOfADelegateThatWentStaysUnanswered) {
    origin::Fault slow;
    slow.pathPrefix = "/fps/cert";
    slow.delaySeconds = 0.3;
    origin_->faults().add(slow);
    auto loader = delegate();
    bool finished = false;
    auto request = std::make_shared<AssetResourceLoadingRequest>(
        UrlRequest(*Url::parse("skd://zm-sample-1")), true, true,
        [&finished](const Outcome&) { finished = true; });
    ASSERT_TRUE(
        loader->shouldWaitForLoadingOfRequestedResource(*asset_->resourceLoader(), request));
    ASSERT_TRUE(
        RunLoop::main().runUntil([&] { return origin_->requestCount("/fps/cert") == 1; }, 5s));
    loader.reset();
    // The certificate arrives after the delegate went: its completion has nothing to do.
    // A later fetch on the same session completes after the delegate's.
    std::atomic<bool> probed = false;
    UrlSession::shared()
        ->dataTask(*Url::parse(origin_->url("/fps/cert")),
                   [&probed](std::optional<Data>, std::optional<HttpUrlResponse>,
                             std::optional<Error>) { probed = true; })
        ->resume();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return probed.load(); }, 5s));
    EXPECT_FALSE(finished);
    EXPECT_EQ(origin_->requestCount("/fps/license"), 0u);
}

}  // namespace
}  // namespace zarvo
