// The media engine against plain GStreamer and curl, each measurement alternating with its peer:
//   - time to the first video frame of the sample VOD, for a later item in this process and in
//     a fresh process (a child started for each run);
//   - CPU time and peak RSS of a child process that plays the whole sample VOD;
//   - one 100 MB segment through the loopback resource server against curl from the origin
//     and against a bare relay (throughput and CPU time of each way).
// The player facade (ZMPlayer with a delegate) against the engine's own Player: first frame
// in a fresh process and whole-VOD CPU, as medians.
// Children are this executable started with --child MODE ENGINE URL (ENGINE: sdk, playbin3 or
// zmplayer); they print the first frame's seconds, or the main thread's CPU seconds over the
// whole VOD, and then their own peak resident memory in MB.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <gst/gst.h>

#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/media/model/MediaEngine.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/ProcessInfo.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMFairPlayUrls.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "BareRelay.h"
#include "LoopbackBodyServer.h"
#include "origin/SampleOrigin.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
using zarvo::ProcessInfo;
using zarvo::RunLoop;

constexpr auto playbackDeadline = 120s;

// --- The SDK side -------------------------------------------------------------------------

// Plays `url` on `player` from the start; the seconds to the first frame, or nothing.
std::optional<double> sdkFirstFrame(const std::shared_ptr<zarvo::Player>& player,
                                    const std::string& url, double since) {
    auto item = zarvo::PlayerItem::make(zarvo::UrlAsset::make(*zarvo::Url::parse(url)));
    std::optional<double> frameAt;
    auto token = zarvo::NotificationCenter::defaultCenter().addObserver(
        zarvo::PlayerItem::firstVideoFrameNotification, item.get(), nullptr,
        [&](const zarvo::Notification& notification) {
            frameAt = std::any_cast<double>(
                notification.userInfo.at(zarvo::PlayerItem::firstVideoFrameUptimeKey));
        });
    player->replaceCurrentItem(item);
    player->play();
    RunLoop::main().runUntil([&] { return frameAt.has_value(); }, playbackDeadline);
    player->replaceCurrentItem(nullptr);
    if (!frameAt) {
        return std::nullopt;
    }
    return *frameAt - since;
}

bool sdkPlayToEnd(const std::string& url) {
    auto player = zarvo::Player::make();
    auto item = zarvo::PlayerItem::make(zarvo::UrlAsset::make(*zarvo::Url::parse(url)));
    bool ended = false;
    auto token = zarvo::NotificationCenter::defaultCenter().addObserver(
        zarvo::PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
        [&](const zarvo::Notification&) { ended = true; });
    player->replaceCurrentItem(item);
    player->play();
    return RunLoop::main().runUntil([&] { return ended || item->error(); }, playbackDeadline) &&
           ended;
}

// --- The facade: ZMPlayer on the same engine, as a host uses it -----------------------------

// Counts the calls: the least a host's delegate does.
class CountingDelegate : public zarvo::ZMPlayerDelegate {
public:
    std::size_t calls = 0;

    void playerCurrentTime(zarvo::ZMPlayer&, double, double) override { ++calls; }
    void playerDidChangePlayerStatus(zarvo::ZMPlayer&, zarvo::ZMPlayerStatus) override { ++calls; }
    void playerPlayedItemDidChange(zarvo::ZMPlayer&, zarvo::ZMPlayerStatus) override { ++calls; }
    void playerDidChangePlaybackStatus(zarvo::ZMPlayer&, zarvo::ZMPlaybackStatus) override {
        ++calls;
    }
    void playerDidChangeIndicatedBitrate(zarvo::ZMPlayer&, double) override { ++calls; }
    void playerDidOccurError(zarvo::ZMPlayer&, const zarvo::Error&) override { ++calls; }
    void playerDidOccurEvents(zarvo::ZMPlayer&,
                              const std::vector<zarvo::ZMPlayerMetadataEvent>&) override {
        ++calls;
    }
    std::optional<std::vector<zarvo::ZMMediaOption>> playerMapMediaOptions(
        zarvo::ZMPlayer&, const std::vector<zarvo::MediaSelectionOption>&,
        const zarvo::MediaCharacteristic&) override {
        ++calls;
        return std::nullopt;
    }
    std::vector<zarvo::TextStyleRule> playerInternalSubtitlesTextStyleRules(
        zarvo::ZMPlayer&) override {
        ++calls;
        return {};
    }
    void playerDidOccurAccessLogEvents(
        zarvo::ZMPlayer&, const std::vector<zarvo::PlayerItemAccessLogEvent>&) override {
        ++calls;
    }
};

