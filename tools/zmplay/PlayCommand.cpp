// zmplay play: plays a stream through ZMPlayer and prints every delegate call as it happens.
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "zarvo/media/model/MediaCharacteristic.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/ZMOfflinePlaybackSource.h"
#include "zarvo/platform/Date.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/NotificationCenter.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/Timer.h"
#include "zarvo/platform/Url.h"
#include "zarvo/player/PlayerMetadataJson.h"
#include "zarvo/player/ZMPlayer.h"
#include "zarvo/player/ZMPlayerView.h"
#include "zarvo/source/ZMFairPlayUrls.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"
#include "zarvo/source/ZMPlaybackTimeshift.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay::play_command {
namespace {

constexpr const char* usage =
    "play <url> | --offline ID [--live] [--dvr SECONDS | --start-time ISO8601] "
    "[--header NAME:VALUE]... "
    "[--cert URL --license URL [--license-header NAME:VALUE]...] [--audio LANG] "
    "[--subtitles LANG] [--window | --headless] [--for SECONDS] [--seek SECONDS] "
    "[--max-bitrate BPS] [--max-resolution WxH] [--quality WxH|auto] [--speed X] [--json]";

struct PlayOptions {
    std::string url;
    std::optional<std::string> offline;  // the id of a download to play from disk
    bool live = false;
    std::optional<std::int64_t> dvrSeconds;
    std::optional<Date> startTime;
    std::map<std::string, std::string> headers;
    std::optional<std::string> certUrl;
    std::optional<std::string> licenseUrl;
    std::map<std::string, std::string> licenseHeaders;
    std::optional<std::string> audio;
    std::optional<std::string> subtitles;
    std::optional<double> forSeconds;
    std::optional<double> seekTo;
    bool json = false;
    bool window = false;
    std::optional<double> maxBitrate;
    std::optional<std::pair<int, int>> maxResolution;
    std::optional<std::pair<int, int>> quality;  // none: automatic
    std::optional<float> speed;
};

// "WxH" with both positive.
std::optional<std::pair<int, int>> parseSize(const std::optional<std::string>& text) {
    if (!text) {
        return std::nullopt;
    }
    const auto x = text->find('x');
    if (x == std::string::npos) {
        return std::nullopt;
    }
    int width = 0;
    int height = 0;
    const char* begin = text->data();
    const char* end = begin + text->size();
    auto [widthEnd, widthStatus] = std::from_chars(begin, begin + x, width);
    auto [heightEnd, heightStatus] = std::from_chars(begin + x + 1, end, height);
    if (widthStatus != std::errc() || heightStatus != std::errc() || widthEnd != begin + x ||
        heightEnd != end || width <= 0 || height <= 0) {
        return std::nullopt;
    }
    return std::pair{width, height};
}

std::optional<double> parseNumber(const std::string& text) {
    double value = 0;
    auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || status != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value) || value < 0) {
        return std::nullopt;
    }
    return value;
}

