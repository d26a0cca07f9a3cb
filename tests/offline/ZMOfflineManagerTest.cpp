// Offline downloads end to end against the sample origin: the manager queues downloads that run
// one at a time, keys are kept for offline use, finished downloads play with no network, and
// pause, cancel, restart and failures move the records as they should.
#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/fairplay/FPResourceLoaderDelegate.h"
#include "zarvo/offline/FPDownloadError.h"
#include "zarvo/offline/FPDownloadSession11.h"
#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/ZMOfflineManager.h"
#include "zarvo/offline/ZMOfflinePlaybackSource.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"

#include "support/MainLoopWait.h"
#include "support/RecordingOfflineDelegate.h"
#include "support/SampleOriginTest.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using DownloadPtr = std::shared_ptr<ZMOfflineDownload>;

using test::waitFor;

using Events = test::RecordingOfflineDelegate;

class ZMOfflineManagerTest : public test::SampleOriginTest {
protected:
    void SetUp() override {
        origin_->faults().clear();
        manager_->setDelegate(events_);
    }

    // Starts a download and waits for it to be queued.
    DownloadPtr start(const std::string& title, const std::string& path, bool isProtected = false) {
        std::atomic<bool> done{false};
        DownloadPtr made;
        std::optional<Error> failure;
        std::optional<Url> cert, license;
        if (isProtected) {
            cert = *Url::parse(origin_->url("/fps/cert"));
            license = *Url::parse(origin_->url("/fps/license"));
        }
        manager_->startDownload(
            title, *Url::parse(origin_->url(path)), cert, license, std::nullopt, std::nullopt,
            std::nullopt, {}, [&](const DownloadPtr& download, const std::optional<Error>& error) {
                made = download;
                failure = error;
                done = true;
            });
        EXPECT_TRUE(waitFor([&] { return done.load(); }));
        EXPECT_FALSE(failure);
        return made;
    }
    fs::path packageOf(const DownloadPtr& download) const {
        return home_.path() / download->offlineUrl()->decodedPath();
    }

    test::TempHome home_;
    std::shared_ptr<FPDownloadsStore> store_ = std::make_shared<FPDownloadsStore>();
    std::shared_ptr<ZMOfflineManager> manager_ = ZMOfflineManager::make(store_);
    std::shared_ptr<Events> events_ = std::make_shared<Events>();
};

