#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/hls/MasterPlaylist.h"
#include "zarvo/offline/ZMDownloadQuality.h"
#include "zarvo/offline/ZMOfflineSize.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/source/MainHLSInfo.h"

namespace zarvo {

/// Inspects a stream before it is downloaded: its video qualities with estimated sizes,
/// whether it has a Polish rendition, and the line groups of its master playlist. Everything
/// is empty (or false) until loadPlaylist() has succeeded. Safe to read from any thread.
class ZARVO_EXPORT ZMOfflineStreamInfoReader
    : public std::enable_shared_from_this<ZMOfflineStreamInfoReader> {
public:
    /// A reader for the master playlist at `url`.
    static std::shared_ptr<ZMOfflineStreamInfoReader> make(Url url);

    /// The master playlist's address.
    const Url& url() const { return url_; }
    /// The master playlist's line groups, renditions and variants; nullptr before a load.
    std::shared_ptr<MainHLSInfo> hlsInfo() const;
    /// The parsed stream; nullptr before a load.
    std::shared_ptr<MasterPlaylist> hlsMasterPlaylist() const;

    /// Loads the master playlist's line groups and then parses the whole stream (blocking, on
    /// the download's queue). The completion gets false when the load failed or the reader was
    /// released meanwhile; earlier results then stay as they were. The completion runs on a
    /// worker thread, not on the main thread.
    void loadPlaylist(std::function<void(bool)> completion);

    /// Sizes for a video bandwidth in bits per second over the first media playlist's duration:
    /// the duration times (the audio allowance over 7.5 plus `videoBandwidth` over 7.95), with
    /// 256 000 bit/s of audio for the full size and 128 000 for the basic one.
    ZMOfflineSize estimatedOfflineSize(std::uint64_t videoBandwidth) const;

    /// Whether the master has at least two rendition lines and one of them contains "pol"
    /// (in any case).
    bool hasPolishVersion() const;
    /// One quality per variant (EXT-X-STREAM-INF), in the master's order, with the sizes of
    /// estimatedOfflineSize() for its BANDWIDTH.
    std::vector<ZMDownloadQuality> availableDownloadQualities() const;
    /// The rendition (EXT-X-MEDIA) lines, with absolute URIs; nothing before a load.
    std::optional<std::vector<std::string>> mediaLines() const;
    /// The variant lines (EXT-X-STREAM-INF and its URI), with absolute URIs; nothing before a
    /// load.
    std::optional<std::vector<std::string>> streamLines() const;
    /// The header lines (EXTM3U first); nothing before a load.
    std::optional<std::vector<std::string>> headerLines() const;
    /// The subtitle rendition lines the reader builds; nothing before a load.
    std::optional<std::vector<std::string>> subtitlesHlsLines() const;

private:
    explicit ZMOfflineStreamInfoReader(Url url) : url_(std::move(url)) {}
    double contentDuration() const;

    const Url url_;
    mutable std::mutex mutex_;
    std::shared_ptr<MainHLSInfo> hlsInfo_;
    std::shared_ptr<MasterPlaylist> hlsMasterPlaylist_;
};

}  // namespace zarvo
