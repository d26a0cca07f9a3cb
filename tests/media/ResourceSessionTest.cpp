// Segments through the loopback resource server against a scripted origin: byte ranges whether
// or not the origin honours them, unknown lengths, failures and their errors (an unfollowed
// redirect among them), the transfers reported, close() ending a transfer that waits on the
// origin and awaiting the answers under way, and the requests the server refuses.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <netinet/in.h>
#include <set>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/media/loopback/TransferGate.h"
#include "zarvo/media/model/MediaEngine.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/CurlHandles.h"
#include "zarvo/platform/UrlError.h"

#include "support/MainLoopWait.h"
#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using Kind = ResourceSession::Kind;

constexpr auto safetyTimeout = 20s;

struct TestEngineKey : MediaEngine {
    static MediaEngineKey get() { return key(); }
};

std::string bodyOf(std::size_t length) {
    std::string body;
    for (std::size_t i = 0; i < length; ++i) {
        body.push_back(static_cast<char>('a' + (i * 7) % 26));
    }
    return body;
}

// Spins until `condition` holds; false after the safety time-out.
template <typename Condition>
bool eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + safetyTimeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// GET with curl: the status (0 when the transfer broke off) and the body. `received` counts
// the body bytes as they arrive.
std::pair<long, std::string> get(const std::string& url,
                                 std::atomic<std::size_t>* received = nullptr) {
    struct Sink {
        std::string body;
        std::atomic<std::size_t>* received;
    } sink{{}, received};
    CurlEasy curl(curl_easy_init());
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, 20000L);
    curl_easy_setopt(
        curl.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t, size_t count, void* to) {
            auto* sink = static_cast<Sink*>(to);
            sink->body.append(data, count);
            if (sink->received != nullptr) {
                *sink->received += count;
            }
            return count;
        });
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &sink);
    long status = 0;
    if (curl_easy_perform(curl.get()) == CURLE_OK) {
        curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    }
    return {status, sink.body};
}