// Opens `url` as a VOD source on a new ZMPlayer that plays at once; the player and its
// delegate, which the player holds weakly. A protected source takes its keys from the
// certificate and licence endpoints of the same origin.
std::pair<std::shared_ptr<zarvo::ZMPlayer>, std::shared_ptr<CountingDelegate>> openFacade(
    const std::string& url, bool isProtected = false) {
    auto delegate = std::make_shared<CountingDelegate>();
    auto player = zarvo::ZMPlayer::make();
    player->setDelegate(delegate);
    const zarvo::Url source = *zarvo::Url::parse(url);
    zarvo::ZMPlaybackSourceOptions options(false);
    if (isProtected) {
        const zarvo::Url root = source.deletingLastPathComponent().deletingLastPathComponent();
        options.setDrm(zarvo::ZMFairPlayUrls(root.appendingPathComponent("fps/cert"),
                                             root.appendingPathComponent("fps/license"), {}));
    }
    player->open(std::make_shared<zarvo::ZMPlaybackSource>(source, options), true);
    return {player, delegate};
}

std::optional<double> facadeFirstFrame(const std::string& url, double since,
                                       bool isProtected = false) {
    auto [player, delegate] = openFacade(url, isProtected);
    std::optional<double> frameAt;
    auto token = zarvo::NotificationCenter::defaultCenter().addObserver(
        zarvo::PlayerItem::firstVideoFrameNotification, player->systemPlayer()->currentItem().get(),
        nullptr, [&](const zarvo::Notification& notification) {
            frameAt = std::any_cast<double>(
                notification.userInfo.at(zarvo::PlayerItem::firstVideoFrameUptimeKey));
        });
    RunLoop::main().runUntil([&] { return frameAt.has_value(); }, playbackDeadline);
    player->removeCurrentSource();
    if (!frameAt) {
        return std::nullopt;
    }
    return *frameAt - since;
}

bool facadePlayToEnd(const std::string& url) {
    auto [player, delegate] = openFacade(url);
    const auto item = player->systemPlayer()->currentItem();
    bool ended = false;
    auto token = zarvo::NotificationCenter::defaultCenter().addObserver(
        zarvo::PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
        [&](const zarvo::Notification&) { ended = true; });
    return RunLoop::main().runUntil([&] { return ended || item->error(); }, playbackDeadline) &&
           ended && delegate->calls > 0;
}

// --- The peer: a plain playbin3 with synced fake sinks ------------------------------------

class PlainPlaybin {
public:
    PlainPlaybin() {
        gst_init(nullptr, nullptr);
        playbin_ = gst_element_factory_make("playbin3", nullptr);
        GstElement* video = gst_element_factory_make("fakesink", nullptr);
        GstElement* audio = gst_element_factory_make("fakesink", nullptr);
        g_object_set(video, "sync", TRUE, nullptr);
        g_object_set(audio, "sync", TRUE, nullptr);
        GstPad* pad = gst_element_get_static_pad(video, "sink");
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onBuffer, this, nullptr);
        gst_object_unref(pad);
        g_object_set(playbin_, "video-sink", video, "audio-sink", audio, nullptr);
        GstBus* bus = gst_element_get_bus(playbin_);
        watch_ = gst_bus_add_watch(bus, onMessage, this);
        gst_object_unref(bus);
    }
    ~PlainPlaybin() {
        gst_element_set_state(playbin_, GST_STATE_NULL);
        g_source_remove(watch_);
        gst_object_unref(playbin_);
    }
    PlainPlaybin(const PlainPlaybin&) = delete;
    PlainPlaybin& operator=(const PlainPlaybin&) = delete;

    std::optional<double> firstFrame(const std::string& url, double since) {
        play(url);
        RunLoop::main().runUntil([&] { return frameAt_ > 0 || failed_; }, playbackDeadline);
        gst_element_set_state(playbin_, GST_STATE_NULL);
        if (frameAt_ <= 0) {
            return std::nullopt;
        }
        return frameAt_.load() - since;
    }

    bool playToEnd(const std::string& url) {
        play(url);
        RunLoop::main().runUntil([&] { return ended_ || failed_; }, playbackDeadline);
        return ended_;
    }

