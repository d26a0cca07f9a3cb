#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/platform/AppDirectories.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

Url url(std::string_view text) {
    return *Url::parse(text);
}

// User defaults over a real database whose writes can be made to fail, like a full disk.
class FailingUserDefaults : public UserDefaults {
  public:
    explicit FailingUserDefaults(std::shared_ptr<UserDefaults> real) : real_(std::move(real)) {}

    bool failWrites = false;

    std::optional<std::string> string(const std::string& key) const override {
        return real_->string(key);
    }
    std::optional<Data> data(const std::string& key) const override { return real_->data(key); }
    long long integer(const std::string& key) const override { return real_->integer(key); }
    bool boolean(const std::string& key) const override { return real_->boolean(key); }
    bool hasValue(const std::string& key) const override { return real_->hasValue(key); }
    std::vector<std::string> keys() const override { return real_->keys(); }
    bool setString(const std::string& key, const std::string& value) override {
        return !failWrites && real_->setString(key, value);
    }
    bool setData(const std::string& key, const Data& value) override {
        return !failWrites && real_->setData(key, value);
    }
    bool setInteger(const std::string& key, long long value) override {
        return !failWrites && real_->setInteger(key, value);
    }
    bool setBoolean(const std::string& key, bool value) override {
        return !failWrites && real_->setBoolean(key, value);
    }
    bool removeObject(const std::string& key) override {
        return !failWrites && real_->removeObject(key);
    }
    bool synchronize() override { return real_->synchronize(); }

  private:
    std::shared_ptr<UserDefaults> real_;
};

class FPDownloadsStoreTest : public ::testing::Test {
  protected:
    std::shared_ptr<ZMOfflineDownload> create(FPDownloadsStore& store, const std::string& title) {
        return store.createWaitingDownload(title, url("https://cdn.example/" + title + ".m3u8"),
                                           url("https://keys.example/cert"),
                                           url("https://keys.example/license"), std::nullopt,
                                           std::nullopt, std::nullopt, {{"X-Token", "t"}});
    }
    std::optional<std::string> stored(const char* key = FPDownloadsStore::DownloadsJsonKey) {
        return UserDefaults::standard()->string(key);
    }
    std::vector<std::string> titles(FPDownloadsStore& store) {
        std::vector<std::string> result;
        for (const auto& download : store.getAllDownloads()) {
            result.push_back(download->title());
        }
        return result;
    }

    test::TempHome home;
};

TEST_F(FPDownloadsStoreTest, FreshInstallationListsNothing) {
    FPDownloadsStore store;
    EXPECT_TRUE(store.getAllDownloads().empty());
    EXPECT_EQ(store.findFirstWithId("A"), nullptr);
    EXPECT_EQ(store.findFirstWithState(ZMOfflineDownloadState::waiting), nullptr);
    EXPECT_FALSE(stored());
}

TEST_F(FPDownloadsStoreTest, CreatedDownloadsArePersistedInOrder) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto first = create(store, "first");
    auto second = store.createWaitingDownload(
        "second", url("https://cdn.example/2.m3u8"), std::nullopt, std::nullopt,
        std::vector<std::string>{"en"}, std::nullopt, 500000, {});
    EXPECT_THAT(first->id(), ::testing::MatchesRegex("[0-9A-F]{32}"));
    EXPECT_NE(first->id(), second->id());
    EXPECT_EQ(first->state(), ZMOfflineDownloadState::waiting);
    EXPECT_EQ(first->progress(), 0.0);
    EXPECT_EQ(first->minBitrate(), 0);
    EXPECT_EQ(*first->licenseUrlQueryItems(), (std::vector<UrlQueryItem>{{"persistent", "true"}}));

    FPDownloadsStore reopened;
    auto all = reopened.getAllDownloads();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]->toJson(), first->toJson());
    EXPECT_EQ(all[1]->toJson(), second->toJson());
    EXPECT_EQ(all[1]->minBitrate(), 500000);
    EXPECT_EQ(*all[1]->audioIds(), std::vector<std::string>{"en"});
}

