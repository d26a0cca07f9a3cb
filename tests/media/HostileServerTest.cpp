// Servers that do not behave: bodies without end, bodies that are no playlists, an answer that
// never comes. Each fails the item with an error to the delegate, soon and without growing the
// process; and a host that switches from item to item hears nothing of the items it left.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "origin/AdCue.h"
#include "origin/StreamCorpus.h"
#include "support/MainLoopWait.h"
#include "support/RecordingPlayerDelegate.h"
#include "support/StaticFileServer.h"
#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using Response = test::TestHttpServer::Response;

using test::waitFor;

// Whether the memory of the process tells what it holds: AddressSanitizer keeps freed blocks
// in quarantine, and ThreadSanitizer's shadow grows with every address the process touches.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool memoryTells = false;
#else
constexpr bool memoryTells = true;
#endif

// Kilobytes of this process's memory from /proc/self/status ("VmRSS", "VmHWM").
long memoryKb(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) {
            return std::stol(line.substr(field.size() + 1));
        }
    }
    return -1;
}

class HostileServerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        auto prepared = origin::StreamCorpus::prepare();
        ASSERT_TRUE(std::holds_alternative<origin::StreamCorpus>(prepared));
        corpus_ = std::make_unique<origin::StreamCorpus>(std::get<origin::StreamCorpus>(prepared));
    }
    static void TearDownTestSuite() { corpus_.reset(); }

    void SetUp() override {
        ASSERT_TRUE(corpus_);
        player_->setDelegate(recorder_);
    }

    void open(const std::string& url) {
        player_->open(
            std::make_shared<ZMPlaybackSource>(*Url::parse(url), ZMPlaybackSourceOptions(false)),
            true);
    }
    bool playing() const { return player_->playbackStatus() == ZMPlaybackStatus::playing; }

    inline static std::unique_ptr<origin::StreamCorpus> corpus_;
    test::TempHome home_;
    test::TestHttpServer server_;
    std::shared_ptr<test::RecordingPlayerDelegate> recorder_ =
        std::make_shared<test::RecordingPlayerDelegate>();
    std::shared_ptr<ZMPlayer> player_ = ZMPlayer::make();
};

TEST_F(HostileServerTest, EndlessAndForeignBodiesFailTheItemSoonAndTheProcessStaysSmall) {
    // The size of the process once it has played something.
    test::StaticFileServer files(corpus_->directory());
    open(files.url("/ts/index.m3u8"));
    ASSERT_TRUE(waitFor([&] { return playing() && player_->currentTime() > 0.5; }));
    const long normalKb = memoryKb("VmRSS");

    Response endless =
        Response::text("#EXTM3U\n#EXT-X-VENDOR:" + std::string(64 * 1024, 'x') + "\n");
    endless.endless = true;
    endless.contentType = "application/vnd.apple.mpegurl";
    const std::string master = "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=300000\nindex.m3u8\n";
    server_.on("/endless/master.m3u8", endless);
    server_.on("/endless-media/master.m3u8", Response::text(master));
    server_.on("/endless-media/index.m3u8", endless);
    server_.on("/foreign/master.m3u8", Response::text("<html><body>Moved</body></html>"));
    server_.on("/foreign-media/master.m3u8", Response::text(master));
    server_.on("/foreign-media/index.m3u8", Response::text(std::string(2048, '\0')));
    // A segment that goes on repeating itself: the pipeline would take it all in.
    server_.on("/endless-segment/master.m3u8", Response::text(master));
    server_.on("/endless-segment/index.m3u8",
               Response::text("#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-PLAYLIST-TYPE:VOD\n"
                              "#EXTINF:2.0,\nseg0.ts\n#EXT-X-ENDLIST\n"));
    Response segments = Response::text(*DataFile::read(corpus_->directory() / "ts" / "seg0.ts"));
    segments.endless = true;
    segments.contentType = "video/mp2t";
    server_.on("/endless-segment/seg0.ts", segments);

    struct Case {
        std::string path;
        long code;  // of the inner transport error, 0 for a playlist that is not one
    };
    for (const Case& bad :
         {Case{"/endless/master.m3u8", -1103}, Case{"/endless-media/master.m3u8", -1103},
          Case{"/endless-segment/master.m3u8", -1103}, Case{"/foreign/master.m3u8", 0},
          Case{"/foreign-media/master.m3u8", 0}}) {
        SCOPED_TRACE(bad.path);
        recorder_->errors.clear();
        recorder_->itemStatuses.clear();
        open(server_.url(bad.path));
        ASSERT_TRUE(waitFor([&] { return recorder_->itemFailed(); }, 10s));
        ASSERT_FALSE(recorder_->errors.empty());
        const Error& error = recorder_->errors.front();
        EXPECT_EQ(recorder_->errorsAndItems.back(), "item");
        if (bad.code != 0) {
            ASSERT_TRUE(error.innerError()) << error.description();
            EXPECT_TRUE(isUrlError(*error.innerError(), UrlError::dataLengthExceedsMaximum))
                << error.description();
        } else {
            EXPECT_NE(error.localizedDescription().find("is not an HLS playlist"),
                      std::string::npos)
                << error.description();
        }
    }
    if (memoryTells) {
        EXPECT_LT(memoryKb("VmHWM") - normalKb, 100 * 1024) << "kB above the size after playing";
    }
}