private:
    void play(const std::string& url) {
        frameAt_ = 0;
        ended_ = failed_ = false;
        g_object_set(playbin_, "uri", url.c_str(), nullptr);
        gst_element_set_state(playbin_, GST_STATE_PLAYING);
    }
    static GstPadProbeReturn onBuffer(GstPad*, GstPadProbeInfo*, gpointer data) {
        auto* self = static_cast<PlainPlaybin*>(data);
        double expected = 0;
        self->frameAt_.compare_exchange_strong(expected, ProcessInfo::systemUptime());
        return GST_PAD_PROBE_OK;
    }
    static gboolean onMessage(GstBus*, GstMessage* message, gpointer data) {
        auto* self = static_cast<PlainPlaybin*>(data);
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
            self->ended_ = true;
        } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            self->failed_ = true;
        }
        return G_SOURCE_CONTINUE;
    }

    GstElement* playbin_ = nullptr;
    guint watch_ = 0;
    std::atomic<double> frameAt_ = 0;
    bool ended_ = false;
    bool failed_ = false;
};

// --- Children -----------------------------------------------------------------------------

// This process's peak resident memory in MB, from its own address space. The rusage figure
// also counts the parent's memory, which a spawned child shares until it runs exec.
double peakResidentMb() {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) {
        return 0;
    }
    char line[256];
    double kilobytes = 0;
    while (std::fgets(line, sizeof line, status) != nullptr) {
        if (std::sscanf(line, "VmHWM: %lf kB", &kilobytes) == 1) {
            break;
        }
    }
    std::fclose(status);
    return kilobytes / 1024.0;
}

int childMain(const std::string& mode, const std::string& engine, const std::string& url) {
    const double start = ProcessInfo::systemUptime();
    if (mode == "first-frame") {
        std::optional<double> seconds;
        if (engine == "sdk") {
            seconds = sdkFirstFrame(zarvo::Player::make(), url, start);
        } else if (engine == "zmplayer") {
            seconds = facadeFirstFrame(url, start);
        } else if (engine == "zmplayer-protected") {
            seconds = facadeFirstFrame(url, start, true);
        } else {
            seconds = PlainPlaybin().firstFrame(url, start);
        }
        if (!seconds) {
            return 1;
        }
        std::printf("%.6f %.3f\n", *seconds, peakResidentMb());
        return 0;
    }
    const bool ended = engine == "sdk"        ? sdkPlayToEnd(url)
                       : engine == "zmplayer" ? facadePlayToEnd(url)
                                              : PlainPlaybin().playToEnd(url);
    if (!ended) {
        return 1;
    }
    // The main thread's CPU: where the player, its observers and a facade's delegate run,
    // apart from the streaming threads whose load varies most from run to run.
    timespec cpu{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
    std::printf("%.6f %.3f\n", static_cast<double>(cpu.tv_sec) + cpu.tv_nsec / 1e9,
                peakResidentMb());
    return 0;
}

struct ChildRun {
    double value = 0;  // what the child printed
    double cpuSeconds = 0;
    double peakRssMb = 0;
};

// An empty folder for the children's application homes, removed at exit.
const std::string& childHome() {
    static char path[] = "/tmp/media_bench.XXXXXX";
    static const std::string home = [] {
        if (::mkdtemp(path) == nullptr) {
            std::perror("mkdtemp");
            std::exit(1);
        }
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        });
        return std::string(path);
    }();
    return home;
}

