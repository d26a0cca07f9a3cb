#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/platform/Json.h"

#include "support/TestHttpServer.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class DownloadsCommandTest : public test::ZmplayTest<> {
protected:
    std::shared_ptr<ZMOfflineDownload> create(FPDownloadsStore& store, const std::string& title) {
        return store.createWaitingDownload(
            title, *Url::parse("https://cdn.example/" + title + "/master.m3u8"), std::nullopt,
            *Url::parse("https://keys.example/license"), std::nullopt, std::nullopt, std::nullopt,
            {});
    }
};

TEST_F(DownloadsCommandTest, AnEmptyOrUnreadableListShowsNoDownloads) {
    auto listed = run({"downloads"});
    EXPECT_EQ(listed.exit(), (test::Exit{0, "No downloads.\n"}));
    EXPECT_EQ(listed.err, "");
    EXPECT_EQ(run({"downloads", "--json"}).lastLine(), "[]");

    UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey, "[{\"id\":1}]");
    auto unreadable = run({"downloads"});
    EXPECT_EQ(unreadable.exit(), (test::Exit{0, "No downloads.\n"}));
    EXPECT_THAT(unreadable.err, HasSubstr("cannot be read"));
    EXPECT_EQ(UserDefaults::standard()->string(FPDownloadsStore::DownloadsJsonKey), "[{\"id\":1}]");
}

TEST_F(DownloadsCommandTest, ListsAndDeletesDownloads) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto first = create(store, "first");
    auto second = create(store, "second");
    second->setState(ZMOfflineDownloadState::downloading);
    second->setProgress(0.425);
    fs::path package = home.path() / "Library" / "media" / "second.movpkg";
    fs::create_directories(package);
    second->setOfflineUrl(package.string());
    store.update(second);

    auto listed = run({"downloads"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_THAT(listed.out, HasSubstr(first->id() + "\tfirst\twaiting\t0.0%\t"
                                                    "https://cdn.example/first/master.m3u8\t-\n"));
    EXPECT_THAT(listed.out, HasSubstr(second->id() + "\tsecond\tdownloading\t42.5%\t"
                                                     "https://cdn.example/second/master.m3u8\t"
                                                     "Library/media/second.movpkg\n"));
    auto json = run({"downloads", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json::parse(json.lastLine()), Json::array({OfflineDownloadJson::toJson(*first),
                                                         OfflineDownloadJson::toJson(*second)}));

    auto deleted = run({"downloads", "delete", second->id()});
    EXPECT_EQ(deleted.status, 0);
    EXPECT_THAT(deleted.out, HasSubstr("Download(ID = " + second->id() + ", TITLE = second)"));
    EXPECT_FALSE(fs::exists(package));
    auto remaining = FPDownloadsStore().getAllDownloads();
    ASSERT_EQ(remaining.size(), 1u);
    EXPECT_EQ(remaining[0]->id(), first->id());

    auto unknown = run({"downloads", "delete", "NOPE"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_THAT(unknown.err, HasSubstr("no download with id NOPE"));
    EXPECT_EQ(FPDownloadsStore().getAllDownloads().size(), 1u);
}

TEST_F(DownloadsCommandTest, WaitingFailsWhenADownloadItRanFailed) {
    test::TestHttpServer origin;  // every address answers 404
    FPDownloadsStore store;
    store.getAllDownloads();
    auto gone = store.createWaitingDownload("gone", *Url::parse(origin.url("/gone/master.m3u8")),
                                            std::nullopt, std::nullopt, std::nullopt, std::nullopt,
                                            std::nullopt, {});
    auto waited = run({"downloads", "--wait"});
    EXPECT_EQ(waited.status, 1);
    EXPECT_THAT(waited.out, HasSubstr("Failed " + gone->id()));
    EXPECT_EQ(FPDownloadsStore().findFirstWithId(gone->id())->state(),
              ZMOfflineDownloadState::failed);
    EXPECT_EQ(run({"downloads", "--wait"}).status, 0) << "nothing left to run";
}

TEST_F(DownloadsCommandTest, MalformedCommandsPrintTheUsage) {
    for (std::vector<std::string> arguments : {std::vector<std::string>{"downloads", "--yaml"},
                                               {"downloads", "delete"},
                                               {"downloads", "delete", "A", "B"}}) {
        auto result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("usage: zmplay downloads"));
    }
}

}  // namespace
}  // namespace zarvo
