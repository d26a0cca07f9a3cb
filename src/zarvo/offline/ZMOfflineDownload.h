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
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

// The offline key loader that serves a download's persistent keys (fairplay/).
class FPResourceLoaderDelegate;
// The stored JSON form of downloads; it reads and caches a download's fields under its mutex.
class OfflineDownloadJson;

// One offline copy of an HLS stream: where it comes from, how its keys are obtained, which
// renditions it keeps, how far it has got and where its package lies on disk.
//
// A shared object (always held by std::shared_ptr): the downloads store, the download session
// and the key loader refer to the same instance and change it in place. The mutable fields are
// guarded by the object's own mutex, so a save may encode a download while another thread
// changes it.
class ZMOfflineDownload {
public:
    using List = std::vector<std::shared_ptr<ZMOfflineDownload>>;

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

    const std::string& id() const { return id_; }
    const std::string& title() const { return title_; }
    const std::optional<Url>& licenseUrl() const { return licenseUrl_; }
    const std::optional<std::vector<UrlQueryItem>>& licenseUrlQueryItems() const {
        return licenseUrlQueryItems_;
    }
    const std::optional<Url>& fpsCertUrl() const { return fpsCertUrl_; }
    const std::optional<std::vector<std::string>>& audioIds() const { return audioIds_; }
    const std::optional<std::vector<std::string>>& subtitlesIds() const { return subtitlesIds_; }
    std::int64_t minBitrate() const { return minBitrate_; }
    const std::map<std::string, std::string>& headers() const { return headers_; }

    ZMOfflineDownloadState state() const;
    void setState(ZMOfflineDownloadState state);
    Url url() const;
    void setUrl(Url url);
    double progress() const;
    void setProgress(double progress);

    // The package location, relative to the application home ("Library/...").
    std::optional<Url> offlineUrl() const;
    // Sets the package location from an absolute or home-relative path: the text from the
    // first "Library" on is kept (so a path inside an old home keeps working after the home
    // moves), and offlineUrlAsset becomes the asset of that path inside the current home.
    // Nothing clears both.
    void setOfflineUrl(const std::optional<std::string>& path);
    // Replaces offlineUrl alone; offlineUrlAsset stays as it is.
    void assignOfflineUrl(std::optional<Url> offlineUrl);

    std::shared_ptr<UrlAsset> urlAsset() const;
    void setUrlAsset(std::shared_ptr<UrlAsset> asset);
    std::shared_ptr<UrlAsset> offlineUrlAsset() const;
    void setOfflineUrlAsset(std::shared_ptr<UrlAsset> asset);
    std::optional<std::string> bookmarkData() const;
    void setBookmarkData(std::optional<std::string> bookmarkData);
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoader() const;
    void setResourceLoader(std::shared_ptr<FPResourceLoaderDelegate> resourceLoader);

    bool isCompleted() const { return state() == ZMOfflineDownloadState::completed; }

    // The directory URL of this download's persistent keys, <home>/Documents/.keys/<id>/.
    // Created when missing; a directory that cannot be created stops the process.
    Url contentKeysDirPath() const;

    // "Download(ID = <id>, TITLE = <title>)"
    std::string description() const;
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