std::optional<ChildRun> runChild(const std::string& mode, const std::string& engine,
                                 const std::string& url) {
    int fds[2];
    if (::pipe(fds) != 0) {
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::string self = "/proc/self/exe";
    std::vector<std::string> args{"media_bench", "--child", mode, engine, url};
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    // Every engine sends audio to a synced fake sink; ZMPlayer restores tracking sessions from
    // an empty application home.
    std::vector<std::string> environment{"ZM_AUDIO_SINK=fakesink sync=true",
                                         "ZM_HOME=" + childHome()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "ZM_AUDIO_SINK=", 14) != 0 &&
            std::strncmp(*entry, "ZM_HOME=", 8) != 0) {
            environment.emplace_back(*entry);
        }
    }
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    pid_t pid = -1;
    const int spawned =
        posix_spawn(&pid, self.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawned != 0) {
        ::close(fds[0]);
        return std::nullopt;
    }
    std::string output;
    char buffer[256];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fds[0]);
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return std::nullopt;
    }
    auto seconds = [](const timeval& time) {
        return time.tv_sec + time.tv_usec / 1e6;
    };
    double value = 0;
    double peakMb = 0;
    if (std::sscanf(output.c_str(), "%lf %lf", &value, &peakMb) != 2) {
        return std::nullopt;
    }
    return ChildRun{value, seconds(usage.ru_utime) + seconds(usage.ru_stime), peakMb};
}

// --- The origins --------------------------------------------------------------------------

zarvo::origin::SampleOrigin& sampleOrigin() {
    static auto* origin = [] {
        auto* made = new zarvo::origin::SampleOrigin();
        if (made->start()) {
            std::fprintf(stderr, "the sample origin did not start\n");
            std::exit(1);
        }
        return made;
    }();
    return *origin;
}

constexpr std::size_t segmentLength = 100 << 20;

// The engine's key, for opening a resource session outside a player.
struct BenchEngineKey : zarvo::MediaEngine {
    static zarvo::MediaEngineKey get() { return key(); }
};

// Bytes/s of one GET with a curl easy handle that throws the body away.
double curlThroughput(const std::string& url) {
    CURL* curl = curl_easy_init();
    std::size_t received = 0;
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char*, std::size_t size, std::size_t count, void* data) {
            *static_cast<std::size_t*>(data) += size * count;
            return size * count;
        });
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received);
    const auto start = std::chrono::steady_clock::now();
    const CURLcode code = curl_easy_perform(curl);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    curl_easy_cleanup(curl);
    return code == CURLE_OK && received == segmentLength ? received / seconds : 0;
}

// --- Benchmarks ---------------------------------------------------------------------------

void reportRatio(benchmark::State& state, const char* name, double sdk, double peer) {
    state.counters[std::string(name) + "_sdk"] = sdk;
    state.counters[std::string(name) + "_playbin3"] = peer;
    state.counters["ratio"] = peer > 0 ? sdk / peer : 0;
}

void BM_FirstFrameLaterItem(benchmark::State& state) {
    const std::string url = sampleOrigin().url("/vod/master.m3u8");
    setenv("ZM_AUDIO_SINK", "fakesink sync=true", 1);
    auto player = zarvo::Player::make();
    PlainPlaybin plain;
    // The first items warm up what a process keeps (plugins, thread pools).
    sdkFirstFrame(player, url, ProcessInfo::systemUptime());
    plain.firstFrame(url, ProcessInfo::systemUptime());
    double sdk = 0;
    double peer = 0;
    for (auto _ : state) {
        auto a = sdkFirstFrame(player, url, ProcessInfo::systemUptime());
        auto b = plain.firstFrame(url, ProcessInfo::systemUptime());
        if (!a || !b) {
            state.SkipWithError("no first frame");
            return;
        }
        sdk += *a;
        peer += *b;
    }
    const auto n = static_cast<double>(state.iterations());
    reportRatio(state, "ms", sdk / n * 1000, peer / n * 1000);
}
BENCHMARK(BM_FirstFrameLaterItem)->Iterations(10)->Unit(benchmark::kMillisecond);