TEST_F(HostileServerTest, AServerThatNeverAnswersFailsTheItemAfterTheSessionTimeOut) {
    auto clock = ManualScheduler::create();
    ScopedStandardScheduler scoped(clock);
    Response silent = Response::text("#EXTM3U\n");
    silent.delaySeconds = 3600;  // until the server stops
    server_.on("/silent/master.m3u8", silent);
    open(server_.url("/silent/master.m3u8"));
    ASSERT_TRUE(waitFor([&] { return server_.requestCount("/silent/master.m3u8") > 0; }));
    clock->advance(59s);
    RunLoop::main().runUntilIdle();
    EXPECT_FALSE(recorder_->itemFailed());
    clock->advance(2s);
    ASSERT_TRUE(waitFor([&] { return recorder_->itemFailed(); }));
    ASSERT_FALSE(recorder_->errors.empty());
    const auto inner = recorder_->errors.front().innerError();
    ASSERT_TRUE(inner) << recorder_->errors.front().description();
    EXPECT_TRUE(isUrlError(*inner, UrlError::timedOut)) << inner->description();
}

// The pipeline waits for playlists and keys with a thread held, and stopping it waits for them:
// leaving an item whose playlist or key is on its way from an origin that does not answer must
// neither hold the host until the pipeline gives up on it nor break the pipeline, and the next
// item plays.
TEST_F(HostileServerTest, AnItemLeftWhileItsPlaylistOrKeyIsOnTheWayIsLeftAtOnce) {
    test::StaticFileServer files(corpus_->directory());
    const auto aes = corpus_->directory() / "aes";
    const std::string playlist = *DataFile::read(aes / "index.m3u8");
    Response silent = Response::text("");
    silent.delaySeconds = 3600;  // until the server stops
    const Response master =
        Response::text("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=300000\nindex.m3u8\n");
    server_.on("/slow-playlist/master.m3u8", master);
    server_.on("/slow-playlist/index.m3u8", silent);
    server_.on("/slow-key/master.m3u8", master);
    server_.on("/slow-key/index.m3u8", Response::text(playlist));
    server_.on("/slow-key/key.bin", silent);
    for (const auto& entry : std::filesystem::directory_iterator(aes)) {
        if (entry.path().extension() == ".ts") {
            Response segment = Response::text(*DataFile::read(entry.path()));
            segment.contentType = "video/mp2t";
            server_.on("/slow-key/" + entry.path().filename().string(), segment);
        }
    }
    for (const std::string waitedOn : {"/slow-playlist/index.m3u8", "/slow-key/key.bin"}) {
        SCOPED_TRACE(waitedOn);
        open(server_.url(waitedOn.substr(0, waitedOn.rfind('/')) + "/master.m3u8"));
        ASSERT_TRUE(server_.waitForRequests(waitedOn, 1, 10s));
        // Time for the pipeline to ask for it as well, and wait.
        waitFor([] { return false; }, 300ms);
        const auto left = std::chrono::steady_clock::now();
        open(files.url("/ts/index.m3u8"));
        EXPECT_TRUE(waitFor([&] { return playing() && player_->currentTime() > 0.3; }, 5s));
        EXPECT_LT(std::chrono::steady_clock::now() - left, 5s);
    }
}

// A host that may switch items from inside a delegate call: the hook runs once, at the first
// call of its kind.
struct SwitchingRecorder : test::RecordingPlayerDelegate {
    std::function<void()> onBitrate, onTick;
    std::vector<std::string> loggedUris;  // of every access-log event delivered, in order

    void playerDidOccurAccessLogEvents(
        ZMPlayer&, const std::vector<PlayerItemAccessLogEvent>& events) override {
        for (const auto& event : events) {
            loggedUris.push_back(event.uri);
        }
    }
    void playerDidChangeIndicatedBitrate(ZMPlayer& player, double bitrate) override {
        RecordingPlayerDelegate::playerDidChangeIndicatedBitrate(player, bitrate);
        if (auto hook = std::exchange(onBitrate, nullptr)) {
            hook();
        }
    }
    void playerCurrentTime(ZMPlayer& player, double time, double duration) override {
        RecordingPlayerDelegate::playerCurrentTime(player, time, duration);
        if (auto hook = std::exchange(onTick, nullptr)) {
            hook();
        }
    }
};

