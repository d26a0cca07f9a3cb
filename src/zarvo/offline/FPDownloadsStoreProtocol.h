#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/offline/ZMOfflineDownloadState.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

/// The persistent list of offline downloads, as the downloader, session and manager use it.
/// The downloads handed out are the stored instances themselves: callers change them in place
/// and then call update() to persist the whole list.
class ZARVO_EXPORT FPDownloadsStoreProtocol {
public:
    virtual ~FPDownloadsStoreProtocol() = default;

    /// The first download with this id, or nullptr.
    virtual std::shared_ptr<ZMOfflineDownload> findFirstWithId(const std::string& id) = 0;
    /// The first (earliest created) download in this state, or nullptr.
    virtual std::shared_ptr<ZMOfflineDownload> findFirstWithState(ZMOfflineDownloadState state) = 0;
    /// Every download, earliest created first.
    virtual ZMOfflineDownload::List getAllDownloads() = 0;
    /// Adds a new download in state waiting with a fresh id and persists the list.
    virtual std::shared_ptr<ZMOfflineDownload> createWaitingDownload(
        const std::string& title, const Url& hlsUrl, const std::optional<Url>& fpsCertUrl,
        const std::optional<Url>& licenseUrl,
        const std::optional<std::vector<std::string>>& audioIds,
        const std::optional<std::vector<std::string>>& subtitlesIds,
        std::optional<std::int64_t> minBitrate,
        const std::map<std::string, std::string>& headers) = 0;
    /// Persists the whole list as it stands (the download is one of the stored instances).
    virtual void update(const std::shared_ptr<ZMOfflineDownload>& download) = 0;
    /// Removes the download's record and its package on disk.
    virtual void deleteDownloadWithId(const std::string& id) = 0;
};

}  // namespace zarvo