// Runs a child of each engine per iteration, `engine` first in even iterations and `peer`
// first in odd ones (the second of a pair has run slower or faster by itself); the runs, or
// nothing when one failed.
std::optional<std::pair<std::vector<ChildRun>, std::vector<ChildRun>>> alternateChildren(
    benchmark::State& state, const std::string& mode, const std::string& engine = "sdk",
    const std::string& peer = "playbin3", const std::string& enginePath = "/vod/master.m3u8",
    const std::string& peerPath = "/vod/master.m3u8") {
    const std::string url = sampleOrigin().url(enginePath);
    const std::string peerUrl = sampleOrigin().url(peerPath);
    runChild(mode, engine, url);  // the page cache warm for both
    runChild(mode, peer, peerUrl);
    std::pair<std::vector<ChildRun>, std::vector<ChildRun>> runs;
    for (auto _ : state) {
        std::optional<ChildRun> a;
        std::optional<ChildRun> b;
        if (runs.first.size() % 2 == 0) {
            a = runChild(mode, engine, url);
            b = runChild(mode, peer, peerUrl);
        } else {
            b = runChild(mode, peer, peerUrl);
            a = runChild(mode, engine, url);
        }
        if (!a || !b) {
            state.SkipWithError("a child failed");
            return std::nullopt;
        }
        runs.first.push_back(*a);
        runs.second.push_back(*b);
    }
    return runs;
}

template <typename Field>
double mean(const std::vector<ChildRun>& runs, Field field) {
    double sum = 0;
    for (const auto& run : runs) {
        sum += run.*field;
    }
    return runs.empty() ? 0 : sum / static_cast<double>(runs.size());
}

// The middle value (the mean of the two middle ones for an even count): one run slowed by
// another process on the machine does not move it.
double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

template <typename Field>
double median(const std::vector<ChildRun>& runs, Field field) {
    std::vector<double> values;
    for (const auto& run : runs) {
        values.push_back(run.*field);
    }
    return median(std::move(values));
}

double peak(const std::vector<ChildRun>& runs) {
    double most = 0;
    for (const auto& run : runs) {
        most = std::max(most, run.peakRssMb);
    }
    return most;
}

void BM_FirstFrameFreshProcess(benchmark::State& state) {
    if (auto runs = alternateChildren(state, "first-frame")) {
        reportRatio(state, "ms", mean(runs->first, &ChildRun::value) * 1000,
                    mean(runs->second, &ChildRun::value) * 1000);
    }
}
BENCHMARK(BM_FirstFrameFreshProcess)->Iterations(6)->Unit(benchmark::kMillisecond);

void BM_WholeVodCpuAndPeakRss(benchmark::State& state) {
    if (auto runs = alternateChildren(state, "whole")) {
        // Medians: on a shared machine one run in a few takes a third more CPU for the same work.
        const double sdkCpu = median(runs->first, &ChildRun::cpuSeconds);
        const double peerCpu = median(runs->second, &ChildRun::cpuSeconds);
        state.counters["cpu_s_sdk"] = sdkCpu;
        state.counters["cpu_s_playbin3"] = peerCpu;
        state.counters["cpu_ratio"] = peerCpu > 0 ? sdkCpu / peerCpu : 0;
        state.counters["rss_MB_sdk"] = peak(runs->first);
        state.counters["rss_MB_playbin3"] = peak(runs->second);
        state.counters["rss_MB_more"] = peak(runs->first) - peak(runs->second);
    }
}
BENCHMARK(BM_WholeVodCpuAndPeakRss)->Iterations(5)->Unit(benchmark::kSecond);

// ZMPlayer (with a delegate) against the engine's Player, both in fresh processes.
void BM_FacadeFirstFrameFreshProcess(benchmark::State& state) {
    if (auto runs = alternateChildren(state, "first-frame", "zmplayer", "sdk")) {
        const double facade = median(runs->first, &ChildRun::value) * 1000;
        const double engine = median(runs->second, &ChildRun::value) * 1000;
        state.counters["ms_zmplayer"] = facade;
        state.counters["ms_player"] = engine;
        state.counters["ratio"] = engine > 0 ? facade / engine : 0;
    }
}
BENCHMARK(BM_FacadeFirstFrameFreshProcess)->Iterations(10)->Unit(benchmark::kMillisecond);

