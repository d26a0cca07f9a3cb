#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/offline/ZMOfflineDownloadState.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

// The offline key loader that serves a download's persistent keys (fairplay/).
class FPResourceLoaderDelegate;
// The stored JSON form of downloads; it reads and caches a download's fields under its mutex.
class OfflineDownloadJson;

/// One offline copy of an HLS stream: where it comes from, how its keys are obtained, which
/// renditions it keeps, how far it has got and where its package lies on disk.
///
/// A shared object (always held by std::shared_ptr): the downloads store, the download session
/// and the key loader refer to the same instance and change it in place. The mutable fields are
/// guarded by the object's own mutex, so a save may encode a download while another thread
/// changes it. Hosts read downloads (ZMOfflineManager::getDownloads()) and leave changing them
/// to the SDK.
class ZARVO_EXPORT ZMOfflineDownload {
public:
    /// A list of downloads, as the store and the manager hand them out.
    using List = std::vector<std::shared_ptr<ZMOfflineDownload>>;

    /// A download with every field given; `offlineUrl` goes through setOfflineUrl(). The asset
    /// of `url` is made at once (urlAsset()).
    ZMOfflineDownload(std::string id, std::string title, ZMOfflineDownloadState state, Url url,
                      std::optional<Url> offlineUrl, std::optional<Url> licenseUrl,
                      std::optional<std::vector<UrlQueryItem>> licenseUrlQueryItems,
                      std::optional<Url> fpsCertUrl,
                      std::optional<std::vector<std::string>> audioIds,
                      std::optional<std::vector<std::string>> subtitlesIds, std::int64_t minBitrate,
                      std::map<std::string, std::string> headers, double progress);
    ZMOfflineDownload() = delete;
    ZMOfflineDownload(const ZMOfflineDownload&) = delete;
    ZMOfflineDownload& operator=(const ZMOfflineDownload&) = delete;

    /// The identifier: 32 hexadecimal digits (a random UUID without dashes) for the downloads
    /// the store makes.
    const std::string& id() const { return id_; }
    /// The title the host gave.
    const std::string& title() const { return title_; }
    /// Where key requests are posted; nothing for a clear stream.
    const std::optional<Url>& licenseUrl() const { return licenseUrl_; }
    /// Query items added to the licence URL of key requests: "persistent=true" for every
    /// download the store makes or reads.
    const std::optional<std::vector<UrlQueryItem>>& licenseUrlQueryItems() const {
        return licenseUrlQueryItems_;
    }
    /// Where the application certificate is fetched; nothing for a clear stream.
    const std::optional<Url>& fpsCertUrl() const { return fpsCertUrl_; }
    /// The audio rendition identifiers the host asked for, as stored. The download fetches
    /// every media selection of the stream whatever they are.
    const std::optional<std::vector<std::string>>& audioIds() const { return audioIds_; }
    /// The subtitle rendition identifiers the host asked for, as stored; like audioIds(), not
    /// used to choose what is downloaded.
    const std::optional<std::vector<std::string>>& subtitlesIds() const { return subtitlesIds_; }
    /// The lowest BANDWIDTH, in bits per second, of the variant to download: the lowest
    /// variant with at least this bandwidth is downloaded, the highest when none has it. Below
    /// 1 there is no minimum, and the highest variant is downloaded.
    std::int64_t minBitrate() const { return minBitrate_; }
    /// HTTP header fields sent with the download's licence requests (a Content-Type among them
    /// is replaced by "application/octet-stream").
    const std::map<std::string, std::string>& headers() const { return headers_; }

    /// The life-cycle state.
    ZMOfflineDownloadState state() const;
    /// Sets the state (the store persists it at its next save).
    void setState(ZMOfflineDownloadState state);
    /// The master (or media) playlist the download comes from: the address after the
    /// redirections of the HEAD request ZMOfflineManager::startDownload() made.
    Url url() const;
    /// Replaces the playlist address.
    void setUrl(Url url);
    /// How far the download has got, from 0 to 1: the share of the media time loaded. It never
    /// goes back while a task runs.
    double progress() const;
    /// Sets the progress.
    void setProgress(double progress);

    /// The package location, relative to the application home ("Library/...").
    std::optional<Url> offlineUrl() const;
    /// Sets the package location from an absolute or home-relative path: the text from the
    /// first "Library" on is kept (so a path inside an old home keeps working after the home
    /// moves), and offlineUrlAsset becomes the asset of that path inside the current home.
    /// Nothing clears both.
    void setOfflineUrl(const std::optional<std::string>& path);
    /// Replaces offlineUrl alone; offlineUrlAsset stays as it is.
    void assignOfflineUrl(std::optional<Url> offlineUrl);

    /// The asset on url() that the download task fetches.
    std::shared_ptr<UrlAsset> urlAsset() const;
    /// Replaces the asset (a task taken back after a restart brings its own).
    void setUrlAsset(std::shared_ptr<UrlAsset> asset);
    /// The asset of the package on disk, inside the current application home; nullptr before
    /// the download has a location.
    std::shared_ptr<UrlAsset> offlineUrlAsset() const;
    /// Replaces the package's asset.
    void setOfflineUrlAsset(std::shared_ptr<UrlAsset> asset);
    /// A bookmark text, kept in memory only: neither stored in the downloads JSON nor used by
    /// the SDK.
    std::optional<std::string> bookmarkData() const;
    /// Sets the bookmark text.
    void setBookmarkData(std::optional<std::string> bookmarkData);
    /// The offline key loader attached to the download's assets; nullptr before its first
    /// task.
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoader() const;
    /// Sets the key loader.
    void setResourceLoader(std::shared_ptr<FPResourceLoaderDelegate> resourceLoader);

    /// Whether the state is completed.
    bool isCompleted() const { return state() == ZMOfflineDownloadState::completed; }

    /// The directory URL of this download's persistent keys, `<home>/Documents/.keys/<id>/`.
    /// Created when missing; a directory that cannot be created stops the process.
    Url contentKeysDirPath() const;

    /// `"Download(ID = <id>, TITLE = <title>)"`
    std::string description() const;
    /// The same as description().
    std::string debugDescription() const { return description(); }

private:
    friend class OfflineDownloadJson;

    const std::string id_;
    const std::string title_;
    const std::optional<Url> licenseUrl_;
    const std::optional<std::vector<UrlQueryItem>> licenseUrlQueryItems_;
    const std::optional<Url> fpsCertUrl_;
    const std::optional<std::vector<std::string>> audioIds_;
    const std::optional<std::vector<std::string>> subtitlesIds_;
    const std::int64_t minBitrate_;
    const std::map<std::string, std::string> headers_;

    mutable std::mutex mutex_;
    ZMOfflineDownloadState state_;
    Url url_;
    std::optional<Url> offlineUrl_;
    double progress_;
    std::shared_ptr<UrlAsset> urlAsset_;
    std::shared_ptr<UrlAsset> offlineUrlAsset_;
    std::optional<std::string> bookmarkData_;
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoader_;
    // The JSON text of the field values when they were last encoded; current until a change.
    mutable std::optional<std::string> encodedJson_;
    mutable bool encodedIsCurrent_ = false;
};

}  // namespace zarvo
