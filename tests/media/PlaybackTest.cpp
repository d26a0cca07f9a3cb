// The GStreamer engine against the sample origin: statuses, seeks, selection, dates, metadata,
// headers, keys, files and faults. Playback runs in real time; the tests wait by running the
// main loop until a condition holds (or a deadline passes).
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <netinet/in.h>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/media/loopback/ResourceServer.h"
#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

#include "origin/AdCue.h"
#include "support/MainLoopWait.h"
#include "support/SampleOriginTest.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using TimeControl = Player::TimeControlStatus;

using test::waitFor;

std::size_t entriesIn(const char* folder) {
    std::error_code error;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder, error), {}));
}

// The socket inodes of the TCP connections that `keep` takes, from /proc/net/tcp:
// "sl local_address rem_address st ... inode", addresses as HEXIP:HEXPORT, st as hex.
std::set<std::string> sockets(
    const std::function<bool(int localPort, int remotePort, int state)>& keep) {
    std::set<std::string> inodes;
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);  // the header
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
            timeout >> inode;
        auto portOf = [](const std::string& address) {
            const auto colon = address.rfind(':');
            return colon == std::string::npos ? -1
                                              : std::stoi(address.substr(colon + 1), nullptr, 16);
        };
        if (keep(portOf(local), portOf(remote), std::stoi(state, nullptr, 16))) {
            inodes.insert(inode);
        }
    }
    return inodes;
}

// The process's open files less its connections with the origin at `port`: those idle in the
// connection cache that the process's sessions share, and the origin's own ends, vary in number
// from one item to the next. Less too what hlsdemux2 keeps of a download that its stop cut
// off: the stop cancels the transfer and ends the download thread before the cancellation is
// handled, so the transfer stays for good, with its cancellable's and its context's wakeups
// (eventfds) and, once it had one, its connection with the resource server (which has closed
// its end). The threads that GLib contexts of our own would come with are counted apart.
std::size_t filesBesidesConnectionsTo(int port) {
    const auto pooled =
        sockets([&](int local, int remote, int) { return local == port || remote == port; });
    const int server = Url::parse(ResourceServer::shared().baseUrl())->port().value_or(0);
    constexpr int closeWait = 8;
    const auto cutOff =
        sockets([&](int, int remote, int state) { return remote == server && state == closeWait; });
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
        const std::string target = fs::read_symlink(entry.path(), error).string();
        const bool isSocket = target.rfind("socket:[", 0) == 0;
        const std::string inode = isSocket ? target.substr(8, target.size() - 9) : "";
        const bool besides = (isSocket && (pooled.count(inode) != 0 || cutOff.count(inode) != 0)) ||
                             target == "anon_inode:[eventfd]";
        count += besides ? 0 : 1;
    }
    return count;
}

// What the process's file descriptors lead to, for a failure message.
std::string openFiles() {
    std::string text;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", error)) {
        text += " " + fs::read_symlink(entry.path(), error).string();
    }
    return text;
}

// One player with an item, and everything they report.
struct Watched {
    std::shared_ptr<Player> player = Player::make();
    std::shared_ptr<PlayerItem> item;
    std::vector<Player::Status> playerStatuses;
    std::vector<TimeControl> controls;
    std::vector<std::optional<Player::WaitingReason>> reasons;
    std::vector<PlayerItem::Status> itemStatuses;
    std::vector<double> ticks;
    std::vector<std::string> notifications;
    std::vector<Observation> tokens;

