#include "zarvo/offline/ZMOfflineDownload.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/UrlParts.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

// The text of `path` made a valid relative URL reference: bytes outside the path characters
// of RFC 3986 are percent-encoded, and so is ":", which would make the first segment read as
// a scheme; "/" is kept.
std::string percentEncodedPath(std::string_view path) {
    return url::percentEncode(
        path, [](unsigned char c) { return c != ':' && (url::isPathChar(c) || c == '/'); });
}

// The key directory's name for an id: the id itself, unless it could name anything but one
// entry inside ".keys" (a "/", ".", ".." or nothing), then its percent-encoded form.
std::string keyDirectoryName(const std::string& id) {
    if (id.empty() || id == "." || id == ".." || id.find('/') != std::string::npos ||
        id.find('\0') != std::string::npos) {
        std::string name = url::percentEncode(
            id, [](unsigned char c) { return c != '/' && c != '%' && c != '.' && c != '\0'; });
        return name.empty() ? "%00" : name;
    }
    return id;
}

}  // namespace

ZMOfflineDownload::ZMOfflineDownload(std::string id, std::string title,
                                     ZMOfflineDownloadState state, Url url,
                                     std::optional<Url> offlineUrl, std::optional<Url> licenseUrl,
                                     std::optional<std::vector<UrlQueryItem>> licenseUrlQueryItems,
                                     std::optional<Url> fpsCertUrl,
                                     std::optional<std::vector<std::string>> audioIds,
                                     std::optional<std::vector<std::string>> subtitlesIds,
                                     std::int64_t minBitrate,
                                     std::map<std::string, std::string> headers, double progress)
    : id_(std::move(id)),
      title_(std::move(title)),
      licenseUrl_(std::move(licenseUrl)),
      licenseUrlQueryItems_(std::move(licenseUrlQueryItems)),
      fpsCertUrl_(std::move(fpsCertUrl)),
      audioIds_(std::move(audioIds)),
      subtitlesIds_(std::move(subtitlesIds)),
      minBitrate_(minBitrate),
      headers_(std::move(headers)),
      state_(state),
      url_(std::move(url)),
      progress_(progress) {
    urlAsset_ = UrlAsset::make(url_);
    setOfflineUrl(offlineUrl ? std::optional<std::string>(offlineUrl->absoluteString())
                             : std::nullopt);
}

ZMOfflineDownloadState ZMOfflineDownload::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

void ZMOfflineDownload::setState(ZMOfflineDownloadState state) {
    std::lock_guard lock(mutex_);
    state_ = state;
    encodedIsCurrent_ = false;
}

Url ZMOfflineDownload::url() const {
    std::lock_guard lock(mutex_);
    return url_;
}

void ZMOfflineDownload::setUrl(Url url) {
    std::lock_guard lock(mutex_);
    url_ = std::move(url);
    encodedIsCurrent_ = false;
}

double ZMOfflineDownload::progress() const {
    std::lock_guard lock(mutex_);
    return progress_;
}

void ZMOfflineDownload::setProgress(double progress) {
    std::lock_guard lock(mutex_);
    progress_ = progress;
    encodedIsCurrent_ = false;
}

std::optional<Url> ZMOfflineDownload::offlineUrl() const {
    std::lock_guard lock(mutex_);
    return offlineUrl_;
}

void ZMOfflineDownload::setOfflineUrl(const std::optional<std::string>& path) {
    if (!path) {
        std::lock_guard lock(mutex_);
        offlineUrl_.reset();
        offlineUrlAsset_.reset();
        encodedIsCurrent_ = false;
        return;
    }
    std::string kept = *path;
    if (std::size_t library = kept.find("Library"); library != std::string::npos) {
        kept.erase(0, library);
    }
    // The kept text is a URL reference; a plain path with characters a URL cannot hold
    // (spaces, "%") is encoded so that it still names the same file.
    std::optional<Url> offlineUrl = Url::parse(kept);
    if (!offlineUrl) {
        offlineUrl = Url::parse(percentEncodedPath(kept));
    }
    std::string relativePath = offlineUrl ? offlineUrl->decodedPath() : kept;
    fs::path packagePath = AppDirectories::home() / fs::path(relativePath).relative_path();
    auto asset = UrlAsset::make(Url::fileUrl(packagePath.string()));

    std::lock_guard lock(mutex_);
    offlineUrl_ = std::move(offlineUrl);
    offlineUrlAsset_ = std::move(asset);
    encodedIsCurrent_ = false;
}

void ZMOfflineDownload::assignOfflineUrl(std::optional<Url> offlineUrl) {
    std::lock_guard lock(mutex_);
    offlineUrl_ = std::move(offlineUrl);
    encodedIsCurrent_ = false;
}

std::shared_ptr<UrlAsset> ZMOfflineDownload::urlAsset() const {
    std::lock_guard lock(mutex_);
    return urlAsset_;
}

void ZMOfflineDownload::setUrlAsset(std::shared_ptr<UrlAsset> asset) {
    std::lock_guard lock(mutex_);
    urlAsset_ = std::move(asset);
}

std::shared_ptr<UrlAsset> ZMOfflineDownload::offlineUrlAsset() const {
    std::lock_guard lock(mutex_);
    return offlineUrlAsset_;
}

void ZMOfflineDownload::setOfflineUrlAsset(std::shared_ptr<UrlAsset> asset) {
    std::lock_guard lock(mutex_);
    offlineUrlAsset_ = std::move(asset);
}

std::optional<std::string> ZMOfflineDownload::bookmarkData() const {
    std::lock_guard lock(mutex_);
    return bookmarkData_;
}

void ZMOfflineDownload::setBookmarkData(std::optional<std::string> bookmarkData) {
    std::lock_guard lock(mutex_);
    bookmarkData_ = std::move(bookmarkData);
}

std::shared_ptr<FPResourceLoaderDelegate> ZMOfflineDownload::resourceLoader() const {
    std::lock_guard lock(mutex_);
    return resourceLoader_;
}

void ZMOfflineDownload::setResourceLoader(
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoader) {
    std::lock_guard lock(mutex_);
    resourceLoader_ = std::move(resourceLoader);
}

Url ZMOfflineDownload::contentKeysDirPath() const {
    fs::path directory = AppDirectories::documents() / ".keys" / keyDirectoryName(id_);
    std::error_code error;
    if (!fs::exists(fs::symlink_status(directory, error))) {
        error = AppDirectories::makeFolder(directory);
        if (error) {
            fatalError("ZMOfflineDownload: cannot create the content keys directory " +
                       directory.string() + ": " + error.message());
        }
    }
    return Url::fileUrl(directory.string(), true);
}

std::string ZMOfflineDownload::description() const {
    return "Download(ID = " + id_ + ", TITLE = " + title_ + ")";
}

}  // namespace zarvo