// Fills `options` or returns the problem.
std::optional<std::string> parse(const std::vector<std::string>& arguments, PlayOptions& options) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& flag = arguments[i];
        auto value = [&]() -> std::optional<std::string> {
            if (i + 1 >= arguments.size()) {
                return std::nullopt;
            }
            return arguments[++i];
        };
        if (flag == "--live") {
            options.live = true;
        } else if (flag == "--json") {
            options.json = true;
        } else if (flag == "--headless" || flag == "--window") {
            options.window = flag == "--window";
        } else if (flag == "--dvr" || flag == "--for" || flag == "--seek") {
            auto text = value();
            auto number = text ? parseNumber(*text) : std::nullopt;
            if (!number) {
                return flag + " needs a number of seconds";
            }
            if (flag == "--dvr") {
                options.dvrSeconds = static_cast<std::int64_t>(*number);
            } else if (flag == "--for") {
                options.forSeconds = *number;
            } else {
                options.seekTo = *number;
            }
        } else if (flag == "--max-bitrate") {
            auto text = value();
            auto number = text ? parseNumber(*text) : std::nullopt;
            if (!number || *number <= 0) {
                return "--max-bitrate needs a positive number of bits per second";
            }
            options.maxBitrate = *number;
        } else if (flag == "--speed") {
            auto text = value();
            auto number = text ? parseNumber(*text) : std::nullopt;
            if (!number || *number <= 0 || *number > 4) {
                return "--speed needs a number above 0 and at most 4";
            }
            options.speed = static_cast<float>(*number);
        } else if (flag == "--max-resolution") {
            options.maxResolution = parseSize(value());
            if (!options.maxResolution) {
                return "--max-resolution needs WxH";
            }
        } else if (flag == "--quality") {
            auto text = value();
            if (text && *text == "auto") {
                options.quality.reset();
            } else if (!(options.quality = parseSize(text))) {
                return "--quality needs WxH or auto";
            }
        } else if (flag == "--start-time") {
            auto text = value();
            Date date(0);
            if (!text || !Date::parseIso8601(*text, date)) {
                return "--start-time needs an ISO 8601 date";
            }
            options.startTime = date;
        } else if (flag == "--header" || flag == "--license-header") {
            auto& headers = flag == "--header" ? options.headers : options.licenseHeaders;
            if (!addHeaderField(value(), headers)) {
                return flag + " needs NAME:VALUE";
            }
        } else if (flag == "--cert" || flag == "--license") {
            auto text = value();
            if (!text || !Url::parse(*text)) {
                return flag + " needs a URL";
            }
            (flag == "--cert" ? options.certUrl : options.licenseUrl) = *text;
        } else if (flag == "--offline") {
            auto text = value();
            if (!text || text->empty()) {
                return "--offline needs a download id";
            }
            options.offline = *text;
        } else if (flag == "--audio" || flag == "--subtitles") {
            auto text = value();
            if (!text || text->empty()) {
                return flag + " needs a language";
            }
            (flag == "--audio" ? options.audio : options.subtitles) = *text;
        } else if (!flag.empty() && flag[0] == '-') {
            return "unknown option " + flag;
        } else if (options.url.empty()) {
            options.url = flag;
        } else {
            return "one URL only";
        }
    }
    if (options.url.empty() == !options.offline) {
        return "a URL or --offline ID is needed";
    }
    if (!options.url.empty() && !streamUrl(options.url)) {
        return options.url + " is not an absolute http, https or file URL";
    }
    if (options.certUrl.has_value() != options.licenseUrl.has_value()) {
        return "--cert and --license go together";
    }
    if (options.dvrSeconds && options.startTime) {
        return "--dvr and --start-time exclude each other";
    }
    return std::nullopt;
}

const char* text(ZMPlayerStatus status) {
    switch (status) {
        case ZMPlayerStatus::failed:
            return "failed";
        case ZMPlayerStatus::readyToPlay:
            return "readyToPlay";
        default:
            return "unknown";
    }
}

const char* text(ZMPlaybackStatus status) {
    switch (status) {
        case ZMPlaybackStatus::paused:
            return "paused";
        case ZMPlaybackStatus::waiting:
            return "waiting";
        default:
            return "playing";
    }
}

// Prints each delegate call: a JSON object per line, or a readable line with a status line
// redrawn in place under it on a terminal.
class Printer : public ZMPlayerDelegate, public ZMPlaybackStatisticsDelegate {
public:
    Printer(const PlayOptions& options)
        : options_(options), terminal_(!options.json && ::isatty(STDOUT_FILENO) == 1) {}

    std::optional<std::string> failure;
    std::function<void()> onFailure;  // called once, when the failure is set
    bool ready = false;