// A connection of its own to the loopback port of `url`, held open until it goes.
class RawClient {
public:
    explicit RawClient(const std::string& url) : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(Url::parse(url)->port().value_or(80)));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval wait{std::chrono::seconds(safetyTimeout).count(), 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        connected_ =
            ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { ::close(fd_); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // Sends `head` and returns the first line of the answer ("" when none came within the
    // safety time-out); the rest of the answer is left unread.
    std::string ask(const std::string& head) {
        std::string answer;
        if (connected_ && ::send(fd_, head.data(), head.size(), MSG_NOSIGNAL) ==
                              static_cast<ssize_t>(head.size())) {
            char buffer[512];
            ssize_t got = 0;
            while (answer.find("\r\n") == std::string::npos &&
                   (got = ::recv(fd_, buffer, sizeof buffer, 0)) > 0) {
                answer.append(buffer, static_cast<std::size_t>(got));
            }
        }
        return answer.substr(0, answer.find("\r\n"));
    }

private:
    int fd_;
    bool connected_ = false;
};

std::string statusLineFor(const std::string& url, const std::string& head) {
    return RawClient(url).ask(head);
}

struct SessionRecorder : ResourceSession::Observer {
    void playlistServed(const ResourceSession::PlaylistServed&) override {}
    void transferred(const ResourceSession::Transfer& transfer) override {
        std::lock_guard lock(mutex);
        transfers.push_back(transfer);
    }
    void failed(const Error&) override {}
    std::size_t count() {
        std::lock_guard lock(mutex);
        return transfers.size();
    }

    std::mutex mutex;
    std::vector<ResourceSession::Transfer> transfers;
};

class ResourceSessionTest : public ::testing::Test {
protected:
    ResourceSessionTest() {
        // httplib answers ranges of a whole body itself; a chunked body goes out whole.
        origin_.Get("/whole.ts", [this](const httplib::Request&, httplib::Response& response) {
            response.set_content(body_, "video/mp2t");
        });
        origin_.Get("/chunked.ts", [this](const httplib::Request&, httplib::Response& response) {
            response.status = 200;
            response.set_chunked_content_provider(
                "video/mp2t", [this](std::size_t offset, httplib::DataSink& sink) {
                    if (offset == body_.size()) {
                        sink.done();
                        return true;
                    }
                    return sink.write(body_.data() + offset,
                                      std::min<std::size_t>(700, body_.size() - offset));
                });
        });
        // Sends a few bytes, then waits until released.
        origin_.Get("/stall.ts", [this](const httplib::Request&, httplib::Response& response) {
            response.status = 200;
            response.set_chunked_content_provider(
                "video/mp2t", [this](std::size_t, httplib::DataSink& sink) {
                    sink.write("ts", 2);
                    std::unique_lock lock(mutex_);
                    released_.wait(lock, [&] { return release_; });
                    return false;
                });
        });
        // A redirect with nowhere to go.
        origin_.Get("/moved.ts", [](const httplib::Request&, httplib::Response& response) {
            response.status = 302;
            response.set_content("moved", "text/plain");
        });
        // Connections kept open by clients hold the origin's stop back this long.
        origin_.set_keep_alive_timeout(1);
        port_ = origin_.bind_to_any_port("127.0.0.1");
        listener_ = std::thread([this] { origin_.listen_after_bind(); });
        auto asset = UrlAsset::make(url("/index.m3u8"));
        session_ = ResourceSession::open(asset, AssetLoader::start(asset, TestEngineKey::get()),
                                         recorder_, DispatchQueue::serial("test.observer"));
    }
    ~ResourceSessionTest() override {
        session_->close();
        {
            std::lock_guard lock(mutex_);
            release_ = true;
        }
        released_.notify_all();
        origin_.stop();
        listener_.join();
    }

    Url url(const std::string& path) const {
        return *Url::parse("http://127.0.0.1:" + std::to_string(port_) + path);
    }
    std::string served(const std::string& path,
                       std::optional<HlsPlaylistRewriter::ByteRange> range = {}) const {
        return session_->urlFor(Kind::segment, url(path), range);
    }

    const std::string body_ = bodyOf(5000);
    httplib::Server origin_;
    int port_ = 0;
    std::thread listener_;
    std::mutex mutex_;
    std::condition_variable released_;
    bool release_ = false;
    std::shared_ptr<SessionRecorder> recorder_ = std::make_shared<SessionRecorder>();
    std::shared_ptr<ResourceSession> session_;
};

// What the pipeline asks for first is read ahead: every variant, every audio rendition, the
// default renditions, and the first subtitles, which the player plays even when none is shown.
TEST(AssetLoaderTest, ReadsAheadTheVariantsTheAudioAndTheSubtitlesAnItemStartsWith) {
    using Response = test::TestHttpServer::Response;
    test::TestHttpServer origin;
    origin.on("/master.m3u8",
              Response::text("#EXTM3U\n"
                             "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"One\",DEFAULT=YES,"
                             "URI=\"a1.m3u8\"\n"
                             "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"Two\",URI=\"a2.m3u8\"\n"
                             "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"First\","
                             "URI=\"s1.m3u8\"\n"
                             "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"Second\","
                             "URI=\"s2.m3u8\"\n"
                             "#EXT-X-STREAM-INF:BANDWIDTH=100000,AUDIO=\"a\",SUBTITLES=\"s\"\n"
                             "v0.m3u8\n"
                             "#EXT-X-STREAM-INF:BANDWIDTH=200000,AUDIO=\"a\",SUBTITLES=\"s\"\n"
                             "v1.m3u8\n"));
    const std::vector<std::string> readAhead = {"/v0.m3u8", "/v1.m3u8", "/a1.m3u8", "/a2.m3u8",
                                                "/s1.m3u8"};
    for (const std::string& path : readAhead) {
        origin.on(path, Response::text("#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nseg.ts\n"
                                       "#EXT-X-ENDLIST\n"));
    }
    auto asset = UrlAsset::make(*Url::parse(origin.url("/master.m3u8")));
    auto loader = AssetLoader::start(asset, TestEngineKey::get());
    ASSERT_TRUE(test::waitFor([&] {
        return std::all_of(readAhead.begin(), readAhead.end(),
                           [&](const std::string& path) { return origin.requestCount(path) == 1; });
    }));
    EXPECT_EQ(origin.requestCount("/s2.m3u8"), 0u);
}

TEST_F(ResourceSessionTest, RangesAndUnknownLengthsPassThroughAndFailuresKeepTheirCause) {
    const HlsPlaylistRewriter::ByteRange range{3000, 1500};
    EXPECT_EQ(get(served("/whole.ts", range)), std::pair(200L, body_.substr(3000, 1500)));
    EXPECT_EQ(get(served("/chunked.ts", range)), std::pair(200L, body_.substr(3000, 1500)))
        << "the origin ignored the range: the bytes before it are skipped";
    EXPECT_EQ(get(served("/chunked.ts")), std::pair(200L, body_));
    ASSERT_TRUE(eventually([&] { return recorder_->count() == 3; }));
    std::multiset<std::int64_t> lengths;
    for (const auto& transfer : recorder_->transfers) {
        lengths.insert(transfer.bytes);
        EXPECT_TRUE(transfer.complete);
        EXPECT_EQ(transfer.kind, Kind::segment);
    }
    EXPECT_EQ(lengths, (std::multiset<std::int64_t>{1500, 1500, 5000}));

    // A failure is known by the time its answer arrives.
    EXPECT_FALSE(session_->lastFailure());
    EXPECT_EQ(get(served("/missing.ts")).first, 404);
    const auto missing = session_->lastFailure();
    ASSERT_TRUE(missing);
    EXPECT_TRUE(isMediaError(*missing, MediaError::resourceUnavailable)) << missing->description();
    EXPECT_EQ(missing->userInfoValue(httpStatusCodeKey), "404");
    EXPECT_EQ(get(served("/moved.ts")).first, 502);
    const auto moved = session_->lastFailure();
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved->userInfoValue(httpStatusCodeKey), "302");
    std::string nowhere = "http://127.0.0.1:9/x.ts";
    EXPECT_EQ(get(session_->urlFor(Kind::segment, *Url::parse(nowhere))).first, 502);
    const auto unreachable = session_->lastFailure();
    ASSERT_TRUE(unreachable);
    EXPECT_TRUE(isMediaError(*unreachable, MediaError::networkFailure));
    ASSERT_NE(unreachable->innerError(), nullptr);
    EXPECT_TRUE(isUrlError(*unreachable->innerError(), UrlError::cannotConnectToHost));
}

