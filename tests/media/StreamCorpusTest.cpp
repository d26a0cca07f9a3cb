// Streams of the shapes that common packagers make, served by a plain static file server: each
// plays to its end through ZMPlayer, by its master and by its media playlist, downloads through
// ZMOfflineManager both ways and plays offline, frame for frame like the stream, with the server
// gone. A real-time packager's sliding window plays on without a break. Playback runs in real
// time; waits run the main loop until a condition.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/ZMOfflineManager.h"
#include "zarvo/offline/ZMOfflinePlaybackSource.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "origin/LivePackager.h"
#include "origin/StreamCorpus.h"
#include "support/CommandOutput.h"
#include "support/MainLoopWait.h"
#include "support/RecordingOfflineDelegate.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/StaticFileServer.h"
#include "support/TempHome.h"

namespace zarvo {
namespace origin {

// How a shape shows in test names and messages.
void PrintTo(const StreamCorpus::Shape& shape, std::ostream* out) {
    *out << shape.name;
}

}  // namespace origin
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Shape = origin::StreamCorpus::Shape;
using Recorder = test::RecordingPlayerDelegate;

using test::waitFor;

// One player with its delegate, playing one source until its end.
struct Viewing {
    explicit Viewing(std::string label) : label(std::move(label)) { player->setDelegate(recorder); }

    void open(std::shared_ptr<ZMPlaybackSource> source) {
        player->open(std::move(source), true);
        if (auto item = player->systemPlayer()->currentItem()) {
            end = NotificationCenter::defaultCenter().addObserver(
                PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
                [this](const Notification&) { ended = true; });
        }
    }
    bool done() const { return ended || recorder->itemFailed() || !recorder->errors.empty(); }

    // What a host sees of a playback that ran to its end: ready, waiting, playing, paused at
    // the end, a tick on the way up to the duration, and no error.
    void expectPlayedToTheEnd(double duration) const {
        SCOPED_TRACE(label);
        EXPECT_TRUE(ended);
        for (const auto& error : recorder->errors) {
            ADD_FAILURE() << error.description();
        }
        EXPECT_EQ(recorder->playerStatuses, std::vector{ZMPlayerStatus::readyToPlay});
        ASSERT_FALSE(recorder->itemStatuses.empty());
        EXPECT_EQ(recorder->itemStatuses.front(), ZMPlayerStatus::readyToPlay);
        EXPECT_FALSE(recorder->itemFailed());
        ASSERT_FALSE(recorder->playback.empty());
        EXPECT_EQ(recorder->playback.front(), ZMPlaybackStatus::waiting);
        EXPECT_NE(std::find(recorder->playback.begin(), recorder->playback.end(),
                            ZMPlaybackStatus::playing),
                  recorder->playback.end());
        EXPECT_EQ(recorder->playback.back(), ZMPlaybackStatus::paused);
        EXPECT_NEAR(player->duration(), duration, 0.3);
        ASSERT_GE(recorder->ticks.size(), static_cast<std::size_t>(duration));
        for (std::size_t i = 1; i < recorder->ticks.size(); ++i) {
            EXPECT_GE(recorder->ticks[i].time, recorder->ticks[i - 1].time - 1e-6) << i;
        }
        EXPECT_GE(recorder->ticks.back().time, player->duration() - 0.3);
    }