    explicit Watched(const Url& url, UrlAsset::Options options = {}) {
        tokens.push_back(player->observeStatus([this](auto s) { playerStatuses.push_back(s); }));
        tokens.push_back(player->observeTimeControlStatus([this](auto s) {
            controls.push_back(s);
            reasons.push_back(player->reasonForWaitingToPlay());
        }));
        player->addPeriodicTimeObserver(MediaTime::make(0.5, 1000000000), nullptr,
                                        [this](MediaTime t) { ticks.push_back(t.seconds()); });
        item = PlayerItem::make(UrlAsset::make(url, std::move(options)));
        tokens.push_back(item->observeStatus([this](auto s) { itemStatuses.push_back(s); }));
        for (const char* name :
             {PlayerItem::newAccessLogEntryNotification, PlayerItem::didPlayToEndTimeNotification,
              PlayerItem::failedToPlayToEndTimeNotification}) {
            tokens.push_back(NotificationCenter::defaultCenter().addObserver(
                name, item.get(), nullptr,
                [this](const Notification& n) { notifications.push_back(n.name); }));
        }
    }
    bool ready() const { return item->status() == PlayerItem::Status::readyToPlay; }
    bool failed() const { return item->status() == PlayerItem::Status::failed; }
    double time() const { return player->currentTime().seconds(); }
    bool playingPast(double seconds) const {
        return player->timeControlStatus() == TimeControl::playing && time() > seconds;
    }
    std::size_t count(const char* name) const {
        return std::count(notifications.begin(), notifications.end(), name);
    }
};

class PlaybackTest : public test::SampleOriginTest {
protected:
    Url url(const std::string& path) const { return *Url::parse(origin_->url(path)); }
};

TEST_F(PlaybackTest, VodSeeksExactlyPausesAndPlaysToItsEnd) {
    Watched vod(url("/vod/master.m3u8"));
    vod.player->replaceCurrentItem(vod.item);
    ASSERT_TRUE(waitFor([&] { return vod.ready(); }));
    EXPECT_EQ(vod.playerStatuses, (std::vector{Player::Status::readyToPlay}));
    EXPECT_EQ(vod.itemStatuses, (std::vector{PlayerItem::Status::readyToPlay}));
    EXPECT_NEAR(vod.item->duration().seconds(), 30.0, 0.1);
    EXPECT_EQ(vod.item->currentDate(), std::nullopt) << "the VOD has no programme dates";
    ASSERT_EQ(vod.item->seekableTimeRanges().size(), 1u);

    // The variant playing is the one the log names, at the BANDWIDTH the master gives it.
    ASSERT_TRUE(vod.item->accessLog());
    const auto event = vod.item->accessLog()->events().back();
    bool named = false;
    for (const auto& variant : origin_->content().variants()) {
        if (event.uri == origin_->url("/vod/" + variant.name + "/index.m3u8")) {
            named = true;
            EXPECT_EQ(event.indicatedBitrate, static_cast<double>(variant.bandwidth));
        }
    }
    EXPECT_TRUE(named) << event.uri;
    EXPECT_EQ(event.playbackType, "VOD");
    EXPECT_GE(vod.count(PlayerItem::newAccessLogEntryNotification), 1u);

    std::vector<std::pair<int, bool>> seeks;
    const double frame = 1.0 / 24;
    vod.player->seek(MediaTime::make(10, 600), MediaTime::zero(), MediaTime::zero(),
                     [&](bool finished) { seeks.emplace_back(10, finished); });
    vod.player->seek(MediaTime::make(20, 600), MediaTime::zero(), MediaTime::zero(),
                     [&](bool finished) { seeks.emplace_back(20, finished); });
    ASSERT_TRUE(waitFor([&] { return seeks.size() == 2; }));
    EXPECT_EQ(seeks, (std::vector<std::pair<int, bool>>{{10, false}, {20, true}}));
    EXPECT_NEAR(vod.time(), 20.0, frame);

    vod.player->seek(MediaTime::make(26.5, 600), MediaTime::zero(), MediaTime::zero(),
                     [&](bool finished) { seeks.emplace_back(26, finished); });
    ASSERT_TRUE(waitFor([&] { return seeks.size() == 3; }));
    vod.player->play();
    ASSERT_TRUE(waitFor([&] { return vod.playingPast(27.6); }));
    vod.player->pause();
    const double pausedAt = vod.time();
    EXPECT_EQ(vod.player->timeControlStatus(), TimeControl::paused);
    const std::size_t ticksBefore = vod.ticks.size();
    vod.player->play();
    ASSERT_TRUE(waitFor([&] { return vod.ticks.size() > ticksBefore; }));
    EXPECT_NEAR(vod.ticks[ticksBefore], pausedAt, 0.1) << "nothing moved while paused";

    ASSERT_TRUE(waitFor([&] { return vod.count(PlayerItem::didPlayToEndTimeNotification) == 1; }));
    EXPECT_EQ(vod.player->timeControlStatus(), TimeControl::paused);
    EXPECT_EQ(vod.player->rate(), 0.0f);
    EXPECT_NEAR(vod.time(), 30.0, 0.2);
    // Waiting (loading), then playing, paused, playing again, and paused at the end.
    ASSERT_GE(vod.controls.size(), 4u);
    EXPECT_EQ(vod.controls.back(), TimeControl::paused);
    EXPECT_EQ(std::count(vod.controls.begin(), vod.controls.end(), TimeControl::playing), 2);

    // While playing, a tick falls on every half second of media time (and others on changes
    // of rate or waiting). A busy main loop may run one late, never early and never past the
    // next; the nearest shows the ticks are on the boundaries, not merely half a second apart.
    double nearest = 1.0;
    for (double boundary : {28.0, 28.5, 29.0, 29.5}) {
        double offset = 1.0;
        for (double tick : vod.ticks) {
            if (tick > boundary - 0.04 && tick - boundary < offset) {
                offset = tick - boundary;
            }
        }
        EXPECT_LT(offset, 0.25) << "no tick on " << boundary;
        nearest = std::min(nearest, std::fabs(offset));
    }
    EXPECT_LT(nearest, 0.04);
}

