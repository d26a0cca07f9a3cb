// The media engine against its peers, plain GStreamer (playbin3 with synced fake sinks) and
// mpv (null video and audio outputs, which keep real time too), each measurement rotating the
// order of the players from one round to the next:
//   - time to the first video frame of the sample VOD, for a later item in this process and in
//     a fresh process (a child started for each run); mpv through libmpv;
//   - CPU time and peak RSS of a child process that plays a whole VOD in real time, the sample
//     VOD and the 1080p50 one; mpv as its own command line;
//   - the CPU that the loopback resource server spends per second of 1080p50 played.
// The player facade (ZMPlayer with a delegate) against the engine's own Player: first frame
// in a fresh process and whole-VOD CPU, as medians.
// Children are this executable started with --child MODE ENGINE URL (ENGINE: sdk, playbin3,
// libmpv, mpv or zmplayer); they print the first frame's seconds, or the main thread's CPU
// seconds over the whole VOD, and then their own peak resident memory in MB. The mpv peer
// (libmpv, and the mpv command which a child runs) is built in when libmpv's development
// files are installed.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <future>
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
#include <gst/gst.h>

#include "zarvo/media/gst/GstPipelineSinks.h"
#include "zarvo/media/loopback/ResourceServer.h"
#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/ProcessInfo.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/Timer.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/source/ZMFairPlayUrls.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include "NamedThreadsCpu.h"
#include "origin/FullHdContent.h"
#include "origin/SampleOrigin.h"
#if ZM_BENCH_MPV
#include "LibmpvPlayer.h"
#endif

extern char** environ;

namespace {

using namespace std::chrono_literals;
using zarvo::ProcessInfo;
using zarvo::RunLoop;

constexpr auto playbackDeadline = 120s;

// Runs the main loop until `done()` holds, as a host's loop runs: woken by the players' own work
// (whatever makes `done()` true also calls RunLoop::main().stop()), and once a second for the
// deadline and for what nothing posts. runUntil() also wakes the loop every 5 ms to look at its
// condition, which over a whole VOD cost the main thread more than the players' own work there.
bool runAsAHost(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + playbackDeadline;
    auto check = zarvo::Timer::scheduledTimer(1.0, true, [&](zarvo::Timer&) {
        if (done() || std::chrono::steady_clock::now() >= deadline) {
            RunLoop::main().stop();
        }
    });
    if (!done()) {
        RunLoop::main().run();
    }
    check->invalidate();
    return done();
}

// Runs the main loop for `duration`, as a host's loop runs: woken only by the players' own work.
void runAsAHostFor(std::chrono::seconds duration) {
    auto stop = zarvo::Timer::scheduledTimer(static_cast<double>(duration.count()), false,
                                             [](zarvo::Timer&) { RunLoop::main().stop(); });
    RunLoop::main().run();
    stop->invalidate();
}

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

// Plays `url` from its start to its end; the seconds of media played, or nothing.
std::optional<double> sdkPlayToEnd(const std::string& url) {
    auto player = zarvo::Player::make();
    auto item = zarvo::PlayerItem::make(zarvo::UrlAsset::make(*zarvo::Url::parse(url)));
    bool ended = false;
    auto token = zarvo::NotificationCenter::defaultCenter().addObserver(
        zarvo::PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
        [&](const zarvo::Notification&) {
            ended = true;
            RunLoop::main().stop();
        });
    player->replaceCurrentItem(item);
    player->play();
    if (!runAsAHost([&] { return ended || item->error(); }) || !ended ||
        !item->duration().isNumeric()) {
        return std::nullopt;
    }
    return item->duration().seconds();
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
        [&](const zarvo::Notification&) {
            ended = true;
            RunLoop::main().stop();
        });
    return runAsAHost([&] { return ended || item->error(); }) && ended && delegate->calls > 0;
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
        runAsAHost([&] { return ended_ || failed_; });
        return ended_;
    }

    // Starts `url` and leaves it playing while the caller runs the main loop.
    void play(const std::string& url) {
        frameAt_ = 0;
        ended_ = failed_ = false;
        g_object_set(playbin_, "uri", url.c_str(), nullptr);
        gst_element_set_state(playbin_, GST_STATE_PLAYING);
    }
    bool failed() const { return failed_; }