    void playerCurrentTime(ZMPlayer&, double currentTime, double duration) override {
        time_ = currentTime;
        duration_ = duration;
        if (terminal_) {
            redraw();
        } else {
            emit(Json{{"event", "currentTime"},
                      {"currentTime", currentTime},
                      {"duration", std::isfinite(duration) ? Json(duration) : Json(nullptr)}},
                 "currentTime " + seconds(currentTime) + " / " + seconds(duration));
        }
    }
    void playerDidChangePlayerStatus(ZMPlayer&, ZMPlayerStatus status) override {
        emit(Json{{"event", "didChangePlayerStatus"}, {"value", text(status)}},
             std::string("player status ") + text(status));
    }
    void playerPlayedItemDidChange(ZMPlayer& player, ZMPlayerStatus status) override {
        emit(Json{{"event", "playedItemDidChange"}, {"value", text(status)}},
             std::string("item status ") + text(status));
        if (status == ZMPlayerStatus::failed && !failure) {
            failure = lastError_.value_or("the item failed");
            if (onFailure) {
                onFailure();
            }
        }
        if (status == ZMPlayerStatus::readyToPlay && !std::exchange(ready, true)) {
            choose(player, MediaCharacteristic::audible(), options_.audio);
            choose(player, MediaCharacteristic::legible(), options_.subtitles);
            chooseQuality(player);
        }
    }
    void playerDidChangePlaybackStatus(ZMPlayer&, ZMPlaybackStatus status) override {
        playback_ = status;
        emit(Json{{"event", "didChangePlaybackStatus"}, {"value", text(status)}},
             std::string("playback ") + text(status));
    }
    void playerDidChangeIndicatedBitrate(ZMPlayer&, double bitrate) override {
        bitrate_ = bitrate;
        emit(Json{{"event", "didChangeIndicatedBitrate"}, {"value", bitrate}},
             "indicated bitrate " + std::to_string(std::lround(bitrate)) + " kbit/s");
    }
    void playerDidOccurError(ZMPlayer&, const Error& error) override {
        lastError_ = error.localizedDescription();
        emit(Json{{"event", "didOccurError"},
                  {"domain", error.domain()},
                  {"code", error.code()},
                  {"message", error.localizedDescription()}},
             "error " + error.domain() + " " + std::to_string(error.code()) + ": " +
                 error.localizedDescription());
    }
    void playerDidOccurEvents(ZMPlayer&,
                              const std::vector<ZMPlayerMetadataEvent>& events) override {
        Json list = Json::array();
        std::string line = "events";
        for (const auto& event : events) {
            list.push_back(event);
            line += " " + event.event.value_or("?") + "(" + event.identifier.value_or("") + ")";
        }
        emit(Json{{"event", "didOccurEvents"}, {"events", list}}, line);
    }
    std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer&, const std::vector<MediaSelectionOption>&, const MediaCharacteristic&) override {
        return std::nullopt;
    }
    std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(
        ZMPlayer&, const std::vector<PlayerItemAccessLogEvent>& events) override {
        if (events.empty()) {
            emit(Json{{"event", "didOccurAccessLogEvents"}, {"count", 0}}, "access log: empty");
            return;
        }
        const auto& last = events.back();
        emit(
            Json{{"event", "didOccurAccessLogEvents"},
                 {"count", events.size()},
                 {"uri", last.uri},
                 {"indicatedBitrate", last.indicatedBitrate},
                 {"observedBitrate",
                  std::isfinite(last.observedBitrate) ? Json(last.observedBitrate) : Json(nullptr)},
                 {"numberOfStalls", last.numberOfStalls}},
            "access log: " + std::to_string(events.size()) + " events, playing " + last.uri);
    }

    void playerDidStartStall(ZMPlayer&) override {
        emit(Json{{"event", "stallStarted"}}, "stall started");
    }
    void playerDidEndStall(ZMPlayer&, double duration) override {
        emit(Json{{"event", "stall"}, {"duration", duration}},
             "stall of " + seconds(duration) + " s");
    }

    void statistics(const ZMPlaybackStatistics& statistics) {
        Json byBitrate = Json::object();
        for (const auto& [bitrate, time] : statistics.timeByBitrate) {
            byBitrate[std::to_string(bitrate)] = time;
        }
        const auto optional = [](const std::optional<double>& value) {
            return value ? Json(*value) : Json(nullptr);
        };
        emit(Json{{"event", "stats"},
                  {"startupTime", optional(statistics.startupTime)},
                  {"stallCount", statistics.stallCount},
                  {"stallDuration", statistics.stallDuration},
                  {"droppedFrames", statistics.droppedFrames},
                  {"decodedFrames", statistics.decodedFrames},
                  {"averageBitrate", statistics.averageBitrate},
                  {"currentBitrate", optional(statistics.currentBitrate)},
                  {"bytesDownloaded", statistics.bytesDownloaded},
                  {"timeByBitrate", byBitrate}},
             "stats: startup " +
                 (statistics.startupTime ? seconds(*statistics.startupTime) + " s" : "-") + ", " +
                 std::to_string(statistics.stallCount) + " stalls (" +
                 seconds(statistics.stallDuration) + " s), " +
                 std::to_string(statistics.droppedFrames) + " of " +
                 std::to_string(statistics.decodedFrames) + " frames dropped, average " +
                 std::to_string(std::lround(statistics.averageBitrate / 1000)) + " kbit/s, " +
                 std::to_string(statistics.bytesDownloaded) + " bytes");
    }

    void finish() {
        if (terminal_) {
            std::printf("\n");
        }
        std::fflush(stdout);
    }

