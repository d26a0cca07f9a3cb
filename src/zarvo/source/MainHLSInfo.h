#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/source/HLSMediaInfo.h"
#include "zarvo/source/HLSStreamInfo.h"
#include "zarvo/source/OstraCDNSubtitlesParams.h"

namespace zarvo {

// The line-oriented view of an HLS master playlist: its header, rendition ("#EXT-X-MEDIA")
// and variant ("#EXT-X-STREAM-INF" plus URI) lines with absolute URIs that carry the
// master's query, the parsed renditions and variants, and synthesised subtitle renditions.
class ZARVO_EXPORT MainHLSInfo {
public:
    std::vector<std::string> headerLines;
    std::vector<std::string> mediaLines;
    std::vector<std::string> streamsLines;
    std::vector<std::string> subtitlesLines;
    std::vector<HLSMediaInfo> media;
    std::vector<HLSStreamInfo> streams;
    std::vector<HLSStreamInfo> videoQualitiesList;
    std::int64_t currentVideoRepresentationIndex = -1;
    std::vector<OstraCDNSubtitlesParams> subtitles;
    std::optional<double> subtitlesDuration;
    bool isLive = false;

    // Exactly one of the two is set.
    using Completion = std::function<void(std::shared_ptr<MainHLSInfo>, std::optional<Error>)>;
    struct Result {
        std::shared_ptr<MainHLSInfo> info;
        std::optional<Error> error;
    };

    // Splits a master playlist. `baseUrl` (ending in "/") is put before relative URIs and a
    // non-empty `query` is carried onto every child URL. Failures are "ZMPlayerErrorDomain"
    // code-13 errors: "No lines.", "No header.", "Incorrect media info." or "Incorrect stream
    // info.".
    static Result split(std::string_view text, std::string_view baseUrl, std::string_view query);
    // The same, handing the result to `completion` before returning.
    static void make(std::string_view text, std::string_view baseUrl, std::string_view query,
                     const Completion& completion);

    // Downloads the master playlist at `masterUrl` on a session of its own (GET, 60-second
    // time-out) and splits it; the completion runs on that session's queue. A failed download
    // gives the code-12 error, a master URL without a directory part "No root path".
    static void load(const Url& masterUrl, Completion completion);

    // The directory of the master URL without query ("No root path" when it cannot be written),
    // and the master's query ("" when it has none).
    struct RootPath {
        std::string base;
        std::string query;
    };
    static std::optional<RootPath> rootPath(const Url& masterUrl);

    // Rebuilds subtitlesLines from subtitles: one rendition per element k in group "sub1" with
    // the URI "subtitles<k>.m3u8".
    void rebuildSubtitlesLines();
};

}  // namespace zarvo
