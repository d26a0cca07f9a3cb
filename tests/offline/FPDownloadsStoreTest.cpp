#include <filesystem>
#include <fstream>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/OfflineDownloadJson.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Strings = std::vector<std::string>;
constexpr const char* key = FPDownloadsStore::DownloadsJsonKey;
constexpr const char* backupKey = FPDownloadsStore::UnreadableDownloadsJsonKey;

// User defaults over a real database whose writes fail on demand, like on a full disk.
class FailingUserDefaults : public UserDefaults {
public:
    using S = std::string;
    explicit FailingUserDefaults(std::shared_ptr<UserDefaults> real) : real_(std::move(real)) {}
    bool fail = false;

    std::optional<S> string(const S& k) const override { return real_->string(k); }
    std::optional<Data> data(const S& k) const override { return real_->data(k); }
    long long integer(const S& k) const override { return real_->integer(k); }
    bool boolean(const S& k) const override { return real_->boolean(k); }
    bool hasValue(const S& k) const override { return real_->hasValue(k); }
    std::vector<S> keys() const override { return real_->keys(); }
    bool setString(const S& k, const S& v) override { return !fail && real_->setString(k, v); }
    bool setData(const S& k, const Data& v) override { return !fail && real_->setData(k, v); }
    bool setInteger(const S& k, long long v) override { return !fail && real_->setInteger(k, v); }
    bool setBoolean(const S& k, bool v) override { return !fail && real_->setBoolean(k, v); }
    bool removeObject(const S& k) override { return !fail && real_->removeObject(k); }
    bool synchronize() override { return real_->synchronize(); }

private:
    std::shared_ptr<UserDefaults> real_;
};

class FPDownloadsStoreTest : public ::testing::Test {
protected:
    static std::shared_ptr<ZMOfflineDownload> create(FPDownloadsStore& store,
                                                     const std::string& title) {
        return store.createWaitingDownload(title, *Url::parse("https://cdn.example/" + title),
                                           Url::parse("https://keys.example/cert"),
                                           Url::parse("https://keys.example/license"), std::nullopt,
                                           std::nullopt, std::nullopt, {{"X", "t"}});
    }
    // A store that has read the stored list, as the offline manager's does.
    static std::unique_ptr<FPDownloadsStore> listedStore() {
        auto store = std::make_unique<FPDownloadsStore>();
        store->getAllDownloads();
        return store;
    }
    static Strings titles(FPDownloadsStore& store) {
        Strings result;
        for (const auto& download : store.getAllDownloads()) {
            result.push_back(download->title());
        }
        return result;
    }
    static Strings storedTitles() { return titles(*std::make_unique<FPDownloadsStore>()); }
    static std::optional<std::string> stored(const char* name = key) {
        return UserDefaults::standard()->string(name);
    }

    test::TempHome home;
};

TEST_F(FPDownloadsStoreTest, CreatedDownloadsArePersistedInOrder) {
    auto store = listedStore();
    auto first = create(*store, "first");
    auto second =
        store->createWaitingDownload("second", *Url::parse("https://cdn.example/2"), std::nullopt,
                                     std::nullopt, Strings{"en"}, std::nullopt, 500000, {});
    EXPECT_THAT(first->id(), ::testing::MatchesRegex("[0-9A-F]{32}"));
    EXPECT_NE(first->id(), second->id());
    EXPECT_EQ(first->state(), ZMOfflineDownloadState::waiting);
    EXPECT_EQ(first->minBitrate(), 0);
    EXPECT_EQ(*first->licenseUrlQueryItems(), (std::vector<UrlQueryItem>{{"persistent", "true"}}));

    auto all = FPDownloadsStore().getAllDownloads();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(OfflineDownloadJson::toJson(*all[0]), OfflineDownloadJson::toJson(*first));
    EXPECT_EQ(OfflineDownloadJson::toJson(*all[1]), OfflineDownloadJson::toJson(*second));
}

TEST_F(FPDownloadsStoreTest, FindsReturnCachedInstancesAndUpdateSavesThemAll) {
    auto store = listedStore();
    EXPECT_EQ(store->findFirstWithId("A"), nullptr);
    EXPECT_EQ(store->findFirstWithState(ZMOfflineDownloadState::waiting), nullptr);
    EXPECT_FALSE(stored()) << "a fresh installation stores nothing";
    auto first = create(*store, "a");
    auto second = create(*store, "b");
    EXPECT_EQ(store->findFirstWithId(second->id()), second);
    EXPECT_EQ(store->findFirstWithState(ZMOfflineDownloadState::waiting), first);
    second->setState(ZMOfflineDownloadState::downloading);
    EXPECT_EQ(store->findFirstWithState(ZMOfflineDownloadState::downloading), second);

    // An update saves every cached download, not only the one named.
    first->setState(ZMOfflineDownloadState::paused);
    second->setProgress(0.5);
    second->setOfflineUrl("/elsewhere/Library/media/b.movpkg");
    store->update(first);

    auto all = FPDownloadsStore().getAllDownloads();
    EXPECT_EQ(all[0]->state(), ZMOfflineDownloadState::paused);
    EXPECT_EQ(all[1]->state(), ZMOfflineDownloadState::downloading);
    EXPECT_EQ(all[1]->progress(), 0.5);
    EXPECT_EQ(all[1]->offlineUrl()->absoluteString(), "Library/media/b.movpkg");
}

TEST_F(FPDownloadsStoreTest, CreatingBeforeAnythingIsReadReplacesTheStoredList) {
    create(*listedStore(), "old");
    auto listed = listedStore();
    create(*listed, "kept");
    EXPECT_EQ(storedTitles(), (Strings{"old", "kept"}));

    FPDownloadsStore unlisted;
    create(unlisted, "new");
    EXPECT_EQ(storedTitles(), Strings{"new"});
    EXPECT_FALSE(stored(backupKey));
}