// Each seek flushes the demuxer while it downloads the segments of the seek before: every one
// must land where it was asked to, and the process must live through them all.
TEST_F(PlaybackTest, BackToBackSeeksWhileSegmentsDownloadAllLand) {
    Watched vod(url("/vod/master.m3u8"));
    vod.player->replaceCurrentItem(vod.item);
    vod.player->play();
    ASSERT_TRUE(waitFor([&] { return vod.playingPast(0.2); }));
    for (int i = 0; i < 40; ++i) {
        const int target = (i * 7) % 28;
        std::optional<bool> finished;
        vod.player->seek(MediaTime::make(target, 1), MediaTime::zero(), MediaTime::zero(),
                         [&](bool done) { finished = done; });
        ASSERT_TRUE(waitFor([&] { return finished.has_value(); })) << "seek " << i;
        EXPECT_TRUE(*finished) << "seek " << i;
        EXPECT_NEAR(vod.time(), target, 0.1) << "seek " << i;
    }
}

TEST_F(PlaybackTest, AudioAndSubtitleGroupsComeFromTheMasterAndSelectionSwitchesTheFetch) {
    Watched vod(url("/vod/master.m3u8"));
    vod.player->replaceCurrentItem(vod.item);
    vod.player->play();
    ASSERT_TRUE(waitFor([&] { return vod.playingPast(0.5); }));
    const auto& asset = *vod.item->asset();
    auto audible = asset.mediaSelectionGroup(MediaCharacteristic::audible());
    auto legible = asset.mediaSelectionGroup(MediaCharacteristic::legible());
    ASSERT_TRUE(audible && legible);
    ASSERT_EQ(audible->options().size(), 2u);
    EXPECT_EQ(audible->options()[0].localeIdentifier(), "pol");
    EXPECT_EQ(audible->options()[1].localeIdentifier(), "eng");
    EXPECT_EQ(audible->options()[1].displayName(), "English");
    ASSERT_EQ(legible->options().size(), 1u);
    EXPECT_EQ(legible->options()[0].mediaType(), MediaSelectionOption::MediaType::subtitle);
    EXPECT_EQ(legible->options()[0].localeIdentifier(), "pol");
    const MediaSelection selection = vod.item->currentMediaSelection();
    EXPECT_EQ(selection.selectedMediaOption(*audible), audible->options()[0]);
    EXPECT_EQ(selection.selectedMediaOption(*legible), std::nullopt);

    origin_->clearRequests();
    vod.item->select(audible->options()[1], *audible);
    EXPECT_TRUE(waitFor([&] { return origin_->requestCount("/vod/a_eng/seg") > 0; }));
    EXPECT_EQ(vod.item->currentMediaSelection().selectedMediaOption(*audible),
              audible->options()[1]);
    vod.item->select(legible->options()[0], *legible);
    const double selectedAt = vod.time();
    EXPECT_TRUE(waitFor([&] { return vod.playingPast(selectedAt + 0.5) || vod.failed(); }));
    EXPECT_FALSE(vod.failed());
    EXPECT_EQ(vod.item->currentMediaSelection().selectedMediaOption(*legible),
              legible->options()[0]);
}

