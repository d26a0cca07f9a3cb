#include "zarvo/media/download/HlsPackagePlan.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/ResponseLimits.h"

namespace zarvo {
namespace {

using Kind = HlsPlaylistRewriter::ResourceKind;
using Reference = HlsPlaylistRewriter::Reference;

// Written in place of a URI the package leaves out; the lines that carry it are then dropped.
constexpr const char* leftOut = "zm-left-out:";
// The folder of the package's key files.
constexpr const char* keysFolder = "keys";

std::string keyOf(const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range) {
    return range ? url.absoluteString() + "~" + std::to_string(range->offset) + "~" +
                       std::to_string(range->length)
                 : url.absoluteString();
}

// ".ts", ".m4s", ".vtt"...: the extension of the URL's last path component when it is a short
// run of letters and digits; nothing otherwise.
std::string extensionOf(const Url& url) {
    const std::string extension = url.pathExtension();
    const bool plain =
        !extension.empty() && extension.size() <= 5 &&
        std::all_of(extension.begin(), extension.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        });
    return plain ? "." + extension : "";
}

const HlsPlaylistRewriter::Variant& chooseVariant(
    const std::vector<const HlsPlaylistRewriter::Variant*>& variants,
    std::optional<std::int64_t> minimumBitrate) {
    const HlsPlaylistRewriter::Variant* highest = variants.front();
    const HlsPlaylistRewriter::Variant* lowestEnough = nullptr;
    for (const auto* variant : variants) {
        if (variant->bandwidth > highest->bandwidth) {
            highest = variant;
        }
        if (minimumBitrate && variant->bandwidth >= *minimumBitrate &&
            (!lowestEnough || variant->bandwidth < lowestEnough->bandwidth)) {
            lowestEnough = variant;
        }
    }
    return lowestEnough ? *lowestEnough : *highest;
}

// The renditions of `groupId` that go into the package.
std::vector<const HlsPlaylistRewriter::Rendition*> chooseRenditions(
    const HlsPlaylistRewriter::Result& master, const std::string& type, const std::string& groupId,
    const std::vector<HlsPackagePlan::Rendition>& wanted) {
    std::vector<const HlsPlaylistRewriter::Rendition*> members;
    std::vector<const HlsPlaylistRewriter::Rendition*> chosen;
    for (const auto& rendition : master.renditions) {
        if (rendition.type != type || rendition.groupId != groupId || !rendition.url) {
            continue;
        }
        members.push_back(&rendition);
        const bool asked = std::any_of(wanted.begin(), wanted.end(), [&](const auto& want) {
            return want == HlsPackagePlan::Rendition::every() ||
                   (want.type == type && want.name == rendition.name &&
                    want.language == rendition.language);
        });
        if (asked) {
            chosen.push_back(&rendition);
        }
    }
    if (chosen.empty() && type == "AUDIO" && !members.empty()) {
        auto fallback = std::find_if(members.begin(), members.end(),
                                     [](const auto* rendition) { return rendition->isDefault; });
        chosen.push_back(fallback != members.end() ? *fallback : members.front());
    }
    return chosen;
}

// Drops the lines that carry `leftOut`, with the EXT-X-STREAM-INF of a variant URI dropped.
std::string withoutLeftOut(const std::string& text) {
    std::istringstream lines(text);
    std::vector<std::string> kept;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(leftOut) == std::string::npos) {
            kept.push_back(std::move(line));
            continue;
        }
        if (!line.starts_with("#") && !kept.empty() &&
            kept.back().starts_with("#EXT-X-STREAM-INF")) {
            kept.pop_back();
        }
    }
    std::string out;
    for (const auto& line : kept) {
        out += line + "\n";
    }
    return out;
}

// Puts the media playlists of one package into its plan: their local text, the files they
// name and the keys, each key one file however many playlists name it.
class PackageBuilder {
public:
    explicit PackageBuilder(const HlsPackagePlan::FetchPlaylist& fetch) : fetch_(fetch) {}

