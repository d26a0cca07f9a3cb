// The download service against the sample origin: what a package holds and how it plays from
// disk, suspend, resume and cancel, faults, and a process killed in the middle of a download.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/media/download/AssetDownloadUrlSession.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlError.h"

#include "support/CommandOutput.h"
#include "support/MainLoopWait.h"
#include "support/RecordingDownloadDelegate.h"
#include "support/SampleOriginTest.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using TaskPtr = std::shared_ptr<AggregateAssetDownloadTask>;

using test::waitFor;

using DownloadRecorder = test::RecordingDownloadDelegate;
using test::filesUnder;

class AssetDownloadTest : public test::SampleOriginTest {
protected:
    void SetUp() override { origin_->faults().clear(); }

    std::shared_ptr<AssetDownloadUrlSession> makeSession(const std::string& identifier = "Test") {
        AssetDownloadUrlSession::Settings settings;
        settings.tasks.firstRetryDelay = 0.01;
        settings.tasks.outageLimit = 0.05;
        return AssetDownloadUrlSession::make(UrlSessionConfiguration::background(identifier),
                                             recorder_, DispatchQueue::main(), settings);
    }
    std::shared_ptr<UrlAsset> loadedVod() {
        auto asset = UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")));
        bool loaded = false;
        asset->loadMediaSelections(DispatchQueue::main(), [&](auto) { loaded = true; });
        EXPECT_TRUE(waitFor([&] { return loaded; }));
        return asset;
    }
    fs::path vodFolder() const { return origin_->content().directory() / "vod"; }
    std::size_t segmentRequests() const {
        std::size_t count = 0;
        for (const auto& request : origin_->requests()) {
            count += request.ends_with(".ts") || request.ends_with(".vtt");
        }
        return count;
    }

    test::TempHome home_;
    std::shared_ptr<DownloadRecorder> recorder_ = std::make_shared<DownloadRecorder>();
};