    std::string label;
    std::shared_ptr<ZMPlayer> player = ZMPlayer::make();
    std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
    bool ended = false;
    Observation end;
};

// Runs every viewing to its end (or its failure) at once.
void playAll(std::vector<std::unique_ptr<Viewing>>& viewings, double duration) {
    EXPECT_TRUE(waitFor(
        [&] {
            return std::all_of(viewings.begin(), viewings.end(),
                               [](const auto& viewing) { return viewing->done(); });
        },
        std::chrono::seconds(static_cast<int>(duration) + 30)));
    RunLoop::main().runUntilIdle();
    for (const auto& viewing : viewings) {
        viewing->expectPlayedToTheEnd(duration);
    }
}

// Every decoded frame and audio block (and every subtitle cue) of a playlist, hashed.
std::string frames(const std::string& input) {
    return test::commandOutput("timeout 120 ffmpeg -v error -allowed_extensions ALL -i '" + input +
                               "' -map 0:v? -map 0:a? -map 0:s? -c:s copy -f framemd5 -");
}

std::string shapeName(const testing::TestParamInfo<Shape>& info) {
    std::string name = info.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class StreamCorpusTest : public ::testing::TestWithParam<Shape> {
protected:
    static void SetUpTestSuite() {
        auto prepared = origin::StreamCorpus::prepare();
        if (auto* error = std::get_if<Error>(&prepared)) {
            FAIL() << error->description();
        }
        corpus_ = std::make_unique<origin::StreamCorpus>(std::get<origin::StreamCorpus>(prepared));
    }
    static void TearDownTestSuite() { corpus_.reset(); }

    void SetUp() override {
        ASSERT_TRUE(corpus_);
        server_ = std::make_unique<test::StaticFileServer>(corpus_->directory());
    }

    std::shared_ptr<ZMPlaybackSource> source(const std::string& path) const {
        return std::make_shared<ZMPlaybackSource>(*Url::parse(server_->url(path)),
                                                  ZMPlaybackSourceOptions(false));
    }

    inline static std::unique_ptr<origin::StreamCorpus> corpus_;
    test::TempHome home_;
    std::unique_ptr<test::StaticFileServer> server_;
};

TEST_P(StreamCorpusTest, PlaysToItsEndByItsMasterAndByItsMediaPlaylist) {
    const Shape& shape = GetParam();
    std::vector<std::unique_ptr<Viewing>> viewings;
    for (const auto& path : {shape.masterPath, shape.mediaPath}) {
        viewings.push_back(std::make_unique<Viewing>(path));
        viewings.back()->open(source(path));
    }
    playAll(viewings, shape.duration);
}

TEST_P(StreamCorpusTest, DownloadsBothWaysAndPlaysOfflineFrameForFrame) {
    const Shape& shape = GetParam();
    auto store = std::make_shared<FPDownloadsStore>();
    auto manager = ZMOfflineManager::make(store);
    auto events = std::make_shared<test::RecordingOfflineDelegate>();
    manager->setDelegate(events);
    manager->getDownloads();
    std::vector<std::shared_ptr<ZMOfflineDownload>> downloads;
    for (const auto& path : {shape.masterPath, shape.mediaPath}) {
        manager->startDownload(shape.name, *Url::parse(server_->url(path)), std::nullopt,
                               std::nullopt, std::nullopt, std::nullopt, std::nullopt, {},
                               [&](const std::shared_ptr<ZMOfflineDownload>& download,
                                   const std::optional<Error>& error) {
                                   EXPECT_FALSE(error);
                                   downloads.push_back(download);
                               });
    }
    ASSERT_TRUE(waitFor([&] { return events->finished.size() + events->errors.size() == 2; }));
    for (const auto& [id, error] : events->errors) {
        ADD_FAILURE() << error.description();
    }
    ASSERT_EQ(downloads.size(), 2u);
    for (const auto& download : manager->getDownloads()) {
        EXPECT_EQ(download->state(), ZMOfflineDownloadState::completed) << download->title();
    }

    // Each media playlist of a package decodes like the playlist of the stream it came from.
    auto packageOf = [&](const std::shared_ptr<ZMOfflineDownload>& download) {
        return AppDirectories::home() / download->offlineUrl()->decodedPath();
    };
    const bool byMaster = downloads[0]->url().absoluteString() == server_->url(shape.masterPath);
    const auto& master = byMaster ? downloads[0] : downloads[1];
    const auto& media = byMaster ? downloads[1] : downloads[0];
    std::vector<std::pair<fs::path, std::string>> compared;
    for (const auto& [folder, path] : shape.packaged) {
        compared.emplace_back(packageOf(master) / folder / "index.m3u8", server_->url(path));
    }
    compared.emplace_back(packageOf(media) / "video" / "index.m3u8", server_->url(shape.mediaPath));
    std::vector<std::string> online;
    for (const auto& [local, url] : compared) {
        online.push_back(frames(url));
    }
    server_->stop();
    for (std::size_t i = 0; i < compared.size(); ++i) {
        const std::string local = frames(compared[i].first.string());
        EXPECT_NE(local.find(", "), std::string::npos) << local;
        EXPECT_EQ(local, online[i]) << compared[i].first;
    }

    // Both packages play from disk to their end with no server to answer.
    std::vector<std::unique_ptr<Viewing>> viewings;
    for (const auto& download : {master, media}) {
        viewings.push_back(
            std::make_unique<Viewing>("offline " + download->url().absoluteString()));
        viewings.back()->open(std::make_shared<ZMOfflinePlaybackSource>(download));
    }
    playAll(viewings, shape.duration);
}

INSTANTIATE_TEST_SUITE_P(Shapes, StreamCorpusTest,
                         ::testing::ValuesIn(origin::StreamCorpus::shapes()), shapeName);

// A live encoder's sliding window of five 2 s segments, whose old segments vanish as it moves:
// playback by the media playlist and by a master over it goes on for half a minute, three
// windows' worth, without waiting once it has started.
TEST(LiveStreamTest, ASlidingWindowPlaysOnForHalfAMinuteByItsMediaPlaylistAndByAMaster) {
    constexpr double watched = 30;
    test::TempHome home;
    origin::LivePackager packager(home.path() / "live", static_cast<int>(watched) + 40);
    ASSERT_TRUE(packager.started()) << "ffmpeg did not start";
    ASSERT_TRUE(waitFor([&] { return packager.segmentsListed() >= 3; }));
    test::StaticFileServer server(home.path());

    std::vector<std::unique_ptr<Viewing>> viewings;
    for (const std::string path : {"/live/index.m3u8", "/live/master.m3u8"}) {
        viewings.push_back(std::make_unique<Viewing>(path));
        viewings.back()->open(std::make_shared<ZMPlaybackSource>(*Url::parse(server.url(path)),
                                                                 ZMPlaybackSourceOptions(true)));
    }
    auto playing = [](const Viewing& viewing) {
        return viewing.player->playbackStatus() == ZMPlaybackStatus::playing;
    };
    ASSERT_TRUE(waitFor([&] { return playing(*viewings[0]) && playing(*viewings[1]); }));
    std::vector<std::size_t> ticksAtStart;
    std::vector<std::size_t> statusesAtStart;
    for (const auto& viewing : viewings) {
        ticksAtStart.push_back(viewing->recorder->ticks.size());
        statusesAtStart.push_back(viewing->recorder->playback.size());
    }
    const auto started = std::chrono::steady_clock::now();
    waitFor([] { return false; }, std::chrono::milliseconds(static_cast<int>(watched * 1000)));
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_TRUE(packager.firstSegmentDeleted());

    for (std::size_t v = 0; v < viewings.size(); ++v) {
        const auto& viewing = *viewings[v];
        SCOPED_TRACE(viewing.label);
        for (const auto& error : viewing.recorder->errors) {
            ADD_FAILURE() << error.description();
        }
        EXPECT_EQ(viewing.player->playbackStatus(), ZMPlaybackStatus::playing);
        const auto& statuses = viewing.recorder->playback;
        EXPECT_EQ(std::count(statuses.begin() + statusesAtStart[v], statuses.end(),
                             ZMPlaybackStatus::waiting),
                  0)
            << "it waited after the start";
        // The media time kept pace with the clock, tick after tick.
        const auto& ticks = viewing.recorder->ticks;
        ASSERT_GT(ticks.size(), ticksAtStart[v] + 2 * static_cast<std::size_t>(watched) - 10);
        const double advanced = ticks.back().time - ticks[ticksAtStart[v]].time;
        EXPECT_GT(advanced, elapsed - 2.0);
        for (std::size_t i = ticksAtStart[v] + 1; i < ticks.size(); ++i) {
            EXPECT_LT(ticks[i].time - ticks[i - 1].time, 1.0) << "a jump at tick " << i;
            EXPECT_GE(ticks[i].time, ticks[i - 1].time - 1e-6) << i;
        }
    }
}

}  // namespace
}  // namespace zarvo