private:
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
            RunLoop::main().stop();
        } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            self->failed_ = true;
            RunLoop::main().stop();
        }
        return G_SOURCE_CONTINUE;
    }

    GstElement* playbin_ = nullptr;
    guint watch_ = 0;
    std::atomic<double> frameAt_ = 0;
    bool ended_ = false;
    bool failed_ = false;
};

// --- The other peer: mpv -------------------------------------------------------------------

#if ZM_BENCH_MPV
constexpr bool hasLibmpv = true;

// A fresh libmpv player plays `url`; the seconds to the first frame, or nothing.
std::optional<double> libmpvFirstFrame(const std::string& url, double since) {
    auto shownAt = LibmpvPlayer().firstFrame(url, playbackDeadline.count());
    return shownAt ? std::optional(*shownAt - since) : std::nullopt;
}
#else
constexpr bool hasLibmpv = false;

std::optional<double> libmpvFirstFrame(const std::string&, double) {
    return std::nullopt;
}
#endif

// --- Children -----------------------------------------------------------------------------

// A figure of this process's memory in MB from /proc/self/status: `line` reads it from its line
// ("VmRSS: %lf kB").
double memoryStatusMb(const char* line) {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) {
        return 0;
    }
    char text[256];
    double kilobytes = 0;
    while (std::fgets(text, sizeof text, status) != nullptr) {
        if (std::sscanf(text, line, &kilobytes) == 1) {
            break;
        }
    }
    std::fclose(status);
    return kilobytes / 1024.0;
}

// This process's peak resident memory in MB, from its own address space. The rusage figure
// also counts the parent's memory, which a spawned child shares until it runs exec.
double peakResidentMb() {
    return memoryStatusMb("VmHWM: %lf kB");
}

// This process's resident memory now, in MB.
double residentMb() {
    return memoryStatusMb("VmRSS: %lf kB");
}

// How long a live child plays: ZM_BENCH_LIVE_SECONDS, at least two minutes, or five.
std::chrono::seconds liveSeconds() {
    const char* text = std::getenv("ZM_BENCH_LIVE_SECONDS");
    const long seconds = text ? std::strtol(text, nullptr, 10) : 300;
    return std::chrono::seconds(std::max(seconds, 120L));
}

// Plays the live stream at `url` for liveSeconds() as a host does. Prints how much resident
// memory grew after the first minute, when the player has settled, and the peak, in MB.
int playLive(const std::string& engine, const std::string& url) {
    constexpr std::chrono::seconds settling = 60s;
    std::shared_ptr<zarvo::Player> player;
    std::shared_ptr<zarvo::PlayerItem> item;
    std::optional<PlainPlaybin> playbin;
    if (engine == "sdk") {
        player = zarvo::Player::make();
        item = zarvo::PlayerItem::make(zarvo::UrlAsset::make(*zarvo::Url::parse(url)));
        player->replaceCurrentItem(item);
        player->play();
    } else {
        playbin.emplace().play(url);
    }
    runAsAHostFor(settling);
    const double settled = residentMb();
    runAsAHostFor(liveSeconds() - settling);
    if ((item && item->error()) || (playbin && playbin->failed())) {
        return 1;
    }
    std::printf("%.6f %.3f\n", residentMb() - settled, peakResidentMb());
    return 0;
}

// What a program run to its end by runProgram() did: its exit status (-1 when a signal ended
// it), CPU seconds and peak resident memory in MB.
struct ProgramRun {
    int status = 0;
    double cpuSeconds = 0;
    double peakRssMb = 0;
};