TEST_F(AssetDownloadTest, APackageHoldsTheChosenRenditionsAndPlaysWithoutTheNetwork) {
    auto session = makeSession();
    auto asset = loadedVod();
    const auto selections = asset->allMediaSelections();
    ASSERT_EQ(selections.size(), 4u) << "two audio renditions, subtitles on and off";
    const auto& variants = origin_->content().variants();
    AssetDownloadUrlSession::TaskOptions options{variants[1].bandwidth - 1};
    auto task = session->makeAggregateAssetDownloadTask(asset, selections, "Sample: VOD",
                                                        std::nullopt, options);
    ASSERT_TRUE(task);
    EXPECT_EQ(task->state(), AggregateAssetDownloadTask::State::suspended);
    task->resume();
    ASSERT_TRUE(waitFor([&] { return !recorder_->completions.empty(); }));
    ASSERT_EQ(recorder_->completions[0], std::nullopt) << recorder_->completions[0]->description();
    EXPECT_EQ(task->state(), AggregateAssetDownloadTask::State::completed);
    ASSERT_EQ(recorder_->locations.size(), 1u);
    const fs::path package = recorder_->locations[0].decodedPath();
    EXPECT_TRUE(AppDirectories::isInsideHome(package));
    EXPECT_NE(package.string().find("/Library/"), std::string::npos);
    EXPECT_TRUE(std::is_sorted(recorder_->progress.begin(), recorder_->progress.end()));
    EXPECT_DOUBLE_EQ(recorder_->progress.back(), 1.0);
    EXPECT_EQ(recorder_->selectionsCompleted, 4);

    // The variant the minimum bitrate asks for, both audio renditions and the subtitles, each
    // file as the origin has it; no partial files.
    const auto master = *DataFile::read(package / "master.m3u8");
    EXPECT_NE(master.find("BANDWIDTH=" + std::to_string(variants[1].bandwidth)), std::string::npos);
    EXPECT_EQ(master.find("BANDWIDTH=" + std::to_string(variants[0].bandwidth)), std::string::npos);
    for (const auto& file : filesUnder(package)) {
        EXPECT_FALSE(file.ends_with(".part")) << file;
    }
    // Byte ranges of one file in the origin, files of their own in the package.
    auto joined = [](const fs::path& folder, const std::string& prefix) {
        std::string all;
        for (int i = 0; fs::exists(folder / (prefix + std::to_string(i) + ".ts")); ++i) {
            all += *DataFile::read(folder / (prefix + std::to_string(i) + ".ts"));
        }
        return all;
    };
    EXPECT_TRUE(joined(package / "video", "") == DataFile::read(vodFolder() / "v1" / "index.ts"));
    EXPECT_TRUE(joined(package / "audio1", "") == joined(vodFolder() / "a_pol", "seg"));
    EXPECT_TRUE(joined(package / "audio2", "") == joined(vodFolder() / "a_eng", "seg"));
    EXPECT_EQ(filesUnder(package).count("subtitles3/index.m3u8"), 1u);
    // The local video playlist decodes frame for frame like the variant it was made from.
    if (std::system("command -v ffmpeg >/dev/null 2>&1") == 0) {
        auto frames = [](const std::string& input) {
            return test::commandOutput("timeout 120 ffmpeg -v error -i '" + input +
                                       "' -map 0:v -f framemd5 -");
        };
        const std::string local = frames((package / "video" / "index.m3u8").string());
        EXPECT_NE(local.find(", "), std::string::npos) << local;
        EXPECT_EQ(local, frames(origin_->url("/vod/v1/index.m3u8")));
    }

    // The package plays from disk, with both audio options and the subtitles.
    origin_->clearRequests();
    auto player = Player::make();
    auto item = PlayerItem::make(UrlAsset::make(Url::fileUrl(package.string(), true)));
    player->replaceCurrentItem(item);
    player->play();
    ASSERT_TRUE(waitFor([&] {
        return item->status() == PlayerItem::Status::failed ||
               (player->timeControlStatus() == Player::TimeControlStatus::playing &&
                player->currentTime().seconds() > 1.0);
    }));
    EXPECT_NE(item->status(), PlayerItem::Status::failed);
    auto audible = item->asset()->mediaSelectionGroup(MediaCharacteristic::audible());
    ASSERT_TRUE(audible);
    EXPECT_EQ(audible->options().size(), 2u);
    EXPECT_TRUE(item->asset()->mediaSelectionGroup(MediaCharacteristic::legible()));
    EXPECT_TRUE(origin_->requests().empty());
}

