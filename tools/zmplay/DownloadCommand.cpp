// zmplay download: downloads a stream for offline playback through ZMOfflineManager, showing
// its progress, and exits when the download ends.
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "zarvo/offline/FPDownloadsStore.h"
#include "zarvo/offline/ZMOfflineManager.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/RunLoop.h"

#include "zmplay/Command.h"
#include "zmplay/DownloadLock.h"

namespace zarvo::zmplay::download_command {
namespace {

constexpr const char* usage =
    "download <url> [--title T] [--min-bitrate N] [--audio ID,...] [--subtitles ID,...] "
    "[--cert URL --license URL] [--header NAME:VALUE]... [--json]";

struct DownloadOptions {
    std::string url;
    std::string title;
    std::optional<double> minBitrate;
    std::optional<std::vector<std::string>> audioIds, subtitlesIds;
    std::optional<Url> certUrl, licenseUrl;
    std::map<std::string, std::string> headers;
    bool json = false;
};

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

std::optional<std::string> parse(const std::vector<std::string>& arguments,
                                 DownloadOptions& options) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& flag = arguments[i];
        auto value = [&]() -> std::optional<std::string> {
            return i + 1 < arguments.size() ? std::optional(arguments[++i]) : std::nullopt;
        };
        if (flag == "--json") {
            options.json = true;
        } else if (flag == "--title") {
            auto text = value();
            if (!text) {
                return "--title needs a text";
            }
            options.title = *text;
        } else if (flag == "--min-bitrate") {
            auto text = value();
            double number = 0;
            if (!text ||
                std::from_chars(text->data(), text->data() + text->size(), number).ec !=
                    std::errc() ||
                number < 0) {
                return "--min-bitrate needs a number of bits per second";
            }
            options.minBitrate = number;
        } else if (flag == "--audio" || flag == "--subtitles") {
            auto text = value();
            if (!text) {
                return flag + " needs ID,...";
            }
            (flag == "--audio" ? options.audioIds : options.subtitlesIds) = split(*text);
        } else if (flag == "--cert" || flag == "--license") {
            auto text = value();
            auto url = text ? Url::parse(*text) : std::nullopt;
            if (!url) {
                return flag + " needs a URL";
            }
            (flag == "--cert" ? options.certUrl : options.licenseUrl) = *url;
        } else if (flag == "--header") {
            if (!addHeaderField(value(), options.headers)) {
                return "--header needs NAME:VALUE";
            }
        } else if (!flag.empty() && flag[0] == '-') {
            return "unknown option " + flag;
        } else if (options.url.empty()) {
            options.url = flag;
        } else {
            return "one URL only";
        }
    }
    if (options.url.empty()) {
        return "a URL is needed";
    }
    if (!streamUrl(options.url)) {
        return options.url + " is not an absolute http, https or file URL";
    }
    if (options.certUrl.has_value() != options.licenseUrl.has_value()) {
        return "--cert and --license go together";
    }
    if (options.title.empty()) {
        options.title = Url::parse(options.url)->lastPathComponent();
    }
    return std::nullopt;
}

std::uintmax_t bytesUnder(const std::filesystem::path& root) {
    std::uintmax_t bytes = 0;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(root, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        std::error_code ignored;
        if (it->is_regular_file(ignored)) {
            bytes += it->file_size(ignored);
        }
    }
    return bytes;
}

