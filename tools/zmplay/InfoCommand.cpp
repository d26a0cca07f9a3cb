// zmplay info: the download qualities, size estimates and line groups of a stream.
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "zarvo/offline/DownloadQualityJson.h"
#include "zarvo/offline/ZMOfflineStreamInfoReader.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/Url.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay::info_command {
namespace {

constexpr const char* usage = "info <url> [--json]";

using Json = nlohmann::ordered_json;

int fail(const std::string& message, int status) {
    std::cerr << "zmplay info: " << message << "\n";
    return status;
}

std::string megabytes(double bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    return text;
}

void printGroup(const char* title, const std::optional<std::vector<std::string>>& lines) {
    std::cout << title << ":\n";
    for (const auto& line : lines.value_or(std::vector<std::string>{})) {
        std::cout << "  " << line << "\n";
    }
}

int runInfo(const std::vector<std::string>& arguments) {
    std::string source;
    bool json = false;
    for (const auto& argument : arguments) {
        if (argument == "--json") {
            json = true;
        } else if (argument.rfind("--", 0) == 0 || !source.empty()) {
            return fail(std::string("usage: zmplay ") + usage, 2);
        } else {
            source = argument;
        }
    }
    if (source.empty()) {
        return fail(std::string("usage: zmplay ") + usage, 2);
    }
    auto url = Url::parse(source);
    if (!url || !url->isAbsolute()) {
        return fail("not a valid URL: " + source, 1);
    }
    auto reader = ZMOfflineStreamInfoReader::make(*url);
    std::promise<bool> loaded;
    reader->loadPlaylist([&loaded](bool success) { loaded.set_value(success); });
    if (!loaded.get_future().get()) {
        return fail("could not load the stream info of " + source, 1);
    }
    const auto qualities = reader->availableDownloadQualities();
    if (json) {
        Json document = {
            {"availableDownloadQualities", qualities},
            {"hasPolishVersion", reader->hasPolishVersion()},
            {"headerLines", reader->headerLines().value_or(std::vector<std::string>{})},
            {"mediaLines", reader->mediaLines().value_or(std::vector<std::string>{})},
            {"streamLines", reader->streamLines().value_or(std::vector<std::string>{})},
            {"subtitlesHlsLines",
             reader->subtitlesHlsLines().value_or(std::vector<std::string>{})}};
        std::cout << json::dump(document) << "\n";
        return 0;
    }
    std::cout << "Download qualities:\n";
    for (const auto& quality : qualities) {
        std::cout << "  " << quality.width << "x" << quality.height << "  " << quality.bitrate
                  << " bit/s  " << megabytes(quality.size) << " ("
                  << megabytes(quality.sizeWithBasicAudio) << " with basic audio)\n";
    }
    std::cout << "Polish version: " << (reader->hasPolishVersion() ? "yes" : "no") << "\n";
    printGroup("Header lines", reader->headerLines());
    printGroup("Media lines", reader->mediaLines());
    printGroup("Stream lines", reader->streamLines());
    printGroup("Subtitles lines", reader->subtitlesHlsLines());
    return 0;
}

const Command::Registration registration(Command{
    "info", usage, "show a stream's download qualities with size estimates and its playlist lines",
    runInfo});

}  // namespace
}  // namespace zarvo::zmplay::info_command
