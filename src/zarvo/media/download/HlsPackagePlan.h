#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// What a download of an HLS stream puts into its package directory: one variant, the chosen
// renditions of its groups, their segments and initialization sections (a byte range is a file
// of its own), the keys on servers, and local playlists that name those files, so the engine
// plays the package from disk. A key that the resource loader answers keeps its URI, to be asked
// for again when the package plays. A media playlist is a stream of one variant: the package
// gets a master of its own over it.
struct ZARVO_EXPORT HlsPackagePlan {
    // A rendition a media selection asks for, as its EXT-X-MEDIA names it; `every()` asks for
    // all renditions of the variant's groups.
    struct Rendition {
        static Rendition every() { return {"*", "", "", std::nullopt}; }

        std::string type;  // "AUDIO", "SUBTITLES", "CLOSED-CAPTIONS"
        std::string groupId, name;
        std::optional<std::string> language;

        bool operator==(const Rendition&) const = default;
    };
    struct File {
        std::string path;  // relative to the package
        Url url;
        std::optional<HlsPlaylistRewriter::ByteRange> range;
        double startSeconds = 0;  // where its segment starts in its playlist; -1 for a map or key
        double mediaSeconds = 0;  // the segment's duration; 0 for a map or key
        // A longer body is an error (see ResponseLimits).
        std::size_t maximumLength = 0;
    };
    struct Playlist {
        std::string path;  // relative to the package
        std::string text;
    };
    // The playlist at `url`, or why it could not be had.
    using FetchPlaylist = std::function<std::variant<std::string, Error>(const Url& url)>;

    static constexpr const char* masterPath = "master.m3u8";

    // Reads the master and the media playlists of what is chosen: the lowest variant whose
    // BANDWIDTH reaches `minimumBitrate` (the highest when none does or none is given) and,
    // in each of its groups, the renditions `wanted` names by type, name and language; an audio
    // group with none of them gives its DEFAULT rendition (else its first), for the variant
    // needs it to play. A master without variants, a text that is not a playlist, or a fetch
    // that fails, is the error.
    static std::variant<HlsPackagePlan, Error> make(const Url& masterUrl,
                                                    const std::vector<Rendition>& wanted,
                                                    std::optional<std::int64_t> minimumBitrate,
                                                    const FetchPlaylist& fetch);

    // The plan as the download service keeps it between runs, and back; nothing for a text that
    // is not a whole plan.
    std::string toJson() const;
    static std::optional<HlsPackagePlan> fromJson(std::string_view text);
    // Renditions as JSON text ([{"type", "group", "name", "language"}...]) and back; an
    // unreadable text gives none.
    static std::string renditionsToJson(const std::vector<Rendition>& renditions);
    static std::vector<Rendition> renditionsFromJson(std::string_view text);

    std::vector<File> files;            // to fetch, ordered by start time across the playlists
    std::vector<Playlist> playlists;    // the media playlists, then the master
    std::vector<Url> loaderKeys;        // distinct key URIs that are not http(s), in playlist order
    std::vector<Rendition> renditions;  // those included
    std::int64_t bandwidth = 0;         // of the variant chosen
    double duration = 0;                // of the variant chosen, in seconds
};

}  // namespace zarvo