// A live origin whose clock stands still: its window does not move, so the test knows which
// segments the engine was served.
class FrozenLiveTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        origin::OriginOptions options;
        options.clock = [] {
            return frozenAt;
        };
        options.schedule.adInterval = 6;
        options.schedule.adDuration = 2;
        origin_ = std::make_unique<origin::SampleOrigin>(options);
        ASSERT_FALSE(origin_->start());
    }
    static void TearDownTestSuite() { origin_.reset(); }

    static constexpr Date frozenAt = Date(1'790'000'003.0);
    inline static std::unique_ptr<origin::SampleOrigin> origin_;
};

class CueCollector : public PlayerItemMetadataCollectorPushDelegate {
public:
    void metadataCollector(PlayerItemMetadataCollector&,
                           const std::vector<DateRangeMetadataGroup>& groups,
                           const std::vector<std::size_t>& added,
                           const std::vector<std::size_t>& modified) override {
        for (std::size_t index : added) {
            ++delivered[groups[index].identifier];
            ASSERT_EQ(groups[index].items.size(), 1u);
            EXPECT_EQ(groups[index].items[0].key, origin::AdCue::attributeName);
        }
        modifiedCount += modified.size();
    }
    std::map<std::string, int> delivered;
    std::size_t modifiedCount = 0;
};

TEST_F(FrozenLiveTest, CurrentDateFollowsTheProgramDateTimeAndEachCueArrivesOnce) {
    Watched live(*Url::parse(origin_->url("/live/master.m3u8")));
    auto cues = std::make_shared<CueCollector>();
    auto collector = PlayerItemMetadataCollector::make();
    collector->setDelegate(cues, DispatchQueue::main());
    live.item->add(collector);
    live.player->replaceCurrentItem(live.item);
    live.player->play();
    ASSERT_TRUE(waitFor([&] { return live.playingPast(0.0) && live.ticks.size() >= 2; }));
    EXPECT_TRUE(live.item->duration().isIndefinite());

    // The window: the last `windowSegments` segments that ended by the frozen time.
    const auto& timeline = origin_->livePlaylist();
    const long long last = timeline.completedSegments(frozenAt) - 1;
    const long long first = last - timeline.schedule().windowSegments + 1;
    const Date windowStart = timeline.segmentStart(first);
    auto date = live.item->currentDate();
    ASSERT_TRUE(date);
    EXPECT_NEAR(date->timeIntervalSince(windowStart), live.time(), 0.05);

    // An exact seek puts a known frame on screen: 1 s into the window's third segment.
    bool seeked = false;
    live.player->seek(MediaTime::make(5, 600), MediaTime::zero(), MediaTime::zero(),
                      [&](bool finished) { seeked = finished; });
    ASSERT_TRUE(waitFor([&] { return seeked; }));
    date = live.item->currentDate();
    ASSERT_TRUE(date);
    EXPECT_NEAR(date->timeIntervalSince(timeline.segmentStart(first + 2)), 1.0, 1.0 / 24);
    EXPECT_GE(live.item->seekableTimeRanges().size(), 1u);

    // The playlist is reloaded while playing; every cue in the window arrives exactly once.
    origin_->clearRequests();
    ASSERT_TRUE(waitFor([&] { return origin_->requestCount("/live/v") >= 2; }));
    const auto expected = origin::AdCue::overlapping(
        timeline.schedule().epoch, timeline.schedule().adInterval, timeline.schedule().adDuration,
        windowStart, timeline.segmentStart(last + 1));
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(cues->delivered.size(), expected.size());
    for (const auto& cue : expected) {
        EXPECT_EQ(cues->delivered["zm-cue-" + std::to_string(cue.index)], 1);
    }
    EXPECT_EQ(cues->modifiedCount, 0u);
}

