#include "zarvo/source/MainHLSInfo.h"

#include <iostream>

#include "zarvo/hls/PlaylistNumbers.h"
#include "zarvo/hls/Utf8Text.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlComponents.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/player/ZMPlayerError.h"
#include "zarvo/source/HLSPlaylistBuilder.h"

namespace zarvo {
namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (true) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            lines.push_back(text.substr(start));
            return lines;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    std::size_t start = 0;
    while (true) {
        std::size_t found = text.find(from, start);
        if (found == std::string_view::npos) {
            out.append(text.substr(start));
            return out;
        }
        out.append(text.substr(start, found - start)).append(to);
        start = found + from.size();
    }
}

bool isHeaderLine(std::string_view line) {
    return !startsWith(line, "#EXT-X-MEDIA") && !startsWith(line, "#EXT-X-STREAM-INF") &&
           !contains(line, "m3u8") && !startsWith(line, "#EXT-X-ENDLIST") &&
           !startsWith(line, "#EXT-X-PROGRAM-DATE-TIME");
}

// A URI line gets the base in front; inside a tag every URI=" gets it after the quote.
std::string absoluteLine(std::string_view line, std::string_view base) {
    if (startsWith(line, "#")) {
        return replaceAll(line, "URI=\"", std::string("URI=\"").append(base));
    }
    if (contains(line, "m3u8")) {
        return std::string(base).append(line);
    }
    return std::string(line);
}

std::string_view trimmedQuotes(std::string_view text) {
    while (!text.empty() && text.front() == '"') {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.back() == '"') {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<HLSMediaInfo> makeMediaInfo(std::int64_t index, const std::string& line,
                                          std::string_view query) {
    std::size_t at = line.find("URI=");
    if (at == std::string::npos || line.find("URI=", at + 4) != std::string::npos) {
        std::cout << "[HLSMediaInfo] problem with parsing (No URI=)" << std::endl;
        return std::nullopt;
    }
    std::string_view uri =
        trimmedQuotes(utf8::trimmedWhitespace(std::string_view(line).substr(at + 4)));
    if (!startsWith(uri, "http")) {
        std::cout << "[HLSMediaInfo] problem with parsing (No http prefix in media URI)"
                  << std::endl;
        return std::nullopt;
    }
    std::string text(uri);
    if (!query.empty()) {
        text.append("?").append(query);
    }
    auto url = Url::parse(text);
    if (!url) {
        return std::nullopt;
    }
    return HLSMediaInfo{index, line, *url};
}

std::optional<HLSStreamInfo> makeStreamInfo(std::int64_t ordinal, std::string_view tagLine,
                                            std::string_view uriLine, std::string_view query) {
    std::string uri(utf8::trimmedWhitespace(uriLine));
    if (!startsWith(uri, "http")) {
        return std::nullopt;
    }
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    while (true) {
        std::size_t end = tagLine.find_first_of(":,= ", start);
        pieces.push_back(tagLine.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) {
            break;
        }
        start = end + 1;
    }
    std::int64_t bandwidth = 0, width = 0, height = 0;
    std::string resolutionText;
    bool hasBandwidth = false, hasResolution = false;
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        if (pieces[i] == "BANDWIDTH") {
            if (auto value = playlistnumbers::parseInteger(pieces[i + 1])) {
                bandwidth = *value;
                hasBandwidth = true;
            }
        } else if (pieces[i] == "RESOLUTION") {
            std::string_view resolution = pieces[i + 1];
            resolutionText = std::string(resolution);
            std::size_t x = resolution.find('x');
            width = playlistnumbers::parseInteger(resolution.substr(0, x)).value_or(0);
            height = x == std::string_view::npos
                         ? 0
                         : playlistnumbers::parseInteger(resolution.substr(x + 1)).value_or(0);
            hasResolution = true;
        }
    }
    if (!uri.empty() && uri.back() == '&') {
        uri.pop_back();
    }
    if (!query.empty()) {
        uri.append(contains(uri, "?") ? "&" : "?").append(query);
    }
    auto url = Url::parse(uri);
    if (!url || !hasBandwidth || !hasResolution) {
        return std::nullopt;
    }
    return HLSStreamInfo{ordinal, bandwidth, width, height, std::move(resolutionText), *url};
}

MainHLSInfo::Result failure(const char* message) {
    return {nullptr, ZMPlayerError::playlistParsing(message)};
}

}  // namespace