TEST_F(AssetDownloadTest, SuspendResumeCancelAndFaults) {
    auto session = makeSession();
    auto asset = UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")));
    origin_->clearRequests();
    // Slow segments: the task is still downloading when it is suspended.
    origin::Fault slow;
    slow.pathPrefix = "/vod/v";
    slow.bytesPerSecond = 200'000;
    origin_->faults().add(slow);
    auto task = session->makeAggregateAssetDownloadTask(asset, {}, "Slow", std::nullopt, {});
    task->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->progress.size() >= 2; }));
    task->suspend();
    EXPECT_EQ(task->state(), AggregateAssetDownloadTask::State::suspended);
    const std::size_t progressAtSuspend = recorder_->progress.size();
    origin_->faults().clear();
    task->resume();
    ASSERT_TRUE(waitFor([&] { return !recorder_->completions.empty(); }));
    EXPECT_EQ(recorder_->completions[0], std::nullopt);
    EXPECT_GT(recorder_->progress.size(), progressAtSuspend);
    // 15 video and 16 audio segments: only those cut off by the suspension came twice.
    EXPECT_LE(segmentRequests(), 31u + 4u);

    // Cancel: ends with UrlError::cancelled and leaves no partial file.
    origin_->faults().add(slow);
    auto cancelled =
        session->makeAggregateAssetDownloadTask(asset, {}, "Cancelled", std::nullopt, {});
    cancelled->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->locations.size() == 2; }));
    cancelled->cancel();
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 2; }));
    ASSERT_TRUE(recorder_->completions[1]);
    EXPECT_TRUE(isUrlError(*recorder_->completions[1], UrlError::cancelled));
    for (const auto& file : filesUnder(recorder_->locations[1].decodedPath())) {
        EXPECT_FALSE(file.ends_with(".part")) << file;
    }

    // A fifth of the segments failing once still completes; a segment that stays missing
    // fails the task naming it.
    origin_->faults().clear();
    origin_->clearRequests();
    for (const char* folder : {"v2", "a_pol"}) {
        for (int segment = 0; segment < 15; segment += 5) {
            origin::Fault once;
            once.pathPrefix =
                "/vod/" + std::string(folder) + "/seg" + std::to_string(segment) + ".ts";
            once.status = 503;
            once.count = 1;
            origin_->faults().add(once);
        }
    }
    auto retried = session->makeAggregateAssetDownloadTask(asset, {}, "Flaky", std::nullopt, {});
    retried->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 3; }));
    EXPECT_EQ(recorder_->completions[2], std::nullopt) << recorder_->completions[2]->description();
    EXPECT_EQ(segmentRequests(), 31u + 6u);

    origin_->faults().clear();
    origin::Fault missing;
    missing.pathPrefix = "/vod/v2/seg3.ts";
    missing.status = 404;
    origin_->faults().add(missing);
    auto failed = session->makeAggregateAssetDownloadTask(asset, {}, "Missing", std::nullopt, {});
    failed->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 4; }));
    ASSERT_TRUE(recorder_->completions[3]);
    EXPECT_TRUE(isMediaError(*recorder_->completions[3], MediaError::resourceUnavailable));
    EXPECT_NE(recorder_->completions[3]->localizedDescription().find("/vod/v2/seg3.ts"),
              std::string::npos);

    // No downloads while the network is down, nor on a metered network when the configuration
    // forbids cellular access.
    origin_->faults().clear();
    origin_->clearRequests();
    std::atomic<bool> up{false};
    std::atomic<bool> metered{true};
    std::atomic<int> askedUp{0};
    std::atomic<int> askedMetered{0};
    AssetDownloadUrlSession::Settings settings;
    settings.isNetworkAvailable = [&] {
        ++askedUp;
        return up.load();
    };
    settings.isNetworkMetered = [&] {
        ++askedMetered;
        return metered.load();
    };
    auto configuration = UrlSessionConfiguration::background("Metered");
    configuration.allowsCellularAccess = false;
    auto wifiOnly =
        AssetDownloadUrlSession::make(configuration, recorder_, DispatchQueue::main(), settings);
    auto waiting = wifiOnly->makeAggregateAssetDownloadTask(asset, {}, "Metered", std::nullopt, {});
    waiting->resume();
    ASSERT_TRUE(waitFor([&] { return askedUp >= 3; }));
    up = true;
    const int meteredBefore = askedMetered;
    ASSERT_TRUE(waitFor([&] { return askedMetered >= meteredBefore + 3; }));
    EXPECT_TRUE(origin_->requests().empty());
    metered = false;
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 5; }));
    EXPECT_EQ(recorder_->completions[4], std::nullopt);

    // An address of something that is no playlist fails at once.
    auto segment = UrlAsset::make(*Url::parse(origin_->url("/vod/v0/seg0.ts")));
    auto invalid =
        session->makeAggregateAssetDownloadTask(segment, {}, "Segment", std::nullopt, {});
    invalid->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 6; }));
    ASSERT_TRUE(recorder_->completions[5]);
    EXPECT_TRUE(isMediaError(*recorder_->completions[5], MediaError::invalidPlaylist));
}