TEST_F(FPDownloadsStoreTest, DeletingRemovesTheRecordAndOnlyPackagesInsideHome) {
    UserDefaults::standard()->setString(key, "[ ]");
    FPDownloadsStore().deleteDownloadWithId("nope");
    EXPECT_EQ(stored(), "[ ]") << "deleting an unknown id writes nothing";
    fs::path victim = home.path().string() + "-victim";
    fs::create_directories(victim);
    std::ofstream(victim / "precious") << "data";

    auto store = listedStore();
    auto withPackage = create(*store, "package");
    auto withoutPackage = create(*store, "none");
    auto missingPackage = create(*store, "missing");
    auto outside = create(*store, "outside");
    auto wholeHome = create(*store, "home");
    create(*store, "kept");
    fs::path package = home.path() / "Library" / "media" / "a.movpkg";
    fs::create_directories(package / "segments");
    std::ofstream(package / "segments" / "0.ts") << "data";
    withPackage->setOfflineUrl(package.string());
    missingPackage->setOfflineUrl("Library/media/missing.movpkg");
    outside->setOfflineUrl("Library/../../" + victim.filename().string());
    wholeHome->setOfflineUrl("Library/..");
    store->update(withPackage);

    testing::internal::CaptureStdout();
    store->deleteDownloadWithId(withPackage->id());
    store->deleteDownloadWithId(withoutPackage->id());
    store->deleteDownloadWithId(missingPackage->id());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "FPDownloadsStore:FileManager.default.removeItem " +
                  missingPackage->offlineUrlAsset()->url().absoluteString() +
                  " error: No such file or directory\n");
    testing::internal::CaptureStderr();
    store->deleteDownloadWithId(outside->id());
    store->deleteDownloadWithId(wholeHome->id());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("not removing " + outside->offlineUrlAsset()->url().absoluteString() +
                          ": it lies outside the application home"));
    EXPECT_FALSE(fs::exists(package));
    EXPECT_TRUE(fs::exists(home.path() / "Library" / "media"));
    EXPECT_TRUE(fs::exists(victim / "precious"));
    EXPECT_EQ(titles(*store), Strings{"kept"});
    EXPECT_EQ(storedTitles(), Strings{"kept"});
    fs::remove_all(victim);
}

TEST_F(FPDownloadsStoreTest, AnUnreadableListIsKeptOnceBeforeItIsReplaced) {
    const std::string bad = R"([{"id":"A","title":"T","state":9,"playlist_url":"https://h/m",)"
                            R"("download_progress":0}])";
    UserDefaults::standard()->setString(key, bad);
    auto store = listedStore();
    EXPECT_TRUE(store->getAllDownloads().empty());
    EXPECT_EQ(stored(), bad);
    testing::internal::CaptureStderr();
    auto download = create(*store, "new");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(stored(backupKey), bad);
    EXPECT_EQ(storedTitles(), Strings{"new"});

    UserDefaults::standard()->setString(backupKey, "older");
    store->update(download);
    EXPECT_EQ(stored(backupKey), "older");

    // Also without reading first, and for a value of another type.
    UserDefaults::standard()->setString(key, "{not json");
    testing::internal::CaptureStderr();
    FPDownloadsStore unlisted;
    create(unlisted, "new");
    EXPECT_EQ(stored(backupKey), "{not json");
    UserDefaults::standard()->setData(key, std::string("\x01\x02", 2));
    create(*listedStore(), "again");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(UserDefaults::standard()->data(backupKey), std::string("\x01\x02", 2));
}

TEST_F(FPDownloadsStoreTest, FailedWritesAreReportedAndRetriedAndNeverLoseTheStoredValue) {
    auto defaults =
        std::make_shared<FailingUserDefaults>(UserDefaults::open(home.path() / "failing.sqlite"));
    defaults->setString(key, "garbage");
    FPDownloadsStore store(defaults);
    EXPECT_TRUE(store.getAllDownloads().empty());
    EXPECT_FALSE(store.lastSaveError());

    // A full disk: the stored value stays, the failure is logged once and kept.
    defaults->fail = true;
    testing::internal::CaptureStderr();
    auto download = create(store, "a");
    store.update(download);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(defaults->string(key), "garbage");
    EXPECT_EQ(store.findFirstWithId(download->id()), download);
    ASSERT_TRUE(store.lastSaveError());
    EXPECT_EQ(store.lastSaveError()->code(), FPDownloadsStore::saveErrorCode);
    EXPECT_THAT(log, HasSubstr("zarvo [FPDownloadsStore] saving the downloads failed"));
    EXPECT_EQ(log.find("saving the downloads failed"), log.rfind("saving the downloads failed"));

    // The next save writes everything once the disk has room again.
    defaults->fail = false;
    auto other = create(store, "b");
    EXPECT_FALSE(store.lastSaveError());
    EXPECT_EQ(defaults->string(backupKey), "garbage");
    EXPECT_EQ(titles(*std::make_unique<FPDownloadsStore>(defaults)), (Strings{"a", "b"}));

    // A download that cannot be encoded keeps its last saved form and holds up no other.
    download->setProgress(std::numeric_limits<double>::infinity());
    other->setProgress(0.5);
    testing::internal::CaptureStderr();
    store.update(other);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(download->id()));
    auto reread = FPDownloadsStore(defaults).getAllDownloads();
    ASSERT_EQ(reread.size(), 2u);
    EXPECT_EQ(reread[0]->progress(), 0.0);
    EXPECT_EQ(reread[1]->progress(), 0.5);
}

}  // namespace
}  // namespace zarvo
