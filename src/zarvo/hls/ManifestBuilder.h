#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "zarvo/hls/MasterPlaylist.h"
#include "zarvo/hls/MediaPlaylist.h"
#include "zarvo/hls/MediaSegment.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

class BufferedReader;

// Parses HLS master and media playlists line by line into MasterPlaylist, MediaPlaylist and
// MediaSegment. It recognises a handful of tags by prefix and ignores every other line.
// Parsing never fails: values that do not parse stay unset, except program id and bandwidth
// of "#EXT-X-STREAM-INF", which must be integers (a fatal error otherwise). Callbacks run on
// the calling thread, in line order. The From-URL variants and parse() block.
class ManifestBuilder {
public:
    using MediaPlaylistHandler = std::function<void(const std::shared_ptr<MediaPlaylist>&)>;
    using MediaSegmentHandler = std::function<void(const std::shared_ptr<MediaSegment>&)>;

    std::shared_ptr<MasterPlaylist> parseMasterPlaylistFromString(
        std::string_view text, const MediaPlaylistHandler& onMediaPlaylist = {}) const;
    // A file that cannot be opened is a fatal error.
    std::shared_ptr<MasterPlaylist> parseMasterPlaylistFromFile(
        const std::string& path, const MediaPlaylistHandler& onMediaPlaylist = {}) const;
    std::shared_ptr<MasterPlaylist> parseMasterPlaylistFromURL(
        const Url& url, const MediaPlaylistHandler& onMediaPlaylist = {}) const;

    // Fill `mediaPlaylist` (a fresh one when null) and return it.
    std::shared_ptr<MediaPlaylist> parseMediaPlaylistFromString(
        std::string_view text, std::shared_ptr<MediaPlaylist> mediaPlaylist,
        const MediaSegmentHandler& onMediaSegment = {}) const;
    std::shared_ptr<MediaPlaylist> parseMediaPlaylistFromFile(
        const std::string& path, std::shared_ptr<MediaPlaylist> mediaPlaylist,
        const MediaSegmentHandler& onMediaSegment = {}) const;
    std::shared_ptr<MediaPlaylist> parseMediaPlaylistFromURL(
        const Url& url, std::shared_ptr<MediaPlaylist> mediaPlaylist,
        const MediaSegmentHandler& onMediaSegment = {}) const;

    // The master at `url`, then each of its media playlists in order: absolute paths
    // ("http...", "file...") as they are, others relative to the master's directory.
    std::shared_ptr<MasterPlaylist> parse(const Url& url,
                                          const MediaPlaylistHandler& onMediaPlaylist = {},
                                          const MediaSegmentHandler& onMediaSegment = {}) const;

    // The same parsers over any line reader (closed when the input ends).
    std::shared_ptr<MasterPlaylist> parseMasterPlaylist(
        BufferedReader& reader, const MediaPlaylistHandler& onMediaPlaylist = {}) const;
    std::shared_ptr<MediaPlaylist> parseMediaPlaylist(
        BufferedReader& reader, std::shared_ptr<MediaPlaylist> mediaPlaylist,
        const MediaSegmentHandler& onMediaSegment = {}) const;
};

}  // namespace zarvo
