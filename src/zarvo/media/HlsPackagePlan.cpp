#include "zarvo/media/HlsPackagePlan.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "zarvo/media/MediaError.h"

namespace zarvo {
namespace {

using Kind = HlsPlaylistRewriter::ResourceKind;
using Reference = HlsPlaylistRewriter::Reference;

// Written in place of a URI the package leaves out; the lines that carry it are then dropped.
constexpr const char* leftOut = "zm-left-out:";

bool isHttp(const Url& url) {
    const std::string scheme = url.scheme();
    return scheme == "http" || scheme == "https";
}

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

struct MediaPlaylistPlan {
    std::string text;
    std::vector<HlsPackagePlan::File> files;
    double duration = 0;
};

std::variant<MediaPlaylistPlan, Error> planMediaPlaylist(const Url& url, const std::string& dir,
                                                         const HlsPackagePlan::FetchPlaylist& fetch,
                                                         std::vector<Url>& loaderKeys) {
    auto fetched = fetch(url);
    if (auto* error = std::get_if<Error>(&fetched)) {
        return *error;
    }
    std::map<std::string, std::string> names;  // by URL and range
    std::map<std::string, HlsPackagePlan::File> maps;
    std::size_t count = 0;
    auto mapper = [&](const Reference& reference) -> std::optional<std::string> {
        if (reference.kind == Kind::key) {
            if (isHttp(reference.url)) {
                return reference.url.absoluteString();
            }
            if (std::find(loaderKeys.begin(), loaderKeys.end(), reference.url) ==
                loaderKeys.end()) {
                loaderKeys.push_back(reference.url);
            }
            return std::nullopt;
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
                maps.emplace(key, HlsPackagePlan::File{dir + "/" + slot->second, reference.url,
                                                       reference.byteRange, -1, 0});
            }
        }
        return slot->second;
    };
    const auto result = HlsPlaylistRewriter::rewrite(std::get<std::string>(fetched), url, mapper);
    if (result.isMasterPlaylist) {
        return makeMediaError(
            MediaError::invalidPlaylist,
            url.absoluteString() + " is a master playlist, not a media playlist.");
    }
    MediaPlaylistPlan plan;
    plan.text = result.text;
    if (!result.hasEndList) {
        plan.text += "#EXT-X-ENDLIST\n";  // what was there when it was read, played as a VOD
    }
    for (auto& [key, file] : maps) {
        plan.files.push_back(std::move(file));
    }
    std::set<std::string> planned;
    for (const auto& segment : result.segments) {
        if (!segment.url) {
            continue;
        }
        const std::string key = keyOf(*segment.url, segment.byteRange);
        auto name = names.find(key);
        if (name != names.end() && planned.insert(key).second) {
            plan.files.push_back({dir + "/" + name->second, *segment.url, segment.byteRange,
                                  plan.duration, segment.duration});
        }
        plan.duration += segment.duration;
    }
    return plan;
}

}  // namespace

std::variant<HlsPackagePlan, Error> HlsPackagePlan::make(const Url& masterUrl,
                                                         const std::vector<Rendition>& wanted,
                                                         std::optional<std::int64_t> minimumBitrate,
                                                         const FetchPlaylist& fetch) {
    auto fetched = fetch(masterUrl);
    if (auto* error = std::get_if<Error>(&fetched)) {
        return *error;
    }
    const std::string masterText = std::get<std::string>(std::move(fetched));
    const auto master = HlsPlaylistRewriter::rewrite(masterText, masterUrl,
                                                     [](const Reference&) { return std::nullopt; });
    std::vector<const HlsPlaylistRewriter::Variant*> variants;
    for (const auto& variant : master.variants) {
        if (!variant.isIFrameOnly) {
            variants.push_back(&variant);
        }
    }
    if (!master.isMasterPlaylist || variants.empty()) {
        return makeMediaError(MediaError::invalidPlaylist,
                              masterUrl.absoluteString() + " lists no variants to download.");
    }
    const auto& variant = chooseVariant(variants, minimumBitrate);

    HlsPackagePlan plan;
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
        auto media = planMediaPlaylist(url, dir, fetch, plan.loaderKeys);
        if (auto* error = std::get_if<Error>(&media)) {
            return *error;
        }
        auto& planned = std::get<MediaPlaylistPlan>(media);
        if (url == variant.url) {
            plan.duration = planned.duration;
        }
        plan.files.insert(plan.files.end(), planned.files.begin(), planned.files.end());
        plan.playlists.push_back({dir + "/index.m3u8", std::move(planned.text)});
    }
    std::stable_sort(plan.files.begin(), plan.files.end(),
                     [](const File& a, const File& b) { return a.startSeconds < b.startSeconds; });

    const auto local = HlsPlaylistRewriter::rewrite(
        masterText, masterUrl, [&](const Reference& reference) -> std::optional<std::string> {
            if (reference.kind == Kind::key) {
                return isHttp(reference.url) ? std::optional(reference.url.absoluteString())
                                             : std::nullopt;
            }
            if (reference.kind != Kind::variantPlaylist &&
                reference.kind != Kind::renditionPlaylist) {
                return std::nullopt;
            }
            auto found = localPlaylists.find(reference.url.absoluteString());
            return found != localPlaylists.end() ? found->second : std::string(leftOut);
        });
    plan.playlists.push_back({masterPath, withoutLeftOut(local.text)});
    return plan;
}

}  // namespace zarvo
