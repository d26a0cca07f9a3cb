#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "zarvo/media/model/ContentKeyRequest.h"

#include "origin/SampleOrigin.h"
#include "support/TempHome.h"

namespace zarvo::origin {
namespace {

namespace fs = std::filesystem;

TEST(SampleContent, ParallelPreparationsMakeTheContentOnceAndShareIt) {
    test::TempHome cache;
    std::variant<SampleContent, Error> second = Error("", 0);
    std::thread other([&] { second = SampleContent::prepare(cache.path()); });
    const auto first = SampleContent::prepare(cache.path());
    other.join();
    ASSERT_TRUE(std::holds_alternative<SampleContent>(first));
    ASSERT_TRUE(std::holds_alternative<SampleContent>(second));
    const auto& content = std::get<SampleContent>(first);
    EXPECT_EQ(content.directory(), std::get<SampleContent>(second).directory());
    EXPECT_EQ(content.directory(), cache.path() / SampleContent::recipeHash());
    EXPECT_EQ(content.variants().size(), 3u);

    // Only the finished folder and its lock remain: no half-made folders.
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(cache.path())) {
        names.insert(entry.path().filename().string());
    }
    EXPECT_EQ(names, (std::set<std::string>{SampleContent::recipeHash(),
                                            SampleContent::recipeHash() + ".lock"}));

    // A later preparation reuses the folder as it is.
    const auto stamp = fs::last_write_time(content.directory() / "variants.txt");
    auto again = SampleContent::prepare(cache.path());
    ASSERT_TRUE(std::holds_alternative<SampleContent>(again));
    EXPECT_EQ(fs::last_write_time(content.directory() / "variants.txt"), stamp);
}

TEST(SampleContent, ADamagedCacheIsReportedNotServed) {
    test::TempHome cache;
    const fs::path folder = cache.path() / SampleContent::recipeHash();
    fs::create_directories(folder);
    std::ofstream(folder / "variants.txt") << "nonsense\n";
    auto prepared = SampleContent::prepare(cache.path());
    ASSERT_TRUE(std::holds_alternative<Error>(prepared));
    EXPECT_NE(std::get<Error>(prepared).localizedDescription().find("damaged"), std::string::npos);

    std::ofstream(folder / "variants.txt") << "v0 320 180 300000\n";
    // The origin refuses to start on a damaged cache or on a host outside loopback.
    OriginOptions damaged, exposed;
    damaged.cacheRoot = cache.path();
    exposed.host = "0.0.0.0";
    for (const auto& [options, reason] : {std::pair{damaged, "damaged"}, {exposed, "loopback"}}) {
        SampleOrigin origin(options);
        auto error = origin.start();
        ASSERT_TRUE(error) << reason;
        EXPECT_NE(error->localizedDescription().find(reason), std::string::npos);
        EXPECT_FALSE(origin.isRunning());
    }
}

TEST(SampleOriginLicence, RequiredHeadersAreEnforced) {
    OriginOptions options;
    options.requiredLicenseHeaders = {{"X-Token", "secret"}};
    SampleOrigin origin(options);
    ASSERT_FALSE(origin.start());
    httplib::Client client("127.0.0.1", origin.port());
    const Data certificate = client.Get("/fps/cert")->body;
    const Data body =
        std::get<ContentKeyRequest>(ContentKeyRequest::make(certificate, "zm-sample-1", true))
            .encode();

    auto missing = client.Post("/fps/license", body, "application/octet-stream");
    EXPECT_EQ(missing->status, 403);
    EXPECT_NE(missing->body.find("X-Token"), std::string::npos);
    auto wrong =
        client.Post("/fps/license", {{"X-Token", "guess"}}, body, "application/octet-stream");
    EXPECT_EQ(wrong->status, 403);
    auto right =
        client.Post("/fps/license", {{"X-Token", "secret"}}, body, "application/octet-stream");
    EXPECT_EQ(right->status, 200);
    EXPECT_EQ(right->body, origin.content().contentKey());
}

}  // namespace
}  // namespace zarvo::origin