TEST_F(ZMOfflineManagerTest, QueuedDownloadsFinishInOrderAndPlayOfflineWithTheirKeys) {
    auto first = start("First", "/vod/master.m3u8");
    auto secured = start("Protected", "/protected/master.m3u8", true);
    auto third = start("Third", "/redirect?to=/vod/master.m3u8");
    ASSERT_TRUE(waitFor([&] { return events_->finished.size() + events_->errors.size() == 3; }));
    ASSERT_TRUE(events_->errors.empty()) << events_->errors[0].second.description();
    EXPECT_EQ(events_->finished, (std::vector{first->id(), secured->id(), third->id()}));
    EXPECT_EQ(third->url().absoluteString(), origin_->url("/vod/master.m3u8"))
        << "resolved by HEAD";
    for (const auto& download : manager_->getDownloads()) {
        EXPECT_EQ(download->state(), ZMOfflineDownloadState::completed);
        EXPECT_DOUBLE_EQ(download->progress(), 1.0);
        EXPECT_TRUE(fs::exists(packageOf(download) / "master.m3u8"));
    }

    // The persistent key was fetched once and kept, readable by the owner only.
    const fs::path key = fs::path(secured->contentKeysDirPath().decodedPath()) / "zm-sample-1-Key";
    ASSERT_TRUE(fs::exists(key));
    EXPECT_EQ(fs::status(key).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(origin_->requestCount("/fps/license"), 1u);

    // Played through an ordinary player with no network: the key comes from disk.
    origin_->clearRequests();
    auto player = ZMPlayer::make();
    auto source = std::make_shared<ZMOfflinePlaybackSource>(secured);
    EXPECT_TRUE(source->isInitialized());
    player->open(source, true);
    ASSERT_TRUE(waitFor([&] {
        return player->playbackStatus() == ZMPlaybackStatus::playing && player->currentTime() > 1.0;
    }));
    EXPECT_TRUE(origin_->requests().empty());
}

TEST_F(ZMOfflineManagerTest, PauseCancelRestartFailuresAndEmptyPackages) {
    // A download that is not running is not paused.
    origin::Fault slow;
    slow.pathPrefix = "/vod/";
    slow.bytesPerSecond = 300'000;
    origin_->faults().add(slow);
    auto running = start("Running", "/vod/master.m3u8");
    auto waiting = start("Waiting", "/vod/master.m3u8");
    manager_->pause(waiting->id());
    EXPECT_TRUE(events_->paused.empty());
    ASSERT_TRUE(waitFor([&] { return running->progress() > 0; }));
    manager_->pause(running->id());
    EXPECT_EQ(events_->paused, std::vector{running->id()});
    EXPECT_EQ(running->state(), ZMOfflineDownloadState::paused);

    // Restart: back to waiting with its files gone; cancel: the record and files gone.
    const fs::path package = packageOf(running);
    const fs::path keys = running->contentKeysDirPath().decodedPath();
    manager_->restart(running->id());
    EXPECT_EQ(events_->restarted, std::vector{running->id()});
    EXPECT_FALSE(fs::exists(package));
    EXPECT_FALSE(fs::exists(keys));
    manager_->cancel(waiting->id());
    EXPECT_EQ(events_->cancelled, std::vector{waiting->id()});
    EXPECT_EQ(store_->findFirstWithId(waiting->id()), nullptr);

    // A segment that stays missing fails the task; the download stays listed as failed.
    origin_->faults().clear();
    manager_->cancel(running->id());
    origin::Fault missing;
    missing.pathPrefix = "/vod/v2/seg4.ts";
    missing.status = 404;
    origin_->faults().add(missing);
    auto failing = start("Failing", "/vod/master.m3u8");
    ASSERT_TRUE(waitFor([&] { return !events_->errors.empty(); }));
    EXPECT_EQ(events_->errors.back().first, failing->id());
    EXPECT_EQ(store_->findFirstWithId(failing->id())->state(), ZMOfflineDownloadState::failed);

    // An address whose HEAD gets no answer queues nothing.
    std::atomic<bool> done{false};
    std::optional<Error> failure;
    const auto before = manager_->getDownloads().size();
    manager_->startDownload("Nowhere", *Url::parse("http://127.0.0.1:9/master.m3u8"), std::nullopt,
                            std::nullopt, std::nullopt, std::nullopt, std::nullopt, {},
                            [&](const DownloadPtr&, const std::optional<Error>& error) {
                                failure = error;
                                done = true;
                            });
    ASSERT_TRUE(waitFor([&] { return done.load(); }));
    ASSERT_TRUE(failure);
    EXPECT_TRUE(isFPDownloadError(*failure, FPDownloadError::hlsPlaylistUrlRedirectionFail));
    EXPECT_EQ(manager_->getDownloads().size(), before);

    // findEmpty looks at the stored home-relative path as it is: from here it finds none.
    manager_->findEmpty();
    ASSERT_TRUE(waitFor([&] { return events_->foundCalls == 1; }));
    std::lock_guard lock(events_->mutex);
    EXPECT_EQ(events_->empty.size(), before);
    EXPECT_TRUE(manager_->getDownloads().empty());
}

TEST(FPBaseDownloadSessionTest, ProgressIsCappedNeverGoesBackAndIsQuietWhilePaused) {
    test::TempHome home;
    auto store = std::make_shared<FPDownloadsStore>();
    auto download = store->createWaitingDownload(
        "Progress", *Url::parse("http://127.0.0.1:9/m.m3u8"), std::nullopt, std::nullopt,
        std::nullopt, std::nullopt, std::nullopt, {});
    auto session = FPDownloadSession11::make(store);
    int updates = 0;
    session->onProgressUpdate = [&](const DownloadPtr&) {
        ++updates;
    };
    auto task = session->createDownloadTask(download->urlAsset(), "Progress", {}, {});
    task->setTaskDescription(download->id());
    auto range = [](double seconds) {
        return MediaTimeRange{MediaTime::zero(), MediaTime::make(seconds, 600)};
    };
    auto load = [&](std::vector<MediaTimeRange> loaded) {
        session->didLoad(*session->urlSession, task, range(0), loaded, range(60), {});
    };
    load({range(30), range(45)});
    EXPECT_DOUBLE_EQ(download->progress(), 1.0) << "capped, not 1.25";
    EXPECT_EQ(download->state(), ZMOfflineDownloadState::downloading);
    download->setProgress(0.5);
    load({range(15)});
    EXPECT_DOUBLE_EQ(download->progress(), 0.5) << "never back";
    EXPECT_EQ(updates, 2);
    download->setState(ZMOfflineDownloadState::paused);
    load({range(45)});
    EXPECT_DOUBLE_EQ(store->findFirstWithId(download->id())->progress(), 0.75);
    EXPECT_EQ(download->state(), ZMOfflineDownloadState::paused);
    EXPECT_EQ(updates, 2) << "no update while paused";

    // A task whose download is gone is ignored.
    task->setTaskDescription("unknown");
    load({range(60)});
    EXPECT_EQ(updates, 2);
}

// A task restarted from its package may ask for a key as soon as it starts: the package's
// asset has the download's key loader by the time the task is made.
TEST(FPBaseDownloadSessionTest, ATaskRestartedFromItsPackageIsMadeWithItsKeyLoaderAttached) {
    struct Session : FPDownloadSession11 {
        using FPDownloadSession11::FPDownloadSession11;
        Task createDownloadTask(const std::shared_ptr<UrlAsset>& asset, const std::string&,
                                const std::vector<MediaSelection>&,
                                const AssetDownloadUrlSession::TaskOptions&) override {
            loaderWhenMade = asset->resourceLoader()->delegate();
            return nullptr;
        }
        std::shared_ptr<AssetResourceLoaderDelegate> loaderWhenMade;
    };
    test::TempHome home;
    auto store = std::make_shared<FPDownloadsStore>();
    auto download = store->createWaitingDownload(
        "Restarted", *Url::parse("http://127.0.0.1:9/m.m3u8"), std::nullopt, std::nullopt,
        std::nullopt, std::nullopt, std::nullopt, {});
    download->setOfflineUrl("Library/com.zarvo.downloads/Restarted.movpkg");
    auto session = std::make_shared<Session>(store);
    session->restartDownloadFromPackage(download);
    ASSERT_TRUE(download->resourceLoader());
    EXPECT_EQ(session->loaderWhenMade, download->resourceLoader());
    EXPECT_EQ(download->urlAsset()->resourceLoader()->delegate(), download->resourceLoader());
}

// The child half of the kill test below: starts a download and runs until it is killed.
TEST(ZMOfflineManagerKillTest, ChildDownloadsUntilKilled) {
    const char* master = std::getenv("ZM_OFFLINE_CHILD_MASTER");
    if (!master) {
        GTEST_SKIP() << "runs as the child of AManagerFinishesWhatAKilledProcessStarted";
    }
    auto manager = ZMOfflineManager::make(std::make_shared<FPDownloadsStore>());
    manager->startDownload("Killed", *Url::parse(master), std::nullopt, std::nullopt, std::nullopt,
                           std::nullopt, std::nullopt, {}, nullptr);
    RunLoop::main().runUntil([] { return false; }, 60s);
    ADD_FAILURE() << "not killed";
}

TEST_F(ZMOfflineManagerTest, AManagerFinishesWhatAKilledProcessStarted) {
    origin::Fault slow;
    slow.pathPrefix = "/vod/";
    slow.bytesPerSecond = 400'000;
    origin_->faults().add(slow);
    const fs::path home = home_.path() / "killed";
    fs::create_directories(home);
    const std::string master = origin_->url("/vod/master.m3u8");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::setenv("ZM_HOME", home.c_str(), 1);
        ::setenv("ZM_OFFLINE_CHILD_MASTER", master.c_str(), 1);
        ::execl("/proc/self/exe", "offline_tests",
                "--gtest_filter=ZMOfflineManagerKillTest.ChildDownloadsUntilKilled", nullptr);
        ::_exit(127);
    }
    auto segmentsOnDisk = [&] {
        std::set<std::string> files;
        std::error_code error;
        for (auto it = fs::recursive_directory_iterator(home / "Library", error);
             !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
            if (it->path().extension() == ".ts") {
                files.insert(it->path().string());
            }
        }
        return files;
    };
    const bool reached = waitFor([&] { return segmentsOnDisk().size() >= 6; });
    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(reached);

    origin_->faults().clear();
    origin_->clearRequests();
    const auto before = segmentsOnDisk();
    AppDirectories::setHome(home);
    {
        // As if the process had died before the record learnt where its package is.
        FPDownloadsStore stored;
        auto killed = stored.getAllDownloads().at(0);
        ASSERT_TRUE(killed->offlineUrl());
        killed->assignOfflineUrl(std::nullopt);
        stored.update(killed);
    }
    auto store = std::make_shared<FPDownloadsStore>();
    auto manager = ZMOfflineManager::make(store);
    auto events = std::make_shared<Events>();
    manager->setDelegate(events);
    ASSERT_TRUE(waitFor([&] { return !events->finished.empty() || !events->errors.empty(); }));
    EXPECT_TRUE(events->errors.empty());
    EXPECT_EQ(store->getAllDownloads().at(0)->state(), ZMOfflineDownloadState::completed);
    std::size_t segmentsFetched = 0;
    for (const auto& request : origin_->requests()) {
        segmentsFetched += request.ends_with(".ts");
    }
    EXPECT_EQ(segmentsFetched + before.size(), segmentsOnDisk().size()) << "none fetched twice";
    AppDirectories::setHome(home_.path());
}

}  // namespace
}  // namespace zarvo