TEST(PlaybackHeadersTest, HeadersOfTheAssetReachTheOriginOnPlaylistsAndSegments) {
    origin::OriginOptions options;
    options.requiredContentHeaders = {{"X-ZM-Token", "sesame"}};
    origin::SampleOrigin origin(options);
    ASSERT_FALSE(origin.start());
    const Url master = *Url::parse(origin.url("/vod/master.m3u8"));

    Watched with(master, UrlAsset::Options{{{"X-ZM-Token", "sesame"}}});
    with.player->replaceCurrentItem(with.item);
    with.player->play();
    ASSERT_TRUE(waitFor([&] { return with.playingPast(1.0) || with.failed(); }));
    EXPECT_FALSE(with.failed());
    EXPECT_GT(origin.requestCount("/vod/a_pol/seg"), 0u);

    Watched without(master);
    without.player->replaceCurrentItem(without.item);
    ASSERT_TRUE(waitFor([&] { return without.failed(); }));
    const Error error = *without.item->error();
    EXPECT_TRUE(isMediaError(error, MediaError::resourceUnavailable)) << error.description();
    EXPECT_EQ(error.userInfoValue(httpStatusCodeKey), "403");
    EXPECT_EQ(without.count(PlayerItem::failedToPlayToEndTimeNotification), 1u);
    EXPECT_EQ(without.player->status(), Player::Status::readyToPlay) << "the player still works";
}

// Answers "skd" key requests from the origin's licence server, or declines them, or fails.
class KeyDelegate : public AssetResourceLoaderDelegate {
public:
    enum class Mode { answer, decline, fail };
    KeyDelegate(Mode mode, std::string base) : mode_(mode), base_(std::move(base)) {}

