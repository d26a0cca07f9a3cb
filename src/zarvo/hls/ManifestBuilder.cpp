#include "zarvo/hls/ManifestBuilder.h"

#include <cstring>
#include <optional>

#include "zarvo/hls/FileLineReader.h"
#include "zarvo/hls/PlaylistNumbers.h"
#include "zarvo/hls/SegmentArena.h"
#include "zarvo/hls/StringBufferedReader.h"
#include "zarvo/hls/TagPattern.h"
#include "zarvo/hls/URLBufferedReader.h"
#include "zarvo/hls/Utf8Text.h"
#include "zarvo/platform/FatalError.h"

namespace zarvo {
namespace {

using playlistnumbers::parseFloat;
using playlistnumbers::parseInteger;
using Kind = TagPattern::Kind;

bool startsWith(std::string_view line, std::string_view prefix) {
    return line.size() >= prefix.size() &&
           std::memcmp(line.data(), prefix.data(), prefix.size()) == 0;
}

// Lines of any BufferedReader, as views valid until the next call.
class ReaderLines {
public:
    static constexpr bool newlineFree = false;  // "\r" and others can stay in a line
    explicit ReaderLines(BufferedReader& reader) : reader_(reader) {}
    std::optional<std::string_view> operator()() {
        line_ = reader_.readLine();
        if (!line_) {
            return std::nullopt;
        }
        return std::string_view(*line_);
    }
    void close() { reader_.close(); }

private:
    BufferedReader& reader_;
    std::optional<std::string> line_;
};

// Lines of a file as FileBufferedReader splits them, without copying them.
class FileLines {
public:
    static constexpr bool newlineFree = false;  // "\r" and others can stay in a line
    explicit FileLines(const std::string& path) : reader_(FileLineReader::open(path)) {
        if (!reader_) {
            fatalError("FileBufferedReader: cannot open file " + path);
        }
    }
    std::optional<std::string_view> operator()() { return reader_->next(); }
    void close() { reader_->close(); }

private:
    std::optional<FileLineReader> reader_;
};

// Lines of a StringBufferedReader without copying them.
class StringLines {
public:
    static constexpr bool newlineFree = true;  // every newline character ends a line
    explicit StringLines(std::string_view text) : reader_(StringBufferedReader::viewing(text)) {}
    std::optional<std::string_view> operator()() { return reader_.readLineView(); }
    void close() { reader_.close(); }

private:
    StringBufferedReader reader_;
};

// Replacing every match of a pattern by group `first`, and by group `second`.
template <bool newlineFree>
std::pair<std::string_view, std::string_view> replaced(Kind kind, std::string_view line, int first,
                                                       int second, std::string& storage1,
                                                       std::string& storage2) {
    if constexpr (newlineFree) {
        // The whole line is one match or none.
        if (auto groups = TagPattern::match(kind, line)) {
            return {(*groups)[static_cast<std::size_t>(first)],
                    (*groups)[static_cast<std::size_t>(second)]};
        }
        return {line, line};
    } else {
        if (utf8::findNewline(line).position == std::string_view::npos) {
            // A line without newline characters is one match or none: match it once.
            return replaced<true>(kind, line, first, second, storage1, storage2);
        }
        return {TagPattern::replace(kind, line, first, storage1),
                TagPattern::replace(kind, line, second, storage2)};
    }
}

template <bool newlineFree>
std::string_view replaced(Kind kind, std::string_view line, int group, std::string& storage) {
    if constexpr (newlineFree) {
        auto groups = TagPattern::match(kind, line);
        return groups ? (*groups)[static_cast<std::size_t>(group)] : line;
    } else {
        return TagPattern::replace(kind, line, group, storage);
    }
}

// The master-playlist pass.
template <class Lines>
std::shared_ptr<MasterPlaylist> parseMaster(
    Lines& lines, const ManifestBuilder::MediaPlaylistHandler& onPlaylist) {
    auto master = std::make_shared<MasterPlaylist>();
    std::shared_ptr<MediaPlaylist> current;
    std::string scratch;
    while (auto next = lines()) {
        std::string_view line = *next;
        if (line.empty()) {
            continue;
        }
        if (startsWith(line, "#EXT")) {
            if (startsWith(line, "#EXTM3U") || !startsWith(line, "#EXT-X-STREAM-INF")) {
                continue;
            }
            current = std::make_shared<MediaPlaylist>();
            constexpr bool plain = Lines::newlineFree;
            auto programId =
                parseInteger(replaced<plain>(Kind::equalsDigitsComma, line, 2, scratch));
            auto bandwidth =
                parseInteger(replaced<plain>(Kind::commaEqualsDigits, line, 3, scratch));
            if (!programId || !bandwidth) {
                fatalError("ManifestBuilder: program id and bandwidth must be integers. Line = " +
                           std::string(line));
            }
            current->programId = *programId;
            current->bandwidth = *bandwidth;
            continue;
        }
        if (line[0] == '#' || !current) {
            continue;
        }
        current->path = std::string(line);
        current->masterPlaylist = master;
        master->playlists.push_back(current);
        if (onPlaylist) {
            onPlaylist(current);
        }
    }
    lines.close();
    return master;
}

// The media-playlist pass.
template <class Lines>
std::shared_ptr<MediaPlaylist> parseMedia(Lines& lines, std::shared_ptr<MediaPlaylist> playlist,
                                          const ManifestBuilder::MediaSegmentHandler& onSegment) {
    if (!playlist) {
        playlist = std::make_shared<MediaPlaylist>();
    }
    const std::weak_ptr<MediaPlaylist> owner = playlist;
    std::shared_ptr<MediaSegment> current;
    std::shared_ptr<SegmentArena> arena;  // the segments of this pass live in it
    std::int64_t sequence = 0;
    std::string scratch, scratch2;
    constexpr bool plain = Lines::newlineFree;
    while (auto next = lines()) {
        std::string_view line = *next;
        if (line.empty()) {
            continue;
        }
        if (!startsWith(line, "#EXT")) {
            if (line[0] == '#' || !current) {
                continue;
            }
            current->mediaPlaylist = owner;
            current->path = std::string(line);
            current->sequence = sequence++;
            playlist->segments.push_back(current);
            if (onSegment) {
                onSegment(current);
            }
        } else if (startsWith(line, "#EXTM3U")) {
            continue;
        } else if (startsWith(line, "#EXT-X-VERSION")) {
            playlist->version = parseInteger(replaced<plain>(Kind::colonDigits, line, 2, scratch));
        } else if (startsWith(line, "#EXT-X-TARGETDURATION")) {
            playlist->targetDuration =
                parseInteger(replaced<plain>(Kind::colonDigits, line, 2, scratch));
        } else if (startsWith(line, "#EXT-X-MEDIA-SEQUENCE")) {
            if (auto value = parseInteger(replaced<plain>(Kind::colonDigits, line, 2, scratch))) {
                playlist->mediaSequence = value;
                sequence = *value;
            }
        } else if (startsWith(line, "#EXTINF")) {
            if (!arena) {
                arena = std::make_shared<SegmentArena>();
            }
            current =
                std::allocate_shared<MediaSegment>(SegmentArena::Allocator<MediaSegment>(arena));
            auto [duration, title] =
                replaced<plain>(Kind::colonDigitThenComma, line, 2, 3, scratch, scratch2);
            current->duration = parseFloat(duration);
            current->title = std::string(title);
        } else if (startsWith(line, "#EXT-X-BYTERANGE")) {
            if (line.find('@') != std::string_view::npos) {
                auto [lengthText, startText] =
                    replaced<plain>(Kind::colonDigitThenAt, line, 2, 3, scratch, scratch2);
                auto length = parseInteger(lengthText);
                auto start = parseInteger(startText);
                if (current) {
                    current->subrangeLength = length;
                    current->subrangeStart = start;
                }
            } else {
                auto length = parseInteger(replaced<plain>(Kind::colonDigitRest, line, 2, scratch));
                if (current) {
                    current->subrangeLength = length;
                    current->subrangeStart.reset();
                }
            }
        } else if (startsWith(line, "#EXT-X-DISCONTINUITY")) {
            if (current) {
                current->discontinuity = true;
            }
        }
    }
    lines.close();
    return playlist;
}

}  // namespace

std::shared_ptr<MasterPlaylist> ManifestBuilder::parseMasterPlaylistFromString(
    std::string_view text, const MediaPlaylistHandler& onMediaPlaylist) const {
    StringLines lines(text);
    return parseMaster(lines, onMediaPlaylist);
}

std::shared_ptr<MasterPlaylist> ManifestBuilder::parseMasterPlaylistFromFile(
    const std::string& path, const MediaPlaylistHandler& onMediaPlaylist) const {
    FileLines lines(path);
    return parseMaster(lines, onMediaPlaylist);
}

std::shared_ptr<MasterPlaylist> ManifestBuilder::parseMasterPlaylistFromURL(
    const Url& url, const MediaPlaylistHandler& onMediaPlaylist) const {
    URLBufferedReader reader(url);
    return parseMasterPlaylist(reader, onMediaPlaylist);
}

std::shared_ptr<MediaPlaylist> ManifestBuilder::parseMediaPlaylistFromString(
    std::string_view text, std::shared_ptr<MediaPlaylist> mediaPlaylist,
    const MediaSegmentHandler& onMediaSegment) const {
    StringLines lines(text);
    return parseMedia(lines, std::move(mediaPlaylist), onMediaSegment);
}

std::shared_ptr<MediaPlaylist> ManifestBuilder::parseMediaPlaylistFromFile(
    const std::string& path, std::shared_ptr<MediaPlaylist> mediaPlaylist,
    const MediaSegmentHandler& onMediaSegment) const {
    FileLines lines(path);
    return parseMedia(lines, std::move(mediaPlaylist), onMediaSegment);
}

std::shared_ptr<MediaPlaylist> ManifestBuilder::parseMediaPlaylistFromURL(
    const Url& url, std::shared_ptr<MediaPlaylist> mediaPlaylist,
    const MediaSegmentHandler& onMediaSegment) const {
    URLBufferedReader reader(url);
    return parseMediaPlaylist(reader, std::move(mediaPlaylist), onMediaSegment);
}

std::shared_ptr<MasterPlaylist> ManifestBuilder::parseMasterPlaylist(
    BufferedReader& reader, const MediaPlaylistHandler& onMediaPlaylist) const {
    ReaderLines lines(reader);
    return parseMaster(lines, onMediaPlaylist);
}

std::shared_ptr<MediaPlaylist> ManifestBuilder::parseMediaPlaylist(
    BufferedReader& reader, std::shared_ptr<MediaPlaylist> mediaPlaylist,
    const MediaSegmentHandler& onMediaSegment) const {
    ReaderLines lines(reader);
    return parseMedia(lines, std::move(mediaPlaylist), onMediaSegment);
}

std::shared_ptr<MasterPlaylist> ManifestBuilder::parse(
    const Url& url, const MediaPlaylistHandler& onMediaPlaylist,
    const MediaSegmentHandler& onMediaSegment) const {
    auto master = parseMasterPlaylistFromURL(url, onMediaPlaylist);
    // Copy: a callback may not change the list, but the same playlist can appear twice.
    const auto playlists = master->playlists;
    for (const auto& playlist : playlists) {
        if (!playlist->path) {
            continue;
        }
        const std::string& path = *playlist->path;
        std::optional<Url> mediaUrl;
        if (startsWith(path, "http") || startsWith(path, "file")) {
            mediaUrl = Url::parse(path);
        } else {
            mediaUrl = url.deletingLastPathComponent().appendingPathComponent(path);
        }
        if (!mediaUrl) {
            continue;
        }
        parseMediaPlaylistFromURL(*mediaUrl, playlist, onMediaSegment);
    }
    return master;
}

}  // namespace zarvo