TEST_F(FPDownloadsStoreTest, FindsReturnTheFirstMatchingCachedInstance) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto first = create(store, "a");
    auto second = create(store, "b");
    EXPECT_EQ(store.findFirstWithId(second->id()), second);
    EXPECT_EQ(store.findFirstWithState(ZMOfflineDownloadState::waiting), first);
    second->setState(ZMOfflineDownloadState::downloading);
    EXPECT_EQ(store.findFirstWithState(ZMOfflineDownloadState::downloading), second);
    EXPECT_EQ(store.getAllDownloads()[0], first);
}

TEST_F(FPDownloadsStoreTest, UpdateSavesEveryCachedDownload) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto first = create(store, "a");
    auto second = create(store, "b");
    first->setState(ZMOfflineDownloadState::paused);
    second->setProgress(0.5);
    second->setOfflineUrl("/elsewhere/Library/media/b.movpkg");
    store.update(first);

    auto all = FPDownloadsStore().getAllDownloads();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0]->state(), ZMOfflineDownloadState::paused);
    EXPECT_EQ(all[1]->progress(), 0.5);
    EXPECT_EQ(all[1]->offlineUrl()->absoluteString(), "Library/media/b.movpkg");
}

TEST_F(FPDownloadsStoreTest, CreatingBeforeAnythingIsReadReplacesTheStoredList) {
    {
        FPDownloadsStore store;
        create(store, "old");
    }
    FPDownloadsStore listed;
    EXPECT_EQ(titles(listed), std::vector<std::string>{"old"});
    create(listed, "kept");
    EXPECT_EQ(titles(listed), (std::vector<std::string>{"old", "kept"}));

    FPDownloadsStore unlisted;
    create(unlisted, "new");
    EXPECT_EQ(titles(unlisted), std::vector<std::string>{"new"});
    FPDownloadsStore reopened;
    EXPECT_EQ(titles(reopened), std::vector<std::string>{"new"});
    EXPECT_FALSE(stored(FPDownloadsStore::UnreadableDownloadsJsonKey));
}

TEST_F(FPDownloadsStoreTest, DeletingAnUnknownIdWritesNothing) {
    UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey, "[ ]");
    FPDownloadsStore store;
    store.deleteDownloadWithId("nope");
    EXPECT_EQ(stored(), "[ ]");
}

TEST_F(FPDownloadsStoreTest, DeletingADownloadWithoutPackageRemovesOnlyTheRecord) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto gone = create(store, "gone");
    auto kept = create(store, "kept");
    testing::internal::CaptureStdout();
    store.deleteDownloadWithId(gone->id());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(titles(store), std::vector<std::string>{"kept"});
    EXPECT_EQ(titles(*std::make_unique<FPDownloadsStore>()), std::vector<std::string>{"kept"});
}

TEST_F(FPDownloadsStoreTest, DeletingRemovesThePackageInsideHome) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto download = create(store, "a");
    fs::path package = home.path() / "Library" / "media" / "a.movpkg";
    fs::create_directories(package / "segments");
    std::ofstream(package / "segments" / "0.ts") << "data";
    download->setOfflineUrl(package.string());
    store.update(download);

    testing::internal::CaptureStdout();
    store.deleteDownloadWithId(download->id());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE(fs::exists(package));
    EXPECT_TRUE(fs::exists(home.path() / "Library" / "media"));
    EXPECT_TRUE(store.getAllDownloads().empty());
}

TEST_F(FPDownloadsStoreTest, DeletingAMissingPackagePrintsTheFailure) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto download = create(store, "a");
    download->setOfflineUrl("Library/media/missing.movpkg");
    testing::internal::CaptureStdout();
    store.deleteDownloadWithId(download->id());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "FPDownloadsStore:FileManager.default.removeItem " +
                  download->offlineUrlAsset()->url().absoluteString() +
                  " error: No such file or directory\n");
    EXPECT_TRUE(store.getAllDownloads().empty());
}

