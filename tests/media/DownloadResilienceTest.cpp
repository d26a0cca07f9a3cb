// The download service when things go wrong between two runs or during one: a power cut that
// left files short, playlists that changed meanwhile, an origin that goes away for a while, an
// answer that refuses, a disk that fills up.
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "zarvo/media/download/AssetDownloadUrlSession.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DurableFile.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/SqliteDatabase.h"

#include "origin/SampleOrigin.h"
#include "origin/StreamCorpus.h"
#include "support/MainLoopWait.h"
#include "support/RecordingDownloadDelegate.h"
#include "support/SmallFilesystem.h"
#include "support/StaticFileServer.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using DownloadRecorder = test::RecordingDownloadDelegate;
using TaskPtr = std::shared_ptr<AggregateAssetDownloadTask>;

using test::waitFor;

void writeText(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string mediaPlaylist(const std::vector<std::string>& segments) {
    std::string text = "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-PLAYLIST-TYPE:VOD\n";
    for (const auto& segment : segments) {
        text += "#EXTINF:2.0,\n" + segment + "\n";
    }
    return text + "#EXT-X-ENDLIST\n";
}

class DownloadResilienceTest : public ::testing::Test {
protected:
    std::shared_ptr<AssetDownloadUrlSession> makeSession(
        AssetDownloadUrlSession::Settings settings = {}) {
        return AssetDownloadUrlSession::make(UrlSessionConfiguration::background("Resilience"),
                                             recorder_, DispatchQueue::main(), std::move(settings));
    }
    // Runs a task for `url` (a stream, or a package to go on with) to its end: its error.
    std::optional<Error> download(AssetDownloadUrlSession& session, const Url& url) {
        const std::size_t ended = recorder_->completions.size();
        auto task = session.makeAggregateAssetDownloadTask(UrlAsset::make(url), {}, "Resilience",
                                                           std::nullopt, {});
        EXPECT_TRUE(task);
        task->resume();
        EXPECT_TRUE(waitFor([&] { return recorder_->completions.size() > ended; }, 60s));
        return recorder_->completions.empty() ? std::nullopt : recorder_->completions.back();
    }
    fs::path package() const { return recorder_->locations.at(0).decodedPath(); }

    test::TempHome home_;
    std::shared_ptr<DownloadRecorder> recorder_ = std::make_shared<DownloadRecorder>();
};

TEST_F(DownloadResilienceTest, ResumeFollowsTheSavedPlanAndFetchesWhatAPowerCutLeftShort) {
    auto prepared = origin::StreamCorpus::prepare();
    ASSERT_TRUE(std::holds_alternative<origin::StreamCorpus>(prepared));
    const fs::path served = home_.path() / "served";
    fs::create_directories(served);
    for (int i = 0; i < 3; ++i) {
        const std::string name = "seg" + std::to_string(i) + ".ts";
        fs::copy_file(std::get<origin::StreamCorpus>(prepared).directory() / "ts" / name,
                      served / name);
    }
    writeText(served / "index.m3u8", mediaPlaylist({"seg0.ts", "seg1.ts", "seg2.ts"}));
    test::StaticFileServer server(served);
    auto session = makeSession();
    ASSERT_EQ(download(*session, *Url::parse(server.url("/index.m3u8"))), std::nullopt);
    const fs::path video = package() / "video";
    std::map<std::string, std::optional<Data>> clean;
    for (const auto& file : test::filesUnder(package())) {
        clean[file] = DataFile::read(package() / file);
    }

    // A power cut: files whose data had not reached the disk come back short or empty, or not
    // at all, and a file being written stays under its temporary name. Meanwhile the stream
    // was packaged again, with other segments in another order.
    fs::resize_file(video / "1.ts", fs::file_size(video / "1.ts") / 2);
    fs::resize_file(video / "2.ts", 0);
    fs::remove(video / "0.ts");
    writeText(video / ("3.ts" + std::string(DurableFile::temporarySuffix)), "half a file");
    writeText(served / "index.m3u8", mediaPlaylist({"seg2.ts", "seg1.ts", "seg0.ts", "seg1.ts"}));
    const std::size_t requestsBefore = server.requestCount();

    ASSERT_EQ(download(*session, Url::fileUrl(package().string(), true)), std::nullopt);
    EXPECT_EQ(server.requestCount() - requestsBefore, 3u) << "the three files cut short, no more";
    EXPECT_EQ(test::filesUnder(package()).size(), clean.size()) << "no leftover";
    for (const auto& [file, bytes] : clean) {
        EXPECT_TRUE(DataFile::read(package() / file) == bytes) << file;
    }
}

TEST_F(DownloadResilienceTest, AnOutageIsWaitedOutAndARefusalEndsTheTaskAtOnce) {
    origin::OriginOptions options;
    auto origin = std::make_unique<origin::SampleOrigin>(options);
    ASSERT_FALSE(origin->start());
    const std::string master = origin->url("/vod/master.m3u8");
    auto session = makeSession();
    ASSERT_EQ(download(*session, *Url::parse(master)), std::nullopt);
    const fs::path cleanPackage = package();

    // The origin goes away in the middle of a download and comes back 12 seconds later on the
    // same port: the task waits it out.
    origin::Fault slow;
    slow.pathPrefix = "/vod/";
    slow.bytesPerSecond = 400'000;
    origin->faults().add(slow);
    recorder_->locations.clear();
    const std::size_t ended = recorder_->completions.size();
    auto task = session->makeAggregateAssetDownloadTask(UrlAsset::make(*Url::parse(master)), {},
                                                        "Outage", std::nullopt, {});
    task->resume();
    ASSERT_TRUE(waitFor([&] { return recorder_->progress.size() >= 4; }));
    options.port = origin->port();
    origin.reset();
    waitFor([] { return false; }, 12s);
    EXPECT_EQ(recorder_->completions.size(), ended) << "it gave up during the outage";
    origin = std::make_unique<origin::SampleOrigin>(options);
    ASSERT_FALSE(origin->start());
    ASSERT_TRUE(waitFor([&] { return recorder_->completions.size() > ended; }, 60s));
    EXPECT_EQ(recorder_->completions.back(), std::nullopt);
    ASSERT_EQ(test::filesUnder(package()), test::filesUnder(cleanPackage));
    for (const auto& file : test::filesUnder(cleanPackage)) {
        EXPECT_TRUE(DataFile::read(package() / file) == DataFile::read(cleanPackage / file))
            << file;
    }

    // "Come back later" is taken at its word; "forbidden" ends the task at once, naming the
    // status.
    origin::Fault later;
    later.pathPrefix = "/vod/v2/seg3.ts";
    later.status = 429;
    later.count = 2;
    origin->faults().add(later);
    ASSERT_EQ(download(*session, *Url::parse(master)), std::nullopt);
    origin::Fault forbidden;
    forbidden.pathPrefix = "/vod/v2/seg5.ts";
    forbidden.status = 403;
    origin->faults().add(forbidden);
    const auto refused = std::chrono::steady_clock::now();
    auto error = download(*session, *Url::parse(master));
    ASSERT_TRUE(error);
    EXPECT_TRUE(isMediaError(*error, MediaError::resourceUnavailable)) << error->description();
    EXPECT_EQ(error->userInfoValue(httpStatusCodeKey), "403");
    EXPECT_LT(std::chrono::steady_clock::now() - refused, 5s);
}

TEST_F(DownloadResilienceTest, AFullDiskEndsTheTaskKeepsWholeFilesAndTheNextTaskGoesOn) {
    test::SmallFilesystem disk(1);
    if (!disk.mounted()) {
        GTEST_SKIP() << disk.why();
    }
    origin::SampleOrigin origin;
    ASSERT_FALSE(origin.start());
    // The records stay where there is room; the package goes to the small disk.
    AssetDownloadUrlSession::Settings settings;
    settings.store = AssetDownloadStore::open(home_.path() / "records.sqlite");
    AppDirectories::setHome(disk.path() / "home");
    auto session = makeSession(settings);
    auto error = download(*session, *Url::parse(origin.url("/vod/master.m3u8")));
    ASSERT_TRUE(error);
    EXPECT_TRUE(isMediaError(*error, MediaError::writeFailed)) << error->description();
    EXPECT_NE(error->localizedDescription().find("No space left on device"), std::string::npos)
        << error->description();
    const auto kept = test::filesUnder(package());
    EXPECT_FALSE(kept.empty());
    for (const auto& file : kept) {
        EXPECT_EQ(fs::path(file).extension().string().find("partial"), std::string::npos) << file;
    }

    ASSERT_TRUE(disk.resize(32));
    origin.clearRequests();
    ASSERT_EQ(download(*session, Url::fileUrl(package().string(), true)), std::nullopt);
    // Counted once each: under load, a segment can show twice in the origin's log (a request of
    // the interrupted run logged late, or one asked for again).
    std::set<std::string> segments;
    for (const auto& request : origin.requests()) {
        if (request.ends_with(".ts")) {
            segments.insert(request);
        }
    }
    EXPECT_EQ(segments.size(), 31u - kept.size())
        << "only what was not kept; kept: " << testing::PrintToString(kept)
        << "; asked for: " << testing::PrintToString(segments);
    AppDirectories::setHome(home_.path());
}

TEST_F(DownloadResilienceTest, ARecordThatCannotBeWrittenIsReportedAndKeepsItsStoredValue) {
    test::SmallFilesystem disk(1);
    if (!disk.mounted()) {
        GTEST_SKIP() << disk.why();
    }
    auto store = AssetDownloadStore::open(disk.path() / "records.sqlite");
    ASSERT_TRUE(store);
    AssetDownloadStore::TaskRecord record;
    record.session = "Full";
    record.url = "http://127.0.0.1:9/master.m3u8";
    record.package = "Library/package.movpkg";
    record.state = AssetDownloadStore::TaskState::running;
    ASSERT_TRUE(store->insert(record));
    // The disk fills up.
    std::ofstream filler(disk.path() / "filler", std::ios::binary);
    const std::string block(64 * 1024, 'x');
    while (filler.write(block.data(), block.size())) {
    }
    filler.close();
    record.state = AssetDownloadStore::TaskState::completed;
    record.description = std::string(256 * 1024, 'd');
    EXPECT_FALSE(store->update(record));
    ASSERT_TRUE(store->lastWriteError());
    fs::remove(disk.path() / "filler");
    store.reset();
    auto reopened = AssetDownloadStore::open(disk.path() / "records.sqlite");
    const auto tasks = reopened->unfinishedTasks("Full");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(tasks[0].state, AssetDownloadStore::TaskState::running);
}

// Records that an earlier version wrote, without outcomes, read back as they were; the
// outcome of an ended task, with its inner error, reads back whole.
TEST_F(DownloadResilienceTest, RecordsOfAnEarlierVersionGainOutcomesThatReadBackWhole) {
    const fs::path path = home_.path() / "earlier.sqlite";
    {
        auto earlier = SqliteDatabase::open(path);
        ASSERT_TRUE(earlier);
        ASSERT_EQ(earlier->execute(
                      "CREATE TABLE tasks(id INTEGER PRIMARY KEY AUTOINCREMENT, session TEXT NOT "
                      "NULL, description TEXT NOT NULL, url TEXT NOT NULL, headers TEXT NOT NULL, "
                      "title TEXT NOT NULL, renditions TEXT NOT NULL, minimum_bitrate INTEGER, "
                      "package TEXT NOT NULL, state TEXT NOT NULL);"
                      "INSERT INTO tasks(session, description, url, headers, title, renditions, "
                      "package, state) VALUES('Old', 'd', 'http://127.0.0.1:9/m.m3u8', "
                      "'{\"Authorization\":\"x\"}', 'T', '[]', 'p.movpkg', 'running')"),
                  0);
    }
    auto store = AssetDownloadStore::open(path);
    ASSERT_TRUE(store);
    auto tasks = store->unfinishedTasks("Old");
    ASSERT_EQ(tasks.size(), 1u);
    EXPECT_EQ(tasks[0].state, AssetDownloadStore::TaskState::running);
    EXPECT_EQ(tasks[0].headers.at("Authorization"), "x");
    EXPECT_FALSE(tasks[0].outcome);

    tasks[0].state = AssetDownloadStore::TaskState::ended;
    tasks[0].outcome = Error("NSURLErrorDomain", -1005, {{"NSLocalizedDescription", "lost \xff"}},
                             Error::withDescription("inner", 7, "why"));
    ASSERT_TRUE(store->update(tasks[0]));
    const auto again = AssetDownloadStore::open(path)->unfinishedTasks("Old");
    ASSERT_EQ(again.size(), 1u);
    EXPECT_EQ(again[0].state, AssetDownloadStore::TaskState::ended);
    ASSERT_TRUE(again[0].outcome);
    EXPECT_EQ(again[0].outcome->code(), -1005);
    ASSERT_NE(again[0].outcome->innerError(), nullptr);
    EXPECT_EQ(*again[0].outcome->innerError(), Error::withDescription("inner", 7, "why"));
}

}  // namespace
}  // namespace zarvo