    // Plans the media playlist at `url` into the folder `dir`: its duration, or why it could
    // not be planned. `bandwidth` is the peak bitrate the master gives it; `text` is the
    // playlist when it was read already.
    std::variant<double, Error> addMediaPlaylist(const Url& url, const std::string& dir,
                                                 std::optional<std::int64_t> bandwidth,
                                                 std::optional<std::string> text = std::nullopt) {
        if (!text) {
            auto fetched = fetch_(url);
            if (auto* error = std::get_if<Error>(&fetched)) {
                return *error;
            }
            text = std::get<std::string>(std::move(fetched));
        }
        if (!HlsPlaylistRewriter::looksLikePlaylist(*text)) {
            return makeMediaError(MediaError::invalidPlaylist,
                                  url.absoluteString() + " is not an HLS playlist.");
        }
        std::map<std::string, std::string> names;  // by URL and range
        std::size_t count = 0;
        auto mapper = [&](const Reference& reference) -> std::optional<std::string> {
            if (reference.kind == Kind::key) {
                return keyFile(reference.url);
            }
            if (reference.kind != Kind::segment && reference.kind != Kind::initializationSection) {
                return std::nullopt;
            }
            const std::string key = keyOf(reference.url, reference.byteRange);
            auto [slot, added] = names.try_emplace(key);
            if (added) {
                const bool isMap = reference.kind == Kind::initializationSection;
                slot->second =
                    (isMap ? "init" : "") + std::to_string(count++) + extensionOf(reference.url);
                if (isMap) {
                    plan_.files.push_back(HlsPackagePlan::File{dir + "/" + slot->second,
                                                               reference.url, reference.byteRange,
                                                               -1, 0, ResponseLimits::segment(0)});
                }
            }
            return slot->second;
        };
        const auto result = HlsPlaylistRewriter::rewrite(*text, url, mapper);
        if (result.isMasterPlaylist) {
            return makeMediaError(
                MediaError::invalidPlaylist,
                url.absoluteString() + " is a master playlist, not a media playlist.");
        }
        std::string local = result.text;
        if (!result.hasEndList) {
            local += "#EXT-X-ENDLIST\n";  // what was there when it was read, played as a VOD
        }
        double duration = 0;
        std::set<std::string> planned;
        for (const auto& segment : result.segments) {
            if (!segment.url) {
                continue;
            }
            const std::string key = keyOf(*segment.url, segment.byteRange);
            auto name = names.find(key);
            if (name != names.end() && planned.insert(key).second) {
                plan_.files.push_back({dir + "/" + name->second, *segment.url, segment.byteRange,
                                       duration, segment.duration,
                                       ResponseLimits::segment(segment.duration, bandwidth)});
            }
            duration += segment.duration;
        }
        plan_.playlists.push_back({dir + "/index.m3u8", std::move(local)});
        return duration;
    }

    HlsPackagePlan take(std::string masterText) {
        // Files in the order playback needs them: keys and maps, then by start time.
        std::stable_sort(plan_.files.begin(), plan_.files.end(),
                         [](const HlsPackagePlan::File& a, const HlsPackagePlan::File& b) {
                             return a.startSeconds < b.startSeconds;
                         });
        plan_.playlists.push_back({HlsPackagePlan::masterPath, std::move(masterText)});
        return std::move(plan_);
    }

    HlsPackagePlan& plan() { return plan_; }

private:
    // The local name of a key: a key on a server becomes a file of the package (the package
    // plays where no server answers); one the resource loader answers keeps its URI, to be
    // asked for again when the package plays.
    std::optional<std::string> keyFile(const Url& url) {
        if (!url.isHttp()) {
            if (std::find(plan_.loaderKeys.begin(), plan_.loaderKeys.end(), url) ==
                plan_.loaderKeys.end()) {
                plan_.loaderKeys.push_back(url);
            }
            return std::nullopt;
        }
        auto [slot, added] = keys_.try_emplace(url.absoluteString());
        if (added) {
            slot->second =
                std::string(keysFolder) + "/key" + std::to_string(keys_.size() - 1) + ".key";
            plan_.files.push_back(HlsPackagePlan::File{slot->second, url, std::nullopt, -1, 0,
                                                       ResponseLimits::keyAnswer});
        }
        // Media playlists lie one folder below the package.
        return "../" + slot->second;
    }

    const HlsPackagePlan::FetchPlaylist& fetch_;
    HlsPackagePlan plan_;
    std::map<std::string, std::string> keys_;  // local paths by URL
};

}  // namespace