TEST_F(ResourceSessionTest, CloseEndsATransferWaitingOnTheOrigin) {
    std::atomic<std::size_t> received{0};
    auto fetch =
        std::async(std::launch::async, [&] { return get(served("/stall.ts"), &received); });
    ASSERT_TRUE(eventually([&] { return received == 2; })) << "the first bytes came through";
    session_->close();
    ASSERT_EQ(fetch.wait_for(safetyTimeout), std::future_status::ready);
    EXPECT_EQ(fetch.get().first, 0) << "the answer broke off";
    ASSERT_TRUE(eventually([&] { return recorder_->count() == 1; }));
    EXPECT_FALSE(recorder_->transfers.at(0).complete);
    EXPECT_EQ(get(served("/whole.ts")).first, 404);
}

// The demuxer cannot be stopped while it waits for a playlist: one that it asked for just as
// the session closed is still answered, and its answer counts until the demuxer has read it.
TEST_F(ResourceSessionTest, APlaylistAskedForAsTheSessionClosesIsAwaitedUntilItsAnswerIsRead) {
    const std::string playlist = session_->urlFor(Kind::variantPlaylist, url("/index.m3u8"));
    session_->close();
    auto client = std::make_unique<RawClient>(playlist);
    const std::string path = playlist.substr(playlist.find('/', std::string("http://").size()));
    EXPECT_EQ(client->ask("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"),
              "HTTP/1.1 404 Not Found");
    EXPECT_FALSE(session_->awaitAnswersRead(0ms)) << "the client has not hung up yet";
    client.reset();
    EXPECT_TRUE(session_->awaitAnswersRead(safetyTimeout));
}

// A segment is under way until its client has read it and hung up, not only until it was sent:
// a seek waits for the demuxer to have taken in every body.
TEST_F(ResourceSessionTest, ASegmentIsUnderWayUntilItsClientHasHungUp) {
    const std::string segment = served("/whole.ts");
    auto client = std::make_unique<RawClient>(segment);
    const std::string path = segment.substr(segment.find('/', std::string("http://").size()));
    EXPECT_EQ(client->ask("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"),
              "HTTP/1.1 200 OK");
    ASSERT_TRUE(eventually([&] { return recorder_->count() == 1; })) << "the body went out";
    const auto gate = session_->transferGate();
    EXPECT_FALSE(gate->settled(0));
    client.reset();
    EXPECT_TRUE(eventually([&] { return gate->settled(0); }));
}