// Runs `args` (a program on the PATH, then its arguments) to its end with its output thrown
// away; nothing when it did not start.
std::optional<ProgramRun> runProgram(std::vector<std::string> args) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        return std::nullopt;
    }
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return ProgramRun{WIFEXITED(status) ? WEXITSTATUS(status) : -1,
                      seconds(usage.ru_utime) + seconds(usage.ru_stime),
                      static_cast<double>(usage.ru_maxrss) / 1024.0};
}

// True when `program` is an executable on the PATH.
bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string folders = path ? path : "";
    for (std::size_t start = 0; start <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', start), folders.size());
        const std::string candidate = folders.substr(start, end - start) + "/" + program;
        if (end > start && ::access(candidate.c_str(), X_OK) == 0) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// The mpv command playing `url` to its end in real time, as its users run it less their
// configuration file, the terminal and the youtube-dl probe. This child runs it, small as it
// is then, so that the peak memory is mpv's own: the kernel starts the peak of a program at
// that of the process it was started from, here this child instead of the benchmark with its
// origin. Prints mpv's CPU seconds, its peak resident memory in MB and its CPU seconds again,
// which the parent takes instead of this child's whole CPU.
int mpvPlayToEnd(const std::string& url) {
    auto run = runProgram(
        {"mpv", "--no-config", "--no-terminal", "--ytdl=no", "--vo=null", "--ao=null", url});
    if (!run || run->status != 0) {
        return 1;
    }
    std::printf("%.6f %.3f %.6f\n", run->cpuSeconds, run->peakRssMb, run->cpuSeconds);
    return 0;
}

// The time a host takes between making its player and giving it the first item (reading its
// catalogue, laying out its window): the player may get ready meanwhile.
constexpr auto hostSetUpTime = 500ms;

// When the parent spawned this child, on the clock of ProcessInfo::systemUptime(), or now. A
// fresh process's first frame counts from there: loading the program and its libraries is part
// of it. A host that links libmpv loads ffmpeg's libraries before its main() runs; one built on
// GStreamer loads them when the pipeline comes to the decoder's plugin.
double spawnedAt() {
    if (const char* at = std::getenv("ZM_BENCH_SPAWNED_AT")) {
        return std::strtod(at, nullptr);
    }
    return ProcessInfo::systemUptime();
}

int childMain(const std::string& mode, const std::string& engine, const std::string& url) {
    if (mode == "first-frame-player-made-first") {
        // The player made, then the host's own set-up, then the clock starts with the item.
        std::optional<double> seconds;
        if (engine == "libmpv") {
#if ZM_BENCH_MPV
            LibmpvPlayer player;
            std::this_thread::sleep_for(hostSetUpTime);
            const double start = ProcessInfo::systemUptime();
            if (auto shownAt = player.firstFrame(url, playbackDeadline.count())) {
                seconds = *shownAt - start;
            }
#endif
        } else {
            auto player = zarvo::Player::make();
            RunLoop::main().runUntil([] { return false; }, hostSetUpTime);
            seconds = sdkFirstFrame(player, url, ProcessInfo::systemUptime());
        }
        if (!seconds) {
            return 1;
        }
        std::printf("%.6f %.3f\n", *seconds, peakResidentMb());
        return 0;
    }
    if (mode == "live") {
        return playLive(engine, url);
    }
    const double start = spawnedAt();
    if (mode == "first-frame") {
        std::optional<double> seconds;
        if (engine == "libmpv") {
            seconds = libmpvFirstFrame(url, start);
        } else if (engine == "sdk") {
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
    if (engine == "mpv") {
        return mpvPlayToEnd(url);
    }
    const bool ended = engine == "sdk"        ? sdkPlayToEnd(url).has_value()
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

// The program a child runs: this one, or for the engines that do without libmpv the same
// benchmark built without it (media_bench_child beside this program), so that loading libmpv and
// the two hundred libraries it brings does not count against them.
std::string childProgram(const std::string& engine) {
    std::string self = "/proc/self/exe";
#if ZM_BENCH_MPV
    if (engine != "libmpv") {
        std::error_code error;
        auto sibling =
            std::filesystem::read_symlink(self, error).parent_path() / "media_bench_child";
        if (!error && std::filesystem::exists(sibling, error)) {
            return sibling.string();
        }
    }
#else
    (void)engine;
#endif
    return self;
}

std::optional<ChildRun> runChild(const std::string& mode, const std::string& engine,
                                 const std::string& url) {
    int fds[2];
    // Close-on-exec: a child spawned meanwhile from another thread keeps no end of this pipe.
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    const std::string program = childProgram(engine);
    std::vector<std::string> args{"media_bench", "--child", mode, engine, url};
    std::vector<char*> argv;
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    // The SDK's audio goes where it goes on a machine without a sound output, whether or not
    // this one has one, as the peers' audio goes nowhere; ZMPlayer restores tracking sessions
    // from an empty application home.
    std::vector<std::string> environment{
        std::string("ZM_AUDIO_SINK=") + zarvo::GstPipelineSinks::silentAudioSink,
        "ZM_HOME=" + childHome()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "ZM_AUDIO_SINK=", 14) != 0 &&
            std::strncmp(*entry, "ZM_HOME=", 8) != 0) {
            environment.emplace_back(*entry);
        }
    }
    // Taken last before the spawn: see spawnedAt().
    environment.push_back("ZM_BENCH_SPAWNED_AT=" + std::to_string(ProcessInfo::systemUptime()));
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    pid_t pid = -1;
    const int spawned =
        posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
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
    double cpu = 0;
    const int fields = std::sscanf(output.c_str(), "%lf %lf %lf", &value, &peakMb, &cpu);
    if (fields < 2) {
        return std::nullopt;
    }
    // A third figure is the CPU of the program the child ran, without the child's own.
    return ChildRun{value, fields == 3 ? cpu : seconds(usage.ru_utime) + seconds(usage.ru_stime),
                    peakMb};
}

// Whether the mpv peer `engine` can run here: libmpv built in, or the mpv command installed.
bool canRun(const std::string& engine) {
    if (engine == "libmpv") {
        return hasLibmpv;
    }
    static const bool installed = onPath("mpv");
    return installed;
}

// --- The origin ---------------------------------------------------------------------------

// The sample origin with the 1080p50 VOD as well (made on the first run, which takes a while).
zarvo::origin::SampleOrigin& sampleOrigin() {
    static auto* origin = [] {
        zarvo::origin::OriginOptions options;
        options.fullHd = true;
        auto* made = new zarvo::origin::SampleOrigin(options);
        if (auto error = made->start()) {
            std::fprintf(stderr, "the sample origin did not start: %s\n",
                         error->localizedDescription().c_str());
            std::exit(1);
        }
        return made;
    }();
    return *origin;
}

constexpr const char* sampleVod = "/vod/master.m3u8";
constexpr const char* fullHdVod = "/hd/master.m3u8";

// --- Benchmarks ---------------------------------------------------------------------------

// Sets `name`_sdk, `name`_playbin3 and, with the mpv peer, `name`_mpv; `ratio` is the
// engine's figure over playbin3's, `ratio`_mpv over mpv's.
void reportPeers(benchmark::State& state, const std::string& name, const std::string& ratio,
                 double sdk, double playbin3, std::optional<double> mpv) {
    state.counters[name + "_sdk"] = sdk;
    state.counters[name + "_playbin3"] = playbin3;
    state.counters[ratio] = playbin3 > 0 ? sdk / playbin3 : 0;
    if (mpv) {
        state.counters[name + "_mpv"] = *mpv;
        state.counters[ratio + "_mpv"] = *mpv > 0 ? sdk / *mpv : 0;
    }
}

void BM_FirstFrameLaterItem(benchmark::State& state) {
    const std::string url = sampleOrigin().url(sampleVod);
    setenv("ZM_AUDIO_SINK", zarvo::GstPipelineSinks::silentAudioSink, 1);
    auto player = zarvo::Player::make();
    PlainPlaybin plain;
#if ZM_BENCH_MPV
    LibmpvPlayer mpv;
    auto mpvFirstFrame = [&](double since) -> std::optional<double> {
        auto shownAt = mpv.firstFrame(url, playbackDeadline.count());
        return shownAt ? std::optional(*shownAt - since) : std::nullopt;
    };
#endif
    using Measure = std::function<std::optional<double>(double since)>;
    std::vector<Measure> players = {[&](double since) { return sdkFirstFrame(player, url, since); },
                                    [&](double since) {
                                        return plain.firstFrame(url, since);
                                    }};
#if ZM_BENCH_MPV
    players.emplace_back(mpvFirstFrame);
#endif
    // The first items warm up what a process keeps (plugins, thread pools).
    for (auto& measure : players) {
        measure(ProcessInfo::systemUptime());
    }
    std::vector<double> sums(players.size());
    std::size_t round = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < players.size(); ++i) {
            const std::size_t which = (round + i) % players.size();
            auto seconds = players[which](ProcessInfo::systemUptime());
            if (!seconds) {
                state.SkipWithError("no first frame");
                return;
            }
            sums[which] += *seconds;
        }
        ++round;
    }
    const auto n = static_cast<double>(state.iterations());
    reportPeers(state, "ms", "ratio", sums[0] / n * 1000, sums[1] / n * 1000,
                sums.size() > 2 ? std::optional(sums[2] / n * 1000) : std::nullopt);
}
BENCHMARK(BM_FirstFrameLaterItem)->Iterations(10)->Unit(benchmark::kMillisecond);