std::variant<HlsPackagePlan, Error> HlsPackagePlan::make(const Url& masterUrl,
                                                         const std::vector<Rendition>& wanted,
                                                         std::optional<std::int64_t> minimumBitrate,
                                                         const FetchPlaylist& fetch) {
    auto fetched = fetch(masterUrl);
    if (auto* error = std::get_if<Error>(&fetched)) {
        return *error;
    }
    std::string masterText = std::get<std::string>(std::move(fetched));
    const auto master = HlsPlaylistRewriter::rewrite(masterText, masterUrl,
                                                     [](const Reference&) { return std::nullopt; });
    PackageBuilder builder(fetch);
    if (!master.isMasterPlaylist) {
        // A media playlist is a stream of one variant, without renditions.
        auto planned =
            builder.addMediaPlaylist(masterUrl, "video", std::nullopt, std::move(masterText));
        if (auto* error = std::get_if<Error>(&planned)) {
            return *error;
        }
        builder.plan().duration = std::get<double>(planned);
        return builder.take("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=0\nvideo/index.m3u8\n");
    }
    std::vector<const HlsPlaylistRewriter::Variant*> variants;
    for (const auto& variant : master.variants) {
        if (!variant.isIFrameOnly) {
            variants.push_back(&variant);
        }
    }
    if (variants.empty()) {
        return makeMediaError(MediaError::invalidPlaylist,
                              masterUrl.absoluteString() + " lists no variants to download.");
    }
    const auto& variant = chooseVariant(variants, minimumBitrate);
    auto& plan = builder.plan();
    plan.bandwidth = variant.bandwidth;
    // Local playlist paths by the URL they stand for.
    std::map<std::string, std::string> localPlaylists;
    std::vector<std::pair<Url, std::string>> mediaPlaylists{{variant.url, "video"}};
    localPlaylists[variant.url.absoluteString()] = "video/index.m3u8";
    const std::pair<const char*, const std::optional<std::string>*> groups[] = {
        {"AUDIO", &variant.audioGroup}, {"SUBTITLES", &variant.subtitlesGroup}};
    for (const auto& [type, group] : groups) {
        if (!*group) {
            continue;
        }
        for (const auto* rendition : chooseRenditions(master, type, **group, wanted)) {
            const std::string dir =
                std::string(type == std::string("AUDIO") ? "audio" : "subtitles") +
                std::to_string(mediaPlaylists.size());
            if (localPlaylists.try_emplace(rendition->url->absoluteString(), dir + "/index.m3u8")
                    .second) {
                mediaPlaylists.emplace_back(*rendition->url, dir);
            }
            plan.renditions.push_back(
                {rendition->type, rendition->groupId, rendition->name, rendition->language});
        }
    }
    for (const auto& [url, dir] : mediaPlaylists) {
        auto planned = builder.addMediaPlaylist(
            url, dir, url == variant.url ? std::optional(variant.bandwidth) : std::nullopt);
        if (auto* error = std::get_if<Error>(&planned)) {
            return *error;
        }
        if (url == variant.url) {
            plan.duration = std::get<double>(planned);
        }
    }

    const auto local = HlsPlaylistRewriter::rewrite(
        masterText, masterUrl, [&](const Reference& reference) -> std::optional<std::string> {
            if (reference.kind == Kind::key) {
                return reference.url.isHttp() ? std::optional(reference.url.absoluteString())
                                              : std::nullopt;
            }
            if (reference.kind != Kind::variantPlaylist &&
                reference.kind != Kind::renditionPlaylist) {
                return std::nullopt;
            }
            auto found = localPlaylists.find(reference.url.absoluteString());
            return found != localPlaylists.end() ? found->second : std::string(leftOut);
        });
    return builder.take(withoutLeftOut(local.text));
}

namespace {

Json renditionsJson(const std::vector<HlsPackagePlan::Rendition>& renditions) {
    Json list = Json::array();
    for (const auto& rendition : renditions) {
        Json item = {
            {"type", rendition.type}, {"group", rendition.groupId}, {"name", rendition.name}};
        if (rendition.language) {
            item["language"] = *rendition.language;
        }
        list.push_back(std::move(item));
    }
    return list;
}

std::vector<HlsPackagePlan::Rendition> renditionsFrom(const Json& list) {
    std::vector<HlsPackagePlan::Rendition> renditions;
    if (!list.is_array()) {
        return renditions;
    }
    for (const auto& item : list) {
        if (!item.is_object()) {
            continue;
        }
        renditions.push_back(
            {json::string(item, "type").value_or(""), json::string(item, "group").value_or(""),
             json::string(item, "name").value_or(""), json::string(item, "language")});
    }
    return renditions;
}

}  // namespace