// The protected VOD (keys from the origin's certificate and licence endpoints) against the same
// VOD in the clear, both through ZMPlayer in fresh processes.
void BM_ProtectedFirstFrameFreshProcess(benchmark::State& state) {
    if (auto runs = alternateChildren(state, "first-frame", "zmplayer-protected", "zmplayer",
                                      "/protected/master.m3u8")) {
        const double keyed = median(runs->first, &ChildRun::value) * 1000;
        const double clear = median(runs->second, &ChildRun::value) * 1000;
        state.counters["ms_protected"] = keyed;
        state.counters["ms_clear"] = clear;
        state.counters["ratio"] = clear > 0 ? keyed / clear : 0;
    }
}
BENCHMARK(BM_ProtectedFirstFrameFreshProcess)->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_FacadeWholeVodCpu(benchmark::State& state) {
    if (auto runs = alternateChildren(state, "whole", "zmplayer", "sdk")) {
        const double facade = median(runs->first, &ChildRun::cpuSeconds);
        const double engine = median(runs->second, &ChildRun::cpuSeconds);
        state.counters["cpu_s_zmplayer"] = facade;
        state.counters["cpu_s_player"] = engine;
        state.counters["cpu_ratio"] = engine > 0 ? facade / engine : 0;
        const double facadeMain = median(runs->first, &ChildRun::value) * 1000;
        const double engineMain = median(runs->second, &ChildRun::value) * 1000;
        state.counters["main_ms_zmplayer"] = facadeMain;
        state.counters["main_ms_player"] = engineMain;
        state.counters["main_ratio"] = engineMain > 0 ? facadeMain / engineMain : 0;
        state.counters["rss_MB_more"] = peak(runs->first) - peak(runs->second);
    }
}
BENCHMARK(BM_FacadeWholeVodCpu)->Iterations(4)->Unit(benchmark::kSecond);

// CPU seconds of this whole process so far (origin, server and client threads alike).
double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The segment by three ways, in a rotating order: through the resource server, through a bare
// relay (socket calls only: the most that any relay of loopback TCP reaches on this machine)
// and from the origin directly. Medians of each way's throughput and of the CPU time of the
// whole process per transfer: where the machine has fewer CPUs than the transfer has busy
// threads, the throughputs follow the CPU that each way costs.
void BM_SegmentThroughResourceServer(benchmark::State& state) {
    LoopbackBodyServer origin("/big.ts", segmentLength);
    BareRelay bare(origin.port());
    const zarvo::Url url = *zarvo::Url::parse(origin.url());
    // The asset's own playlist is not there: the session serves the segment by its URL alone.
    auto asset =
        zarvo::UrlAsset::make(url.deletingLastPathComponent().appendingPathComponent("index.m3u8"));
    auto loader = zarvo::AssetLoader::start(asset, BenchEngineKey::get());
    auto session = zarvo::ResourceSession::open(asset, loader, {}, zarvo::DispatchQueue::main());
    const std::string ways[] = {session->urlFor(zarvo::ResourceSession::Kind::segment, url),
                                bare.url(origin.path()), origin.url()};
    std::vector<double> throughput[3];
    std::vector<double> cpu[3];
    std::size_t round = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < 3; ++i) {
            const std::size_t way = (round + i) % 3;
            const double before = processCpuSeconds();
            const double got = curlThroughput(ways[way]);
            cpu[way].push_back(processCpuSeconds() - before);
            if (got == 0) {
                state.SkipWithError("a transfer failed");
                return;
            }
            throughput[way].push_back(got);
        }
        ++round;
    }
    const double server = median(throughput[0]);
    const double relay = median(throughput[1]);
    const double direct = median(throughput[2]);
    state.counters["MBps_resource_server"] = server / 1e6;
    state.counters["MBps_bare_relay"] = relay / 1e6;
    state.counters["MBps_curl_direct"] = direct / 1e6;
    state.counters["share"] = server / direct;
    state.counters["share_bare_relay"] = relay / direct;
    state.counters["server_vs_bare_relay"] = server / relay;
    state.counters["cpu_ms_resource_server"] = median(cpu[0]) * 1000;
    state.counters["cpu_ms_bare_relay"] = median(cpu[1]) * 1000;
    state.counters["cpu_ms_curl_direct"] = median(cpu[2]) * 1000;
    session->close();
}
BENCHMARK(BM_SegmentThroughResourceServer)->Iterations(9)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "--child") == 0) {
        return childMain(argv[2], argv[3], argv[4]);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
