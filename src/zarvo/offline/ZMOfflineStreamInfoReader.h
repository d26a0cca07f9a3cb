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

// Inspects a stream before it is downloaded: its video qualities with estimated sizes,
// whether it has a Polish rendition, and the line groups of its master playlist. Everything
// is empty (or false) until loadPlaylist() has succeeded.
class ZARVO_EXPORT ZMOfflineStreamInfoReader
    : public std::enable_shared_from_this<ZMOfflineStreamInfoReader> {
public:
    static std::shared_ptr<ZMOfflineStreamInfoReader> make(Url url);

    const Url& url() const { return url_; }
    std::shared_ptr<MainHLSInfo> hlsInfo() const;
    std::shared_ptr<MasterPlaylist> hlsMasterPlaylist() const;

    // Loads the master playlist's line groups and then parses the whole stream (blocking, on
    // the download's queue). The completion gets false when the load failed or the reader was
    // released meanwhile; earlier results then stay as they were.
    void loadPlaylist(std::function<void(bool)> completion);

    // Sizes for a video bandwidth in bits per second over the first media playlist's duration.
    ZMOfflineSize estimatedOfflineSize(std::uint64_t videoBandwidth) const;

    bool hasPolishVersion() const;
    std::vector<ZMDownloadQuality> availableDownloadQualities() const;
    std::optional<std::vector<std::string>> mediaLines() const;
    std::optional<std::vector<std::string>> streamLines() const;
    std::optional<std::vector<std::string>> headerLines() const;
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