// A process that records a task's end and dies before its delegate hears it (here: the
// delegate queue is held until the session is gone) leaves that end to the next session, which
// hands the task back and tells it, once.
TEST_F(AssetDownloadTest, AnEndItsDelegateNeverHeardIsToldByTheNextSessionOnce) {
    auto asset = loadedVod();
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails ? "failed" : "succeeded");
        const std::string identifier = fails ? "Failed" : "Succeeded";
        origin_->faults().clear();
        if (fails) {
            origin::Fault missing;
            missing.pathPrefix = "/vod/v2/seg3.ts";
            missing.status = 404;
            origin_->faults().add(missing);
        }
        std::promise<void> release;
        auto held = DispatchQueue::serial("Held");
        held->async([gate = release.get_future().share()] { gate.wait(); });
        auto deaf = std::make_shared<DownloadRecorder>();
        std::optional<Error> outcome;
        Url package = Url::fileUrl("/");
        std::weak_ptr<AssetDownloadUrlSession> gone;
        {
            auto session = AssetDownloadUrlSession::make(
                UrlSessionConfiguration::background(identifier), deaf, held);
            gone = session;
            auto task =
                session->makeAggregateAssetDownloadTask(asset, {}, identifier, std::nullopt, {});
            task->resume();
            ASSERT_TRUE(waitFor(
                [&] { return task->state() == AggregateAssetDownloadTask::State::completed; }));
            outcome = task->error();
            package = task->location();
        }
        // The process is gone once its session is: the thread that ended the task holds the
        // session while it hands the end to the delegate queue.
        ASSERT_TRUE(waitFor([&] { return gone.expired(); }));
        release.set_value();
        std::atomic<bool> drained{false};
        held->async([&] { drained = true; });
        ASSERT_TRUE(waitFor([&] { return drained.load(); }));
        EXPECT_TRUE(deaf->completions.empty());
        ASSERT_EQ(outcome.has_value(), fails);

        const std::size_t heard = recorder_->completions.size();
        std::vector<TaskPtr> handed;
        auto next = makeSession(identifier);
        next->getAllTasks([&](auto tasks) { handed = std::move(tasks); });
        ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == heard + 1; }));
        ASSERT_EQ(handed.size(), 1u);
        EXPECT_EQ(recorder_->completions.back(), outcome);
        EXPECT_EQ(recorder_->locations.back(), package);

        bool asked = false;
        makeSession(identifier)->getAllTasks([&](auto tasks) {
            EXPECT_TRUE(tasks.empty());
            asked = true;
        });
        ASSERT_TRUE(waitFor([&] { return asked; }));
    }
}

TEST_F(AssetDownloadTest, ATaskThatGoesOnWithAPackageKeepsItsDescriptionUntilGivenItsOwn) {
    auto session = makeSession("Described");
    auto first = session->makeAggregateAssetDownloadTask(
        UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8"))), {}, "Described",
        std::nullopt, {});
    ASSERT_TRUE(first);
    first->setTaskDescription("download-1");
    // The process ends after the next task is made and before its owner names it.
    auto next = session->makeAggregateAssetDownloadTask(UrlAsset::make(first->location()), {},
                                                        "Described", std::nullopt, {});
    ASSERT_TRUE(next);
    EXPECT_EQ(next->taskDescription(), "download-1");
    std::vector<TaskPtr> restored;
    bool asked = false;
    makeSession("Described")->getAllTasks([&](auto tasks) {
        restored = tasks;
        asked = true;
    });
    ASSERT_TRUE(waitFor([&] { return asked; }));
    ASSERT_EQ(restored.size(), 1u);
    EXPECT_EQ(restored[0]->taskDescription(), "download-1");
}

// The child half of the kill test: downloads until the test below kills it.
TEST(AssetDownloadKillTest, ChildDownloadsUntilKilled) {
    const char* master = std::getenv("ZM_DOWNLOAD_CHILD_MASTER");
    if (!master) {
        GTEST_SKIP() << "runs as the child of AProcessKilledMidDownloadIsContinuedFromItsPackage";
    }
    auto recorder = std::make_shared<DownloadRecorder>();
    auto session = AssetDownloadUrlSession::make(UrlSessionConfiguration::background("Killed"),
                                                 recorder, DispatchQueue::main());
    ASSERT_TRUE(session);
    auto task = session->makeAggregateAssetDownloadTask(UrlAsset::make(*Url::parse(master)), {},
                                                        "Killed", std::nullopt, {});
    task->resume();
    RunLoop::main().runUntil([&] { return !recorder->completions.empty(); }, 60s);
    ADD_FAILURE() << "the download ended before the kill";
}

std::optional<fs::path> packageUnder(const fs::path& home) {
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(home / "Library", error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->path().extension() == ".movpkg") {
            return it->path();
        }
    }
    return std::nullopt;
}

