// The offline key loader against the sample origin: one fetch of a persistent key, kept in the
// download's key directory and served from there afterwards; its failures.
#include <filesystem>

#include <gtest/gtest.h>

#include "zarvo/fairplay/FPResourceLoaderDelegate.h"
#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/offline/FPDownloadError.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/RunLoop.h"

#include "origin/SampleOrigin.h"
#include "support/KeyRequestOutcome.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Outcome = AssetResourceLoadingRequest::Outcome;

std::shared_ptr<ZMOfflineDownload> makeDownload(std::optional<Url> licenseUrl,
                                                std::optional<Url> certUrl,
                                                std::map<std::string, std::string> headers) {
    return std::make_shared<ZMOfflineDownload>(
        "0A1B2C", "Protected", ZMOfflineDownloadState::downloading,
        *Url::parse("http://127.0.0.1:9/protected/master.m3u8"), std::nullopt,
        std::move(licenseUrl), std::vector<UrlQueryItem>{{"persistent", "true"}},
        std::move(certUrl), std::nullopt, std::nullopt, 0, std::move(headers), 0.0);
}

// Offers a key request for `url` and waits for its outcome; nothing when it was declined.
std::optional<Outcome> load(FPResourceLoaderDelegate& loader, const std::string& url) {
    auto asset = UrlAsset::make(*Url::parse("http://127.0.0.1:9/protected/master.m3u8"));
    return test::keyRequestOutcome(loader, *asset->resourceLoader(), url);
}

std::string failure(const Outcome& outcome) {
    return outcome.error ? outcome.error->description() : "no error";
}

class FPResourceLoaderDelegateTest : public ::testing::Test {
protected:
    void SetUp() override {
        origin::OriginOptions options;
        options.requiredLicenseHeaders = {{"X-Licence-Token", "secret"},
                                          {"Content-Type", "application/octet-stream"}};
        origin_ = std::make_unique<origin::SampleOrigin>(options);
        auto error = origin_->start();
        ASSERT_FALSE(error) << error->description();
    }

    std::shared_ptr<ZMOfflineDownload> download(
        std::map<std::string, std::string> headers = {{"X-Licence-Token", "secret"},
                                                      {"Content-Type", "text/plain"}},
        bool withCertificate = true) {
        return makeDownload(*Url::parse(origin_->url("/fps/license?token=a%20b")),
                            withCertificate ? Url::parse(origin_->url("/fps/cert")) : std::nullopt,
                            std::move(headers));
    }

    fs::path keyFile(const std::string& assetId) const {
        return home_.path() / "Documents" / ".keys" / "0A1B2C" / (assetId + "-Key");
    }

    test::TempHome home_;
    std::unique_ptr<origin::SampleOrigin> origin_;
};

TEST_F(FPResourceLoaderDelegateTest, FetchesAPersistentKeyOnceAndServesItFromDiskAfterwards) {
    auto offline = download();
    auto loader = FPResourceLoaderDelegate::make(offline);
    EXPECT_EQ(loader->download(), offline);
    EXPECT_FALSE(load(*loader, "https://127.0.0.1:1/key")) << "only skd URLs are taken";

    // The origin refuses licence requests without the download's token header or with another
    // content type than application/octet-stream.
    auto first = load(*loader, "skd://zm-sample-1");
    ASSERT_TRUE(first);
    ASSERT_FALSE(first->error) << failure(*first);
    EXPECT_EQ(first->contentType,
              AssetResourceLoadingContentInformationRequest::persistentContentKeyType);
    EXPECT_EQ(ContentKeyRequest::contentKeyFromPersistentKey(first->data),
              origin_->content().contentKey());
    EXPECT_EQ(origin_->requests(),
              (std::vector<std::string>{"GET /fps/cert",
                                        "POST /fps/license?token=a%20b&persistent=true"}));

    const fs::path file = keyFile("zm-sample-1");
    EXPECT_EQ(DataFile::read(file), first->data);
    EXPECT_EQ(fs::status(file).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // Another loader of the same download answers from the file alone.
    origin_->clearRequests();
    auto again = load(*FPResourceLoaderDelegate::make(offline), "skd://zm-sample-1");
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->error) << failure(*again);
    EXPECT_EQ(again->data, first->data);
    EXPECT_TRUE(origin_->requests().empty());
}

TEST_F(FPResourceLoaderDelegateTest, FailuresEndTheRequestWithTheirErrorAndWriteNoKey) {
    auto expectFailure = [&](const std::shared_ptr<ZMOfflineDownload>& offline,
                             const std::string& url) {
        auto outcome = load(*FPResourceLoaderDelegate::make(offline), url);
        EXPECT_TRUE(outcome && outcome->error);
        return outcome && outcome->error ? *outcome->error : Error("none", 0);
    };

    auto noCertificate = expectFailure(download({}, false), "skd://zm-sample-1");
    EXPECT_TRUE(isFPDownloadError(noCertificate, FPDownloadError::missingApplicationCertificate));
    EXPECT_EQ(noCertificate.localizedDescription(), "The application certificate is missing.");

    // A refusal's text body is no content key: the loading request's own error.
    auto refused = expectFailure(download({}), "skd://zm-sample-1");
    EXPECT_EQ(refused.domain(), ContentKeyRequest::errorDomain);
    EXPECT_EQ(refused.code(), static_cast<long>(ContentKeyRequest::ErrorCode::invalidKeyResponse));

    origin_->faults().add(origin::Fault{.pathPrefix = "/fps/license", .dropConnection = true});
    auto noAnswer = expectFailure(download(), "skd://zm-sample-1");
    EXPECT_TRUE(isFPDownloadError(noAnswer, FPDownloadError::noCKCReturnedByKSM))
        << noAnswer.description();
    EXPECT_FALSE(fs::exists(keyFile("zm-sample-1")));

    // A key file that cannot be read, and a host that is not a file name.
    fs::create_directories(keyFile("unreadable"));
    EXPECT_TRUE(isFPDownloadError(expectFailure(download(), "skd://unreadable"),
                                  FPDownloadError::keyNotFoundLocally));
    EXPECT_TRUE(isFPDownloadError(expectFailure(download(), "skd://a%2F..%2F..%2Fx"),
                                  FPDownloadError::unexpectedError));
}

TEST(FPResourceLoaderDelegateDeathTest, AKeyUrlWithoutHostOrALoaderWithoutDownloadIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(load(*FPResourceLoaderDelegate::make(makeDownload(std::nullopt, std::nullopt, {})),
                      "skd://"),
                 "Failed to get url or assetIDString for the request object of the resource.");
    EXPECT_DEATH(
        {
            auto orphan =
                FPResourceLoaderDelegate::make(makeDownload(std::nullopt, std::nullopt, {}));
            load(*orphan, "skd://zm-sample-1");
        },
        "Download not set.");
}

}  // namespace
}  // namespace zarvo