MainHLSInfo::Result MainHLSInfo::split(std::string_view text, std::string_view baseUrl,
                                       std::string_view query) {
    if (!utf8::isValid(text)) {
        std::string repaired = utf8::repaired(text);
        return split(repaired, baseUrl, query);
    }
    auto info = std::make_shared<MainHLSInfo>();
    const std::vector<std::string_view> lines = splitLines(text);
    const bool absolute = contains(text, "https://") || contains(text, "http://");
    for (std::string_view line : lines) {
        auto keep = [&](std::vector<std::string>& group) {
            group.push_back(absolute ? std::string(line) : absoluteLine(line, baseUrl));
        };
        if (isHeaderLine(line)) {
            keep(info->headerLines);
        }
        if (startsWith(line, "#EXT-X-MEDIA")) {
            keep(info->mediaLines);
        }
        if (startsWith(line, "#EXT-X-STREAM-INF") || contains(line, "m3u8")) {
            keep(info->streamsLines);
        }
    }
    if (lines.size() < 2) {
        return failure("No lines.");
    }
    if (info->headerLines.empty() || !contains(info->headerLines.front(), "#EXTM3U")) {
        return failure("No header.");
    }
    std::vector<HLSMediaInfo> media;
    for (std::size_t i = 0; i < info->mediaLines.size(); ++i) {
        auto item = makeMediaInfo(static_cast<std::int64_t>(i), info->mediaLines[i], query);
        if (!item) {
            return failure("Incorrect media info.");
        }
        media.push_back(std::move(*item));
    }
    std::vector<HLSStreamInfo> streams;
    const auto& variantLines = info->streamsLines;
    for (std::size_t i = 0; i < variantLines.size(); ++i) {
        if (!startsWith(variantLines[i], "#EXT-X-STREAM-INF")) {
            continue;
        }
        std::optional<HLSStreamInfo> item;
        if (i + 1 < variantLines.size()) {
            item = makeStreamInfo(static_cast<std::int64_t>(streams.size()), variantLines[i],
                                  variantLines[i + 1], query);
        }
        if (!item) {
            return failure("Incorrect stream info.");
        }
        streams.push_back(std::move(*item));
    }
    info->media = std::move(media);
    info->streams = std::move(streams);
    info->rebuildSubtitlesLines();
    return {info, std::nullopt};
}

void MainHLSInfo::make(std::string_view text, std::string_view baseUrl, std::string_view query,
                       const Completion& completion) {
    Result result = split(text, baseUrl, query);
    completion(std::move(result.info), std::move(result.error));
}

std::optional<MainHLSInfo::RootPath> MainHLSInfo::rootPath(const Url& masterUrl) {
    UrlComponents components(masterUrl.deletingLastPathComponent());
    components.setPercentEncodedQuery(std::nullopt);
    components.fragment.reset();
    auto base = components.string();
    if (!base || base->empty()) {
        return std::nullopt;
    }
    return RootPath{*base, masterUrl.query().value_or("")};
}

void MainHLSInfo::load(const Url& masterUrl, Completion completion) {
    auto session = UrlSession::make(UrlSessionConfiguration::defaultConfiguration());
    UrlRequest request(masterUrl, UrlRequest::CachePolicy::useProtocolCachePolicy, 60.0);
    request.httpMethod = "GET";
    request.maximumBodyLength = ResponseLimits::playlist;
    // The completion keeps the session alive until it has run, then lets it go.
    auto keepAlive = std::make_shared<std::shared_ptr<UrlSession>>(session);
    auto task = session->dataTask(
        std::move(request), [keepAlive, masterUrl, completion = std::move(completion)](
                                std::optional<Data> data, std::optional<HttpUrlResponse> response,
                                std::optional<Error> error) {
            if (auto finished = std::move(*keepAlive)) {
                finished->finishTasksAndInvalidate();
            }
            if (!data || !response || error || response->statusCode >= 300 ||
                !utf8::isValid(*data)) {
                completion(nullptr, ZMPlayerError::playlistDownload(std::move(error)));
                return;
            }
            auto root = rootPath(masterUrl);
            if (!root) {
                completion(nullptr, ZMPlayerError::playlistParsing("No root path"));
                return;
            }
            make(*data, root->base, root->query, completion);
        });
    task->resume();
}

void MainHLSInfo::rebuildSubtitlesLines() {
    subtitlesLines.clear();
    for (std::size_t k = 0; k < subtitles.size(); ++k) {
        HLSPlaylistBuilder builder;
        builder.addSubtitlesRendition("sub1", subtitles[k].langCode, subtitles[k].name,
                                      "subtitles" + std::to_string(k) + ".m3u8");
        subtitlesLines.insert(subtitlesLines.end(), builder.lines.begin(), builder.lines.end());
    }
}

}  // namespace zarvo
