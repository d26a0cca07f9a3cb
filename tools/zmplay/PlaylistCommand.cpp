// zmplay playlist: parses a master or media playlist from a file or URL and prints its model.
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <nlohmann/json.hpp>

#include "zarvo/hls/ManifestBuilder.h"
#include "zarvo/platform/Immortal.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/Url.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay::playlist_command {
namespace {

constexpr const char* usage = "playlist <file|url> [--media] [--json] [--summary]";

struct Options {
    std::string source;
    bool media = false;
    bool json = false;
    bool summary = false;
};

int fail(const std::string& message, int status = 1) {
    std::cerr << "zmplay playlist: " << message << "\n";
    return status;
}

bool isUrl(const std::string& text) {
    return text.rfind("http://", 0) == 0 || text.rfind("https://", 0) == 0 ||
           text.rfind("file://", 0) == 0;
}

// A float as the shortest decimal that reads back as the same float (9.009, not 9.00899982).
Json floatValue(float value) {
    char digits[32];
    auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    return std::strtod(std::string(digits, end).c_str(), nullptr);
}

template <class T>
Json optionalValue(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

// The playlist's total duration, added up as MediaPlaylist::duration() does (in single
// precision, in list order) but in one pass; nothing when a segment has none.
std::optional<float> totalDuration(const MediaPlaylist& playlist) {
    float total = 0;
    for (const auto& segment : playlist.segments) {
        if (!segment->duration) {
            return std::nullopt;
        }
        total += *segment->duration;
    }
    return total;
}

Json durationValue(const std::optional<float>& duration) {
    return duration ? floatValue(*duration) : Json(nullptr);
}

std::string durationText(const std::optional<float>& duration) {
    return duration ? durationValue(duration).dump() : "unknown";
}

int printMaster(const MasterPlaylist& master, const Options& options) {
    if (options.summary) {
        if (options.json) {
            std::cout << Json{{"playlists", master.playlists.size()}}.dump() << "\n";
        } else {
            std::cout << "playlists: " << master.playlists.size() << "\n";
        }
        return 0;
    }
    if (options.json) {
        Json playlists = Json::array();
        for (const auto& playlist : master.playlists) {
            playlists.push_back({{"programId", playlist->programId},
                                 {"bandwidth", playlist->bandwidth},
                                 {"path", optionalValue(playlist->path)}});
        }
        std::cout << json::dump(Json{{"playlists", playlists}}) << "\n";
        return 0;
    }
    for (const auto& playlist : master.playlists) {
        std::cout << "program " << playlist->programId << "  bandwidth " << playlist->bandwidth
                  << "  " << playlist->path.value_or("") << "\n";
    }
    std::cout << "playlists: " << master.playlists.size() << "\n";
    return 0;
}

int printMedia(const MediaPlaylist& playlist, const Options& options) {
    const std::optional<float> duration = totalDuration(playlist);
    if (options.summary) {
        if (options.json) {
            std::cout << Json{{"segments", playlist.segments.size()},
                              {"duration", durationValue(duration)}}
                             .dump()
                      << "\n";
        } else {
            std::cout << "segments: " << playlist.segments.size() << "\n"
                      << "duration: " << durationText(duration) << "\n";
        }
        return 0;
    }
    if (options.json) {
        Json segments = Json::array();
        for (const auto& segment : playlist.segments) {
            segments.push_back(
                {{"sequence", segment->sequence},
                 {"duration", segment->duration ? floatValue(*segment->duration) : Json(nullptr)},
                 {"title", optionalValue(segment->title)},
                 {"subrangeLength", optionalValue(segment->subrangeLength)},
                 {"subrangeStart", optionalValue(segment->subrangeStart)},
                 {"discontinuity", segment->discontinuity},
                 {"path", optionalValue(segment->path)}});
        }
        Json document = {{"version", optionalValue(playlist.version)},
                         {"targetDuration", optionalValue(playlist.targetDuration)},
                         {"mediaSequence", optionalValue(playlist.mediaSequence)},
                         {"duration", durationValue(duration)},
                         {"segments", segments}};
        // Titles and paths need not be valid UTF-8 when read from a file: replace, not throw.
        std::cout << json::dump(document) << "\n";
        return 0;
    }
    auto text = [](const auto& value) {
        return value ? std::to_string(*value) : std::string("none");
    };
    std::cout << "version " << text(playlist.version) << "  target duration "
              << text(playlist.targetDuration) << "  media sequence "
              << text(playlist.mediaSequence) << "\n";
    for (const auto& segment : playlist.segments) {
        std::cout << segment->sequence << "  "
                  << (segment->duration ? floatValue(*segment->duration).dump() : "none");
        if (segment->subrangeLength) {
            std::cout << "  bytes " << *segment->subrangeLength;
            if (segment->subrangeStart) {
                std::cout << "@" << *segment->subrangeStart;
            }
        }
        std::cout << (segment->discontinuity ? "  discontinuity" : "") << "  "
                  << segment->path.value_or("") << "\n";
    }
    std::cout << "segments: " << playlist.segments.size() << "\n"
              << "duration: " << durationText(duration) << "\n";
    return 0;
}

// Keeps a parsed model until the process ends. The command exits right after printing, and
// freeing a large playlist segment by segment would cost about as much as parsing it.
template <class Model>
const Model& keptUntilExit(std::shared_ptr<Model> model) {
    static Immortal<std::shared_ptr<const void>> kept;
    kept.get() = model;
    return *model;
}

int runPlaylist(const std::vector<std::string>& arguments) {
    Options options;
    for (const auto& argument : arguments) {
        if (argument == "--media") {
            options.media = true;
        } else if (argument == "--json") {
            options.json = true;
        } else if (argument == "--summary") {
            options.summary = true;
        } else if (argument.rfind("--", 0) == 0 || !options.source.empty()) {
            return fail(std::string("usage: zmplay ") + usage, 2);
        } else {
            options.source = argument;
        }
    }
    if (options.source.empty()) {
        return fail(std::string("usage: zmplay ") + usage, 2);
    }
    ManifestBuilder builder;
    std::optional<Url> url;
    if (isUrl(options.source)) {
        url = Url::parse(options.source);
        if (!url) {
            return fail("not a valid URL: " + options.source);
        }
    } else if (::access(options.source.c_str(), R_OK) != 0) {
        return fail("cannot read " + options.source);
    }
    // Parser messages go to standard output as they come; the model follows.
    if (options.media) {
        auto playlist = std::make_shared<MediaPlaylist>();
        if (url) {
            builder.parseMediaPlaylistFromURL(*url, playlist);
        } else {
            builder.parseMediaPlaylistFromFile(options.source, playlist);
        }
        return printMedia(keptUntilExit(std::move(playlist)), options);
    }
    auto master = url ? builder.parseMasterPlaylistFromURL(*url)
                      : builder.parseMasterPlaylistFromFile(options.source);
    return printMaster(keptUntilExit(std::move(master)), options);
}

const Command::Registration registration(Command{
    "playlist", usage,
    "parse a master playlist (or with --media a media playlist) and print its model", runPlaylist});

}  // namespace
}  // namespace zarvo::zmplay::playlist_command