    bool shouldWaitForLoadingOfRequestedResource(
        AssetResourceLoader&,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override {
        ++requests;
        if (mode_ == Mode::decline) {
            return false;
        }
        if (mode_ == Mode::fail) {
            request->finishLoading(failure);
            return true;
        }
        auto session = UrlSession::shared();
        session
            ->dataTask(*Url::parse(base_ + "/fps/cert"),
                       [this, request, session](auto data, auto, auto) {
                           auto spc = request->streamingContentKeyRequestData(
                               data.value_or(""), *request->request().url.host());
                           UrlRequest post(*Url::parse(base_ + "/fps/license"));
                           post.httpMethod = "POST";
                           post.httpBody = std::get<Data>(spc);
                           session
                               ->dataTask(post,
                                          [request](auto ckc, auto, auto) {
                                              request->dataRequest()->respond(ckc.value_or(""));
                                              request->finishLoading();
                                          })
                               ->resume();
                       })
            ->resume();
        return true;
    }

    const Error failure = Error::withDescription("TestKeys", 42, "No key for you.");
    int requests = 0;

private:
    Mode mode_;
    std::string base_;
};

TEST_F(PlaybackTest, ProtectedContentPlaysWithTheDelegatesKeyAndFailsWithItsError) {
    std::map<KeyDelegate::Mode, std::shared_ptr<KeyDelegate>> delegates;
    for (auto mode :
         {KeyDelegate::Mode::answer, KeyDelegate::Mode::decline, KeyDelegate::Mode::fail}) {
        auto delegate = std::make_shared<KeyDelegate>(mode, origin_->baseUrl());
        Watched watched(url("/protected/master.m3u8"));
        watched.item->asset()->resourceLoader()->setDelegate(delegate,
                                                             DispatchQueue::serial("test.keys"));
        watched.player->replaceCurrentItem(watched.item);
        watched.player->play();
        ASSERT_TRUE(waitFor([&] { return watched.playingPast(1.0) || watched.failed(); }));
        if (mode == KeyDelegate::Mode::answer) {
            EXPECT_FALSE(watched.failed()) << watched.item->error()->description();
            EXPECT_EQ(delegate->requests, 1) << "one key, asked for once";
            continue;
        }
        ASSERT_TRUE(watched.failed());
        const Error error = *watched.item->error();
        EXPECT_TRUE(isMediaError(error, MediaError::resourceLoadingFailed)) << error.description();
        if (mode == KeyDelegate::Mode::fail) {
            ASSERT_NE(error.innerError(), nullptr);
            EXPECT_EQ(*error.innerError(), delegate->failure);
        }
    }
}

TEST_F(PlaybackTest, AVodCopiedToDiskPlaysWithoutTheNetwork) {
    test::TempHome home;
    fs::copy(origin_->content().directory() / "vod", home.path() / "vod",
             fs::copy_options::recursive);
    origin_->clearRequests();
    Watched file(Url::fileUrl((home.path() / "vod" / "master.m3u8").string()));
    file.player->replaceCurrentItem(file.item);
    file.player->play();
    ASSERT_TRUE(waitFor([&] { return file.playingPast(1.0) || file.failed(); }));
    EXPECT_FALSE(file.failed());
    EXPECT_EQ(file.item->accessLog()->events().back().playbackType, "FILE");
    EXPECT_TRUE(origin_->requests().empty());
}

TEST_F(PlaybackTest, RemovingTheItemStopsFetchingAndDestroyingThePlayerLeavesNothingBehind) {
    auto cycle = [&](bool removeFirst) {
        Watched vod(url("/vod/master.m3u8"));
        vod.player->replaceCurrentItem(vod.item);
        vod.player->play();
        ASSERT_TRUE(waitFor([&] { return vod.playingPast(0.3); }));
        if (removeFirst) {
            vod.player->replaceCurrentItem(nullptr);
            RunLoop::main().runUntilIdle();
            const std::size_t fetched = origin_->requestCount("/vod/");
            EXPECT_EQ(vod.player->reasonForWaitingToPlay(), Player::WaitingReason::noItemToPlay);
            // Another player's work gives time for any stray fetch to show up.
            Watched other(url("/live/master.m3u8"));
            other.player->replaceCurrentItem(other.item);
            ASSERT_TRUE(waitFor([&] { return other.ready(); }));
            EXPECT_EQ(origin_->requestCount("/vod/"), fetched);
        }
    };
    cycle(true);  // also warms up what the process keeps (plugin registry, thread pools)
    RunLoop::main().runUntilIdle();
    const int port = origin_->port();
    const std::size_t threads = entriesIn("/proc/self/task");
    const std::size_t files = filesBesidesConnectionsTo(port);
    cycle(false);
    EXPECT_TRUE(waitFor(
        [&] {
            return entriesIn("/proc/self/task") <= threads &&
                   filesBesidesConnectionsTo(port) <= files;
        },
        5s))
        << entriesIn("/proc/self/task") << " threads (" << threads << " before), "
        << filesBesidesConnectionsTo(port) << " files besides those with the origin (" << files
        << " before):" << openFiles();
}

// Clients that open a connection to the loopback server, send half a request head and stall
// hold no server thread: the item plays on without waiting, and they are closed after a few
// seconds of silence.
TEST_F(PlaybackTest, SixtyFourClientsStallingMidHeadNeitherHoldPlaybackNorStayOpen) {
    Watched vod(url("/vod/master.m3u8"));
    vod.player->replaceCurrentItem(vod.item);
    vod.player->play();
    ASSERT_TRUE(waitFor([&] { return vod.playingPast(1); }));
    const auto server = *Url::parse(ResourceServer::shared().baseUrl());
    std::vector<int> stalled;
    for (int i = 0; i < 64; ++i) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(server.port().value_or(0)));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const std::string half = "GET /" + std::to_string(i) + " HTTP/1.1\r\nHost: 127.0";
        ASSERT_EQ(::send(fd, half.data(), half.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(half.size()));
        stalled.push_back(fd);
    }
    const std::size_t controlsBefore = vod.controls.size();
    const double from = vod.time();
    ASSERT_TRUE(waitFor([&] { return vod.playingPast(from + 6); }));
    EXPECT_EQ(vod.controls.size(), controlsBefore) << "playback never waited";
    auto closedByServer = [](int fd) {
        char byte = 0;
        return ::recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
    };
    EXPECT_TRUE(
        waitFor([&] { return std::all_of(stalled.begin(), stalled.end(), closedByServer); }, 5s));
    for (int fd : stalled) {
        ::close(fd);
    }
}