TEST_F(FPDownloadsStoreTest, DeletingNeverRemovesAnythingOutsideHome) {
    fs::path victim = home.path().parent_path() / (home.path().filename().string() + "-victim");
    fs::create_directories(victim);
    std::ofstream(victim / "precious") << "data";

    FPDownloadsStore store;
    store.getAllDownloads();
    auto download = create(store, "a");
    download->setOfflineUrl("Library/../../" + victim.filename().string());
    auto other = create(store, "b");
    other->setOfflineUrl("Library/..");
    testing::internal::CaptureStdout();
    store.deleteDownloadWithId(download->id());
    store.deleteDownloadWithId(other->id());
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_THAT(printed,
                HasSubstr("not removing " + download->offlineUrlAsset()->url().absoluteString()));
    EXPECT_THAT(printed, HasSubstr("outside the application home"));
    EXPECT_TRUE(fs::exists(victim / "precious"));
    EXPECT_TRUE(fs::exists(home.path() / "Library"));
    EXPECT_TRUE(store.getAllDownloads().empty());
    fs::remove_all(victim);
}

// Stored values that cannot be read.

TEST_F(FPDownloadsStoreTest, AnUnreadableListIsKeptBeforeItIsReplaced) {
    const std::string bad =
        R"([{"id":"A","title":"T","state":9,"playlist_url":"https://h/m.m3u8","download_progress":0}])";
    UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey, bad);
    FPDownloadsStore store;
    EXPECT_TRUE(store.getAllDownloads().empty());
    EXPECT_EQ(stored(), bad);
    testing::internal::CaptureStdout();
    auto download = create(store, "new");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(stored(FPDownloadsStore::UnreadableDownloadsJsonKey), bad);
    EXPECT_EQ(titles(*std::make_unique<FPDownloadsStore>()), std::vector<std::string>{"new"});

    // Only the first save keeps it; later saves leave the backup alone.
    download->setProgress(0.5);
    store.update(download);
    EXPECT_EQ(stored(FPDownloadsStore::UnreadableDownloadsJsonKey), bad);
}

TEST_F(FPDownloadsStoreTest, AnUnreadableListIsKeptEvenWhenCreatingWithoutReading) {
    UserDefaults::standard()->setString(FPDownloadsStore::DownloadsJsonKey, "{not json");
    FPDownloadsStore store;
    testing::internal::CaptureStdout();
    create(store, "new");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(stored(FPDownloadsStore::UnreadableDownloadsJsonKey), "{not json");
    EXPECT_EQ(titles(*std::make_unique<FPDownloadsStore>()), std::vector<std::string>{"new"});
}

TEST_F(FPDownloadsStoreTest, AValueOfAnotherTypeIsKeptAsItIs) {
    UserDefaults::standard()->setData(FPDownloadsStore::DownloadsJsonKey,
                                      std::string("\x01\x02", 2));
    FPDownloadsStore store;
    EXPECT_TRUE(store.getAllDownloads().empty());
    testing::internal::CaptureStdout();
    create(store, "new");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(UserDefaults::standard()->data(FPDownloadsStore::UnreadableDownloadsJsonKey),
              std::string("\x01\x02", 2));
}

TEST_F(FPDownloadsStoreTest, AFailedWriteNeverLosesTheStoredValue) {
    auto defaults =
        std::make_shared<FailingUserDefaults>(UserDefaults::open(home.path() / "failing.sqlite"));
    defaults->setString(FPDownloadsStore::DownloadsJsonKey, "garbage");
    FPDownloadsStore store(defaults);
    EXPECT_TRUE(store.getAllDownloads().empty());

    defaults->failWrites = true;
    auto download = create(store, "a");
    EXPECT_EQ(defaults->string(FPDownloadsStore::DownloadsJsonKey), "garbage");
    EXPECT_EQ(store.findFirstWithId(download->id()), download);

    defaults->failWrites = false;
    testing::internal::CaptureStdout();
    store.update(download);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(defaults->string(FPDownloadsStore::UnreadableDownloadsJsonKey), "garbage");
    EXPECT_EQ(FPDownloadsStore(defaults).getAllDownloads().size(), 1u);
}

TEST_F(FPDownloadsStoreTest, AnEncodingFailureLeavesTheStoredValue) {
    FPDownloadsStore store;
    store.getAllDownloads();
    auto download = create(store, "a");
    std::string before = *stored();
    download->setProgress(std::numeric_limits<double>::infinity());
    store.update(download);
    EXPECT_EQ(stored(), before);
}

}  // namespace
}  // namespace zarvo