// A live stream names new segments for as long as it plays: the session forgets the oldest
// segments past a bound, never its playlists.
TEST_F(ResourceSessionTest, ALongLiveSessionForgetsItsOldestSegmentsButNotItsPlaylists) {
    const std::string playlist = session_->urlFor(Kind::variantPlaylist, url("/live.m3u8"));
    const std::string first = served("/whole.ts");
    EXPECT_EQ(get(first).first, 200);
    for (int i = 0; i < 20000; ++i) {
        served("/segment" + std::to_string(i) + ".ts");
    }
    EXPECT_EQ(get(first).first, 404);
    EXPECT_EQ(session_->urlFor(Kind::variantPlaylist, url("/live.m3u8")), playlist);
    EXPECT_NE(served("/whole.ts"), first) << "written again, it gets a new reference";
    EXPECT_EQ(get(served("/whole.ts")).first, 200);
}

// The server answers only what a session wrote: a resource under another token, a reference
// the session never wrote, a file outside the asset's folder, a method other than GET and HEAD
// (before its body is read) and an oversized path are refused, and the session serves on.
TEST_F(ResourceSessionTest, OnlyWhatTheSessionWroteIsServed) {
    const std::string good = served("/whole.ts");
    EXPECT_EQ(get(good).first, 200);
    const auto tokenAt = good.find('/', std::string("http://").size()) + 1;
    std::string otherToken = good;
    otherToken[tokenAt] = otherToken[tokenAt] == '0' ? '1' : '0';
    EXPECT_EQ(get(otherToken).first, 404);
    const std::string base = good.substr(0, good.find('/', tokenAt) + 1);
    EXPECT_EQ(get(base + "999999/x.ts").first, 404);
    EXPECT_EQ(get(base + "0x1/x.ts").first, 404);
    EXPECT_EQ(get(base + std::string(200'000, '1') + "/x.ts").first, 414);
    std::string manyFields = "GET " + good.substr(good.find('/', tokenAt - 1)) + " HTTP/1.1\r\n";
    for (int i = 0; i < 100; ++i) {
        manyFields += "X-Field-" + std::to_string(i) + ": 1\r\n";
    }
    EXPECT_EQ(statusLineFor(good, manyFields + "\r\n"),
              "HTTP/1.1 431 Request Header Fields Too Large");
    EXPECT_EQ(statusLineFor(good, "GET / HTTP/1.1\r\nX-Long: " + std::string(20'000, 'a')),
              "HTTP/1.1 431 Request Header Fields Too Large");
    EXPECT_EQ(statusLineFor(good, "GARBAGE\r\n\r\n"), "HTTP/1.1 400 Bad Request");

    const std::string path = good.substr(good.find('/', std::string("http://").size()));
    EXPECT_EQ(statusLineFor(good, "POST " + path +
                                      " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: "
                                      "1000000000\r\n\r\n"),
              "HTTP/1.1 405 Method Not Allowed");
    EXPECT_EQ(statusLineFor(good, "HEAD " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"),
              "HTTP/1.1 200 OK");

    test::TempHome home;
    const auto folder = home.path() / "package";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "master.m3u8") << "#EXTM3U\n";
    std::ofstream(folder / "seg.ts") << body_;
    std::ofstream(home.path() / "secret.txt") << "not for the pipeline";
    auto asset = UrlAsset::make(Url::fileUrl((folder / "master.m3u8").string()));
    auto local = ResourceSession::open(asset, AssetLoader::start(asset, TestEngineKey::get()),
                                       recorder_, DispatchQueue::serial("test.local"));
    EXPECT_EQ(get(local->urlFor(Kind::segment, Url::fileUrl((folder / "seg.ts").string()))),
              std::pair(200L, body_));
    EXPECT_EQ(get(local->urlFor(Kind::segment, Url::fileUrl((home.path() / "secret.txt").string())))
                  .first,
              403);
    EXPECT_EQ(
        get(local->urlFor(Kind::segment, Url::fileUrl((folder / ".." / "secret.txt").string())))
            .first,
        403);
    local->close();
    EXPECT_EQ(get(good).first, 200);
}

}  // namespace
}  // namespace zarvo