TEST_F(PlaybackTest, UnreachableAndMissingMastersFailTheItemWithTheirCause) {
    struct Case {
        std::string url;
        MediaError code;
    };
    for (const auto& [address, code] :
         {Case{origin_->url("/vod/missing.m3u8"), MediaError::resourceUnavailable},
          Case{"http://127.0.0.1:9/master.m3u8", MediaError::networkFailure},
          Case{origin_->url("/fps/cert"), MediaError::invalidPlaylist}}) {
        Watched watched(*Url::parse(address));
        watched.player->replaceCurrentItem(watched.item);
        watched.player->play();
        ASSERT_TRUE(waitFor([&] { return watched.failed(); })) << address;
        const Error error = *watched.item->error();
        EXPECT_TRUE(isMediaError(error, code)) << error.description();
        if (code == MediaError::networkFailure) {
            ASSERT_NE(error.innerError(), nullptr);
            EXPECT_TRUE(isUrlError(*error.innerError(), UrlError::cannotConnectToHost));
        }
        EXPECT_EQ(watched.player->timeControlStatus(), TimeControl::paused);
    }
}

TEST_F(PlaybackTest, AMissingElementFailsThePlayerNamingIt) {
    setenv("ZM_VIDEO_SINK", "zmnosuchsink", 1);
    Watched watched(url("/vod/master.m3u8"));
    watched.player->replaceCurrentItem(watched.item);
    unsetenv("ZM_VIDEO_SINK");
    EXPECT_EQ(watched.player->status(), Player::Status::failed);
    ASSERT_TRUE(watched.player->error());
    EXPECT_TRUE(isMediaError(*watched.player->error(), MediaError::missingElement));
    EXPECT_NE(watched.player->error()->localizedDescription().find("zmnosuchsink"),
              std::string::npos);
}

TEST(PlaybackStallTest, AStalledOriginShowsWaitingAndPlaybackResumesWhenItAnswers) {
    origin::SampleOrigin origin;
    ASSERT_FALSE(origin.start());
    Watched live(*Url::parse(origin.url("/live/master.m3u8")));
    live.player->replaceCurrentItem(live.item);
    live.player->play();
    ASSERT_TRUE(waitFor([&] { return live.playingPast(0.0); }));
    // A stall may make the demuxer switch variants, which opens a new access-log event.
    auto stalls = [&] {
        std::int64_t count = 0;
        for (const auto& event : live.item->accessLog()->events()) {
            count += event.numberOfStalls;
        }
        return count;
    };
    const std::int64_t stallsBefore = stalls();
    origin::Fault stall;
    stall.pathPrefix = "/live/";
    stall.delaySeconds = 5;
    origin.faults().add(stall);
    ASSERT_TRUE(waitFor([&] {
        return live.player->reasonForWaitingToPlay() == Player::WaitingReason::toMinimizeStalls;
    }));
    origin.faults().clear();
    ASSERT_TRUE(waitFor([&] { return live.player->timeControlStatus() == TimeControl::playing; }));
    EXPECT_GT(stalls(), stallsBefore);
}

}  // namespace
}  // namespace zarvo