// One player of a rotation of children: its engine and the path it plays on the origin.
struct Contender {
    std::string engine;
    std::string path = sampleVod;
};

// Runs a child of each contender per iteration, the order rotating from one iteration to the
// next (a child runs slower or faster by its place in a round); the runs of each contender,
// or nothing when one failed.
std::optional<std::vector<std::vector<ChildRun>>> rotateChildren(
    benchmark::State& state, const std::string& mode, const std::vector<Contender>& contenders) {
    for (const auto& contender : contenders) {
        runChild(mode, contender.engine, sampleOrigin().url(contender.path));  // a warm cache
    }
    std::vector<std::vector<ChildRun>> runs(contenders.size());
    std::size_t round = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const std::size_t which = (round + i) % contenders.size();
            auto run = runChild(mode, contenders[which].engine,
                                sampleOrigin().url(contenders[which].path));
            if (!run) {
                state.SkipWithError(("a child failed: " + contenders[which].engine).c_str());
                return std::nullopt;
            }
            runs[which].push_back(*run);
        }
        ++round;
    }
    return runs;
}

// The engine, playbin3 and, where it can run, mpv (as `mpvEngine`), all on `path`.
std::vector<Contender> peers(const std::string& mpvEngine, const std::string& path = sampleVod) {
    std::vector<Contender> contenders = {{"sdk", path}, {"playbin3", path}};
    if (canRun(mpvEngine)) {
        contenders.push_back({mpvEngine, path});
    }
    return contenders;
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

// The third contender's figure, when there is one.
std::optional<double> third(const std::vector<std::vector<ChildRun>>& runs,
                            const std::function<double(const std::vector<ChildRun>&)>& figure) {
    return runs.size() > 2 ? std::optional(figure(runs[2])) : std::nullopt;
}

// A contender and the name its figures go under.
struct Named {
    Contender contender;
    std::string name;
};

// Two contenders in fresh processes, in `mode`: the median of the seconds each printed, in
// milliseconds as ms_<name>, and the first's over the second's as `ratio`.
void reportPair(benchmark::State& state, const std::string& mode, const Named& first,
                const Named& second, const std::string& ratio = "ratio") {
    if (auto runs = rotateChildren(state, mode, {first.contender, second.contender})) {
        const double one = median((*runs)[0], &ChildRun::value) * 1000;
        const double other = median((*runs)[1], &ChildRun::value) * 1000;
        state.counters["ms_" + first.name] = one;
        state.counters["ms_" + second.name] = other;
        state.counters[ratio] = other > 0 ? one / other : 0;
    }
}

void BM_FirstFrameFreshProcess(benchmark::State& state) {
    if (auto runs = rotateChildren(state, "first-frame", peers("libmpv"))) {
        auto ms = [](const std::vector<ChildRun>& each) {
            return mean(each, &ChildRun::value) * 1000;
        };
        reportPeers(state, "ms", "ratio", ms((*runs)[0]), ms((*runs)[1]), third(*runs, ms));
    }
}
BENCHMARK(BM_FirstFrameFreshProcess)->Iterations(6)->Unit(benchmark::kMillisecond);

// As above, for a host that makes its player some time before it has the first item.
void BM_FirstFrameFreshProcessPlayerMadeFirst(benchmark::State& state) {
    if (!canRun("libmpv")) {
        state.SkipWithError("libmpv is not built in");
        return;
    }
    reportPair(state, "first-frame-player-made-first", {{"sdk"}, "sdk"}, {{"libmpv"}, "mpv"},
               "ratio_mpv");
}
BENCHMARK(BM_FirstFrameFreshProcessPlayerMadeFirst)->Iterations(6)->Unit(benchmark::kMillisecond);

// Whole-process CPU and peak memory of each player over the whole VOD at `path`, in real time.
void BM_WholeVodCpuAndPeakRss(benchmark::State& state, const char* path) {
    if (auto runs = rotateChildren(state, "whole", peers("mpv", path))) {
        // Medians: on a shared machine one run in a few takes a third more CPU for the same work.
        auto cpu = [](const std::vector<ChildRun>& each) {
            return median(each, &ChildRun::cpuSeconds);
        };
        reportPeers(state, "cpu_s", "cpu_ratio", cpu((*runs)[0]), cpu((*runs)[1]),
                    third(*runs, cpu));
        state.counters["rss_MB_sdk"] = peak((*runs)[0]);
        state.counters["rss_MB_playbin3"] = peak((*runs)[1]);
        state.counters["rss_MB_more"] = peak((*runs)[0]) - peak((*runs)[1]);
        if (auto mpvPeak = third(*runs, peak)) {
            state.counters["rss_MB_mpv"] = *mpvPeak;
            state.counters["rss_MB_more_mpv"] = peak((*runs)[0]) - *mpvPeak;
        }
    }
}
BENCHMARK_CAPTURE(BM_WholeVodCpuAndPeakRss, sample, sampleVod)
    ->Iterations(5)
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(BM_WholeVodCpuAndPeakRss, fullhd_1080p50, fullHdVod)
    ->Iterations(4)
    ->Unit(benchmark::kSecond);

// Resident memory of the engine and of playbin3 playing the sample live stream side by side
// for liveSeconds(): the peak of each, and how much each grew after its first minute.
void BM_LiveResidentMemory(benchmark::State& state) {
    const std::string url = sampleOrigin().url("/live/master.m3u8");
    for (auto _ : state) {
        auto engine = std::async(std::launch::async, [&] { return runChild("live", "sdk", url); });
        const auto plain = runChild("live", "playbin3", url);
        const auto ours = engine.get();
        if (!ours || !plain) {
            state.SkipWithError("a live child failed");
            return;
        }
        state.counters["rss_MB_sdk"] = ours->peakRssMb;
        state.counters["rss_MB_playbin3"] = plain->peakRssMb;
        state.counters["rss_MB_more"] = ours->peakRssMb - plain->peakRssMb;
        state.counters["growth_MB_sdk"] = ours->value;
        state.counters["growth_MB_playbin3"] = plain->value;
        state.counters["live_s"] = static_cast<double>(liveSeconds().count());
    }
}
BENCHMARK(BM_LiveResidentMemory)->Iterations(1)->Unit(benchmark::kSecond);

// ZMPlayer (with a delegate) against the engine's Player, both in fresh processes.
void BM_FacadeFirstFrameFreshProcess(benchmark::State& state) {
    reportPair(state, "first-frame", {{"zmplayer"}, "zmplayer"}, {{"sdk"}, "player"});
}
BENCHMARK(BM_FacadeFirstFrameFreshProcess)->Iterations(10)->Unit(benchmark::kMillisecond);

// The protected VOD (keys from the origin's certificate and licence endpoints) against the same
// VOD in the clear, both through ZMPlayer in fresh processes.
void BM_ProtectedFirstFrameFreshProcess(benchmark::State& state) {
    reportPair(state, "first-frame",
               {{"zmplayer-protected", "/protected/master.m3u8"}, "protected"},
               {{"zmplayer"}, "clear"});
}
BENCHMARK(BM_ProtectedFirstFrameFreshProcess)->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_FacadeWholeVodCpu(benchmark::State& state) {
    if (auto runs = rotateChildren(state, "whole", {{"zmplayer"}, {"sdk"}})) {
        const auto& facadeRuns = (*runs)[0];
        const auto& engineRuns = (*runs)[1];
        const double facade = median(facadeRuns, &ChildRun::cpuSeconds);
        const double engine = median(engineRuns, &ChildRun::cpuSeconds);
        state.counters["cpu_s_zmplayer"] = facade;
        state.counters["cpu_s_player"] = engine;
        state.counters["cpu_ratio"] = engine > 0 ? facade / engine : 0;
        const double facadeMain = median(facadeRuns, &ChildRun::value) * 1000;
        const double engineMain = median(engineRuns, &ChildRun::value) * 1000;
        state.counters["main_ms_zmplayer"] = facadeMain;
        state.counters["main_ms_player"] = engineMain;
        state.counters["main_ratio"] = engineMain > 0 ? facadeMain / engineMain : 0;
        state.counters["rss_MB_more"] = peak(facadeRuns) - peak(engineRuns);
    }
}
BENCHMARK(BM_FacadeWholeVodCpu)->Iterations(4)->Unit(benchmark::kSecond);

// The CPU that the loopback resource server's threads (its listener and workers, which also
// run the transfers from the origin) spend while the engine plays the 1080p50 VOD in real
// time, per second of media played, as a percentage of one CPU: its median over the runs.
// In this process, where the server's threads live as long as the process does.
void BM_ResourceServerCpuPerSecondOf1080p50(benchmark::State& state) {
    const std::string url = sampleOrigin().url(fullHdVod);
    setenv("ZM_AUDIO_SINK", zarvo::GstPipelineSinks::silentAudioSink, 1);
    const std::string name = zarvo::ResourceServer::threadName;
    sdkPlayToEnd(url);  // a warm cache, and the server started
    std::vector<double> shares;
    double played = 0;
    for (auto _ : state) {
        const auto before = namedThreadsCpuSeconds(name);
        const auto seconds = sdkPlayToEnd(url);
        const auto after = namedThreadsCpuSeconds(name);
        if (!before || !after || !seconds || *seconds <= 0) {
            state.SkipWithError(seconds ? "no thread named zm-resources" : "the playback failed");
            return;
        }
        shares.push_back((*after - *before) / *seconds);
        played = *seconds;
    }
    state.counters["server_cpu_percent"] = median(shares) * 100;
    state.counters["media_s"] = played;
}
BENCHMARK(BM_ResourceServerCpuPerSecondOf1080p50)->Iterations(3)->Unit(benchmark::kSecond);

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