std::string clock(double seconds) {
    const auto whole = static_cast<long long>(std::max(0.0, std::round(seconds)));
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

// Prints the manager's events for one download: a progress bar redrawn in place on a terminal,
// or one JSON object per event.
class Progress : public ZMOfflineManagerDelegate {
public:
    explicit Progress(bool json) : json_(json), terminal_(::isatty(STDOUT_FILENO) != 0) {}

    std::string id;
    bool ended = false;
    std::optional<std::string> failure;

    void offlineManagerDidUpdate(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>& download) override {
        if (download->id() != id) {
            return;
        }
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        auto offline = download->offlineUrl();
        const double bytes =
            offline
                ? static_cast<double>(bytesUnder(AppDirectories::home() / offline->decodedPath()))
                : 0;
        const double speed = elapsed > 0 ? bytes / elapsed : 0;
        const double progress = download->progress();
        const double left = progress > 0 ? elapsed * (1 - progress) / progress : 0;
        if (json_) {
            Json event = {{"event", "didUpdate"},    {"id", id},
                          {"progress", progress},    {"bytes", bytes},
                          {"bytesPerSecond", speed}, {"secondsLeft", left}};
            std::cout << event.dump() << std::endl;
            return;
        }
        const int width = 30;
        const int filled = static_cast<int>(std::lround(progress * width));
        char line[160];
        std::snprintf(line, sizeof line, "[%s%s] %5.1f%%  %6.2f MB/s  %s left",
                      std::string(filled, '#').c_str(), std::string(width - filled, '.').c_str(),
                      progress * 100, speed / 1e6, clock(left).c_str());
        std::cout << (terminal_ ? "\r" : "") << line << (terminal_ ? "" : "\n") << std::flush;
    }
    void offlineManagerDidErrorOccur(ZMOfflineManagerProtocol&,
                                     const std::shared_ptr<ZMOfflineDownload>& download,
                                     const Error& error) override {
        if (download->id() != id) {
            return;
        }
        failure = error.localizedDescription();
        ended = true;
        if (json_) {
            std::cout << json::dump(
                             Json{{"event", "didErrorOccur"}, {"id", id}, {"error", *failure}})
                      << std::endl;
        }
    }
    void offlineManagerDidFind(ZMOfflineManagerProtocol&, const ZMOfflineDownload::List&) override {
    }
    void offlineManagerDidCancel(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>&) override {}
    void offlineManagerDidRestart(ZMOfflineManagerProtocol&,
                                  const std::shared_ptr<ZMOfflineDownload>&) override {}
    void offlineManagerDidPause(ZMOfflineManagerProtocol&,
                                const std::shared_ptr<ZMOfflineDownload>&) override {}
    void offlineManagerDidFinish(ZMOfflineManagerProtocol&,
                                 const std::shared_ptr<ZMOfflineDownload>& download) override {
        if (download->id() != id) {
            return;
        }
        ended = true;
        const double elapsed =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        auto offline = download->offlineUrl();
        const std::string where = offline ? offline->absoluteString() : "";
        if (json_) {
            std::cout << json::dump(Json{{"event", "didFinish"},
                                         {"id", id},
                                         {"offlineUrl", where},
                                         {"seconds", elapsed}})
                      << std::endl;
            return;
        }
        std::cout << (terminal_ ? "\n" : "") << "Downloaded " << download->title() << " (" << id
                  << ") in " << clock(elapsed) << " to " << where << std::endl;
    }

private:
    const bool json_;
    const bool terminal_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

int download(const std::vector<std::string>& arguments) {
    DownloadOptions options;
    if (auto problem = parse(arguments, options)) {
        std::cerr << "zmplay download: " << *problem << "\nusage: zmplay " << usage << "\n";
        return 2;
    }
    DownloadLock lock("download");
    auto progress = std::make_shared<Progress>(options.json);
    auto manager = ZMOfflineManager::make(std::make_shared<FPDownloadsStore>());
    manager->setDelegate(progress);
    // The store saves its list as it holds it: a download started before the list was read
    // would replace the downloads of earlier runs.
    manager->getDownloads();
    std::optional<std::string> refused;
    bool queued = false;
    manager->startDownload(
        options.title, *Url::parse(options.url), options.certUrl, options.licenseUrl,
        options.audioIds, options.subtitlesIds, options.minBitrate, options.headers,
        [&, progress](const std::shared_ptr<ZMOfflineDownload>& download,
                      const std::optional<Error>& error) {
            DispatchQueue::main()->async([&refused, &queued, progress, download, error] {
                if (error || !download) {
                    refused = error ? error->localizedDescription() : "no download was made";
                } else {
                    progress->id = download->id();
                }
                queued = true;
            });
        });
    RunLoop::main().runUntil([&] { return queued; }, std::chrono::seconds(60));
    if (!queued || refused) {
        std::cerr << "zmplay download: " << refused.value_or("the address did not answer") << "\n";
        return 1;
    }
    RunLoop::main().runUntil([&] { return progress->ended; }, std::chrono::hours(24));
    if (progress->failure) {
        std::cerr << "\nzmplay download: " << *progress->failure << "\n";
        return 1;
    }
    return 0;
}

const Command::Registration registration{
    {"download", usage,
     "download a stream for offline playback through ZMOfflineManager, showing its progress",
     download}};

}  // namespace
}  // namespace zarvo::zmplay::download_command