std::size_t wholeSegmentsIn(const fs::path& package) {
    std::size_t count = 0;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(package, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        count += it->path().extension() == ".ts";
    }
    return count;
}

TEST_F(AssetDownloadTest, AProcessKilledMidDownloadIsContinuedFromItsPackage) {
    const std::string master = origin_->url("/vod/master.m3u8");
    auto cleanSession = makeSession("Clean");
    auto clean = cleanSession->makeAggregateAssetDownloadTask(UrlAsset::make(*Url::parse(master)),
                                                              {}, "Clean", std::nullopt, {});
    clean->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() == 1; }));
    const fs::path cleanPackage = recorder_->locations.at(0).decodedPath();
    const auto cleanFiles = filesUnder(cleanPackage);

    origin::Fault slow;
    slow.pathPrefix = "/vod/";
    slow.bytesPerSecond = 400'000;
    for (std::size_t point : {1u, 4u, 9u, 16u, 25u}) {
        SCOPED_TRACE("killed after " + std::to_string(point) + " segments");
        const fs::path home = home_.path() / ("killed" + std::to_string(point));
        fs::create_directories(home);
        origin_->faults().clear();
        origin_->faults().add(slow);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::setenv("ZM_HOME", home.c_str(), 1);
            ::setenv("ZM_DOWNLOAD_CHILD_MASTER", master.c_str(), 1);
            ::execl("/proc/self/exe", "media_tests",
                    "--gtest_filter=AssetDownloadKillTest.ChildDownloadsUntilKilled", nullptr);
            ::_exit(127);
        }
        const bool reached = waitFor([&] {
            auto package = packageUnder(home);
            return package && wholeSegmentsIn(*package) >= point;
        });
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(reached);
        ASSERT_TRUE(WIFSIGNALED(status)) << status;

        // The next process: the task comes back cut off by the end of its process, and a task
        // for the package fetches only what it lacks.
        origin_->faults().clear();
        origin_->clearRequests();
        AppDirectories::setHome(home);
        const fs::path package = *packageUnder(home);
        const auto before = filesUnder(package);
        auto next = std::make_shared<DownloadRecorder>();
        auto session = AssetDownloadUrlSession::make(UrlSessionConfiguration::background("Killed"),
                                                     next, DispatchQueue::main());
        std::vector<TaskPtr> restored;
        session->getAllTasks([&](auto tasks) { restored = tasks; });
        ASSERT_TRUE(waitFor([&] { return next->completions.size() == 1; }));
        ASSERT_EQ(restored.size(), 1u);
        ASSERT_TRUE(next->completions[0]);
        EXPECT_TRUE(isUrlError(*next->completions[0], UrlError::cancelled));
        EXPECT_EQ(next->completions[0]->userInfoValue(
                      AssetDownloadUrlSession::backgroundTaskCancelledReasonKey),
                  "0");
        auto restart = session->makeAggregateAssetDownloadTask(
            UrlAsset::make(Url::fileUrl(package.string(), true)), {}, "Killed", std::nullopt, {});
        ASSERT_TRUE(restart);
        restart->resume();
        ASSERT_TRUE(waitFor([&] { return next->completions.size() == 2; }));
        EXPECT_EQ(next->completions[1], std::nullopt);
        EXPECT_EQ(next->locations.at(0).decodedPath(),
                  Url::fileUrl(package.string(), true).decodedPath());
        for (const auto& request : origin_->requests()) {
            for (const auto& file : before) {
                const fs::path path(file);
                const std::string source = path.parent_path() == "video" ? "v2" : "a_pol";
                EXPECT_FALSE(path.extension() == ".ts" && request == "GET /vod/" + source + "/seg" +
                                                                         path.stem().string() +
                                                                         ".ts")
                    << request << " again";
            }
        }
        ASSERT_EQ(filesUnder(package), cleanFiles);
        for (const auto& file : cleanFiles) {
            EXPECT_TRUE(DataFile::read(package / file) == DataFile::read(cleanPackage / file))
                << file;
        }
        AppDirectories::setHome(home_.path());
    }
}

}  // namespace
}  // namespace zarvo