// Item A, opened again and again and left for B while it loads or plays (from inside A's own
// delegate calls too, while more of A's news waits on the main queue): a stream that names a
// start point, an ad break over every date, a bitrate of its own and a segment that fails. B,
// with its programme dates inside that break, must hear none of it.
TEST_F(HostileServerTest, NoNewsOfALeftItemReachesTheHostAfterTheNextIsOpened) {
    auto recorder = std::make_shared<SwitchingRecorder>();
    player_->setDelegate(recorder);
    test::StaticFileServer files(corpus_->directory());
    const std::string b = files.url("/program-date-time/master.m3u8");
    const origin::AdCue cue{7, Date::fromReferenceDate(0), 2e9};
    server_.on("/a/master.m3u8",
               Response::text("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=111000\nindex.m3u8\n"));
    Response media = Response::text(
        "#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-TARGETDURATION:2\n#EXT-X-START:TIME-OFFSET=2\n"
        "#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-PROGRAM-DATE-TIME:2030-01-01T00:00:00Z\n" +
        cue.dateRangeTag() +
        "\n#EXTINF:2.0,\nseg0.ts\n#EXTINF:2.0,\nseg1.ts\n#EXTINF:2.0,\nseg2.ts\n#EXT-X-ENDLIST\n");
    media.delaySeconds = 0.05;
    server_.on("/a/index.m3u8", media);
    for (const char* name : {"seg0.ts", "seg1.ts"}) {
        Response segment = Response::text(*DataFile::read(corpus_->directory() / "ts" / name));
        segment.contentType = "video/mp2t";
        server_.on(std::string("/a/") + name, segment);
    }
    server_.on("/a/seg2.ts", Response::text("gone", 404));

    struct Marks {
        std::size_t ticks = 0, bitrates = 0, items = 0, errors = 0, events = 0, uris = 0;
    };
    std::optional<Marks> marks;
    auto switchToB = [&] {
        marks =
            Marks{recorder->ticks.size(),  recorder->bitrates.size(), recorder->itemStatuses.size(),
                  recorder->errors.size(), recorder->events.size(),   recorder->loggedUris.size()};
        open(b);
    };
    const std::chrono::milliseconds waits[] = {0ms, 5ms, 20ms, 60ms, 150ms, 400ms, 900ms};
    for (int round = 0; round < 50; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        marks.reset();
        recorder->onBitrate = nullptr;
        recorder->onTick = nullptr;
        const std::size_t segmentsAsked = server_.requestCount("/a/seg1.ts");
        open(server_.url("/a/master.m3u8"));
        if (round % 4 == 3) {
            // The main thread busy while A reads its playlists and asks for its first segment:
            // everything A has learnt by then waits on the main queue when B comes.
            ASSERT_TRUE(server_.waitForRequests("/a/seg1.ts", segmentsAsked + 1, 10s));
            switchToB();
        } else if (round % 4 == 0) {
            recorder->onBitrate = switchToB;
        } else if (round % 4 == 1) {
            recorder->onTick = [&] {
                if (playing()) {
                    switchToB();
                } else {
                    recorder->onTick = switchToB;
                }
            };
        } else {
            waitFor([] { return false; }, waits[round % std::size(waits)]);
            switchToB();
        }
        ASSERT_TRUE(waitFor([&] {
            return marks && ((playing() && player_->currentTime() > 0.3 &&
                              recorder->ticks.size() > marks->ticks) ||
                             recorder->errors.size() > marks->errors);
        })) << (marks ? "B did not play" : "A never got that far");
        for (auto e = recorder->errors.begin() + marks->errors; e != recorder->errors.end(); ++e) {
            ADD_FAILURE() << e->description();
        }
        for (auto rate = recorder->bitrates.begin() + marks->bitrates;
             rate != recorder->bitrates.end(); ++rate) {
            EXPECT_DOUBLE_EQ(*rate, 290.4);
        }
        for (auto item = recorder->itemStatuses.begin() + marks->items;
             item != recorder->itemStatuses.end(); ++item) {
            EXPECT_EQ(*item, ZMPlayerStatus::readyToPlay);
        }
        EXPECT_EQ(recorder->events.size(), marks->events) << "an ad event of A";
        for (auto uri = recorder->loggedUris.begin() + marks->uris;
             uri != recorder->loggedUris.end(); ++uri) {
            EXPECT_EQ(uri->find("/a/"), std::string::npos) << "A's access log: " << *uri;
        }
        EXPECT_LT(recorder->ticks[marks->ticks].time, 1.0) << "B started at A's start point";
        if (HasFailure()) {
            return;
        }
    }
}

}  // namespace
}  // namespace zarvo