private:
    void choose(ZMPlayer& player, const MediaCharacteristic& characteristic,
                const std::optional<std::string>& language) {
        if (!language) {
            return;
        }
        for (const auto& option : characteristic == MediaCharacteristic::audible()
                                      ? player.audioOptions()
                                      : player.subtitleOptions()) {
            auto locale = option.locale();
            if (locale && (locale->identifier() == *language || locale->lang() == *language)) {
                auto chosen = characteristic == MediaCharacteristic::audible()
                                  ? option.audioSelectionOption()
                                  : option.internalSubtitleSelectionOption();
                player.selectOptionGroup(chosen, characteristic);
                return;
            }
        }
        emit(Json{{"event", "note"}, {"message", "no option for " + *language}},
             "no option for " + *language);
    }

    void chooseQuality(ZMPlayer& player) {
        if (!options_.quality) {
            return;
        }
        const auto levels = player.qualityLevels();
        for (const auto& level : levels) {
            if (level.width == options_.quality->first &&
                level.height == options_.quality->second) {
                player.selectQualityLevel(level);
                return;
            }
        }
        const std::string size = std::to_string(options_.quality->first) + "x" +
                                 std::to_string(options_.quality->second);
        emit(Json{{"event", "note"}, {"message", "no quality of " + size}},
             "no quality of " + size);
    }

    static std::string seconds(double value) {
        if (!std::isfinite(value)) {
            return "live";
        }
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%.1f", value);
        return buffer;
    }

    void emit(const Json& json, const std::string& line) {
        if (options_.json) {
            std::printf("%s\n", json::dump(json).c_str());
        } else if (terminal_) {
            std::printf("\r\033[K%s\n", line.c_str());
            redraw();
        } else {
            std::printf("%s\n", line.c_str());
        }
        std::fflush(stdout);
    }

    void redraw() {
        std::printf("\r\033[K%s / %s  %s kbit/s  %s", seconds(time_).c_str(),
                    seconds(duration_).c_str(),
                    bitrate_ ? std::to_string(std::lround(*bitrate_)).c_str() : "-",
                    playback_ == ZMPlaybackStatus::waiting ? "buffering" : "");
        std::fflush(stdout);
    }

    const PlayOptions& options_;
    const bool terminal_;
    double time_ = 0;
    double duration_ = 0;
    std::optional<double> bitrate_;
    std::optional<ZMPlaybackStatus> playback_;
    std::optional<std::string> lastError_;
};

std::shared_ptr<ZMPlaybackSource> makeSource(const PlayOptions& options, const Url& url) {
    std::optional<ZMPlaybackSourceOptions> sourceOptions;
    if (options.dvrSeconds) {
        sourceOptions.emplace(ZMPlaybackTimeshift(*options.dvrSeconds), true);
    } else if (options.startTime) {
        sourceOptions.emplace(ZMPlaybackTimeshift(std::optional<Date>(*options.startTime)), true);
    } else {
        sourceOptions.emplace(options.live);
    }
    if (!options.headers.empty()) {
        sourceOptions->setAvAssetOptions(UrlAsset::Options{options.headers});
    }
    if (options.certUrl) {
        sourceOptions->setDrm(ZMFairPlayUrls(*Url::parse(*options.certUrl),
                                             *Url::parse(*options.licenseUrl),
                                             options.licenseHeaders));
    }
    return std::make_shared<ZMPlaybackSource>(url, *sourceOptions);
}