std::string HlsPackagePlan::renditionsToJson(const std::vector<Rendition>& renditions) {
    return json::dump(renditionsJson(renditions));
}

std::vector<HlsPackagePlan::Rendition> HlsPackagePlan::renditionsFromJson(std::string_view text) {
    auto list = json::parse(text);
    return list ? renditionsFrom(*list) : std::vector<Rendition>{};
}

std::string HlsPackagePlan::toJson() const {
    Json filesJson = Json::array();
    for (const auto& file : files) {
        Json item = {{"path", file.path},
                     {"url", file.url.absoluteString()},
                     {"start", file.startSeconds},
                     {"seconds", file.mediaSeconds},
                     {"maximum", file.maximumLength}};
        if (file.range) {
            item["offset"] = file.range->offset;
            item["length"] = file.range->length;
        }
        filesJson.push_back(std::move(item));
    }
    Json playlistsJson = Json::array();
    for (const auto& playlist : playlists) {
        playlistsJson.push_back({{"path", playlist.path}, {"text", playlist.text}});
    }
    Json keys = Json::array();
    for (const auto& key : loaderKeys) {
        keys.push_back(key.absoluteString());
    }
    return json::dump(Json{{"files", std::move(filesJson)},
                           {"playlists", std::move(playlistsJson)},
                           {"loaderKeys", std::move(keys)},
                           {"renditions", renditionsJson(renditions)},
                           {"bandwidth", bandwidth},
                           {"duration", duration}});
}

std::optional<HlsPackagePlan> HlsPackagePlan::fromJson(std::string_view text) {
    const auto parsed = json::parse(text);
    if (!parsed || !parsed->is_object()) {
        return std::nullopt;
    }
    const Json& object = *parsed;
    auto member = [&](const char* key) -> const Json& {
        static const Json none;
        auto found = object.find(key);
        return found == object.end() ? none : *found;
    };
    const Json& files = member("files");
    const Json& playlists = member("playlists");
    const Json& keys = member("loaderKeys");
    auto bandwidth = json::integer(object, "bandwidth");
    auto duration = json::number(object, "duration");
    if (!files.is_array() || !playlists.is_array() || !keys.is_array() || !bandwidth || !duration) {
        return std::nullopt;
    }
    HlsPackagePlan plan;
    plan.bandwidth = *bandwidth;
    plan.duration = *duration;
    plan.renditions = renditionsFrom(member("renditions"));
    for (const auto& item : files) {
        auto path = json::string(item, "path");
        auto url = json::string(item, "url");
        auto parsed = url ? Url::parse(*url) : std::nullopt;
        auto start = json::number(item, "start");
        auto seconds = json::number(item, "seconds");
        auto maximum = json::integer(item, "maximum");
        if (!path || !parsed || !start || !seconds || !maximum || *maximum < 0) {
            return std::nullopt;
        }
        File file{*path,  *parsed,  std::nullopt,
                  *start, *seconds, static_cast<std::size_t>(*maximum)};
        auto offset = json::integer(item, "offset");
        auto length = json::integer(item, "length");
        if (offset && length) {
            file.range = HlsPlaylistRewriter::ByteRange{*offset, *length};
        }
        plan.files.push_back(std::move(file));
    }
    for (const auto& item : playlists) {
        auto path = json::string(item, "path");
        auto playlistText = json::string(item, "text");
        if (!path || !playlistText) {
            return std::nullopt;
        }
        plan.playlists.push_back({*path, *playlistText});
    }
    for (const auto& key : keys) {
        auto parsed = key.is_string() ? Url::parse(key.get<std::string>()) : std::nullopt;
        if (!parsed) {
            return std::nullopt;
        }
        plan.loaderKeys.push_back(*parsed);
    }
    return plan;
}

}  // namespace zarvo