int play(const std::vector<std::string>& arguments) {
    PlayOptions options;
    if (auto problem = parse(arguments, options)) {
        std::cerr << "zmplay play: " << *problem << "\nusage: zmplay " << usage << "\n";
        return 2;
    }
    std::shared_ptr<ZMPlaybackSource> source;
    if (options.offline) {
        auto download = std::make_shared<FPDownloadsStore>()->findFirstWithId(*options.offline);
        if (!download || !download->offlineUrl()) {
            std::cerr << "zmplay play: no downloaded package with id " << *options.offline << "\n";
            return 1;
        }
        source = std::make_shared<ZMOfflinePlaybackSource>(download);
        options.url = download->title();
    } else {
        auto url = Url::parse(options.url);
        if (!url) {
            std::cerr << "zmplay play: not a URL: " << options.url << "\n";
            return 2;
        }
        source = makeSource(options, *url);
    }
    auto printer = std::make_shared<Printer>(options);
    auto player = ZMPlayer::make();
    bool ended = false;
    // The loop sleeps until it has work: the end, a failure or the time limit stops it.
    auto stopIfDone = [&] {
        if (ended || printer->failure) {
            RunLoop::main().stop();
        }
    };
    printer->onFailure = stopIfDone;
    std::shared_ptr<ZMPlayerView> view;
    std::vector<Observation> windowObservations;
    if (options.window) {
        view = ZMPlayerView::make(Rect{0, 0, 960, 540});
        if (!view->nativeWindow()) {
            std::cerr << "zmplay play: --window needs an X display (set DISPLAY)\n";
            return 2;
        }
        view->setTitle("zmplay " + options.url);
        view->setPlayer(player);
        windowObservations.push_back(view->observeKeyPresses([&](const std::string& key) {
            ended = ended || key == "q" || key == "Q";
            stopIfDone();
        }));
        windowObservations.push_back(view->observeCloseRequests([&] {
            ended = true;
            stopIfDone();
        }));
    }
    player->setDelegate(printer);
    player->setStatisticsDelegate(printer);
    if (options.maxBitrate) {
        player->setMaximumBitrate(*options.maxBitrate);
    }
    if (options.maxResolution) {
        player->setMaximumResolution(options.maxResolution->first, options.maxResolution->second);
    }
    if (options.speed) {
        player->setPlaybackSpeed(*options.speed);
    }
    player->open(source, true);

    Observation end;
    if (const auto& item = player->systemPlayer()->currentItem()) {
        end = NotificationCenter::defaultCenter().addObserver(
            PlayerItem::didPlayToEndTimeNotification, item.get(), nullptr,
            [&](const Notification&) {
                ended = true;
                stopIfDone();
            });
    }
    if (options.seekTo) {
        RunLoop::main().runUntil([&] { return printer->ready || printer->failure; },
                                 std::chrono::seconds(60));
        if (printer->ready) {
            player->seek(*options.seekTo, 600, MediaTime::zero(), MediaTime::zero());
        }
    }
    std::shared_ptr<Timer> limit;
    if (options.forSeconds) {
        limit = Timer::scheduledTimer(*options.forSeconds, false,
                                      [](Timer&) { RunLoop::main().stop(); });
    }
    if (!ended && !printer->failure) {
        RunLoop::main().run();
    }
    if (limit) {
        limit->invalidate();
    }
    printer->statistics(player->playbackStatistics());
    printer->finish();
    if (printer->failure) {
        std::cerr << "zmplay play: " << *printer->failure << "\n";
        return 1;
    }
    return 0;
}

const Command::Registration registration{
    {"play", usage, "play a stream through ZMPlayer, printing each delegate call", play}};

}  // namespace
}  // namespace zarvo::zmplay::play_command
