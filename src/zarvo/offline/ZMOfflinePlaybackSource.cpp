#include "zarvo/offline/ZMOfflinePlaybackSource.h"

#include "zarvo/fairplay/FPResourceLoaderDelegate.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/FatalError.h"

namespace zarvo {
namespace {

Url packageUrlOrPlaceholder(const ZMOfflineDownload& download) {
    auto asset = download.offlineUrlAsset();
    return asset ? asset->url() : ZMOfflinePlaybackSource::placeholderUrl();
}

}  // namespace

const Url& ZMOfflinePlaybackSource::placeholderUrl() {
    // Port 9 (discard) on loopback: nothing answers there.
    static const Url url = *Url::parse("http://127.0.0.1:9/zm-offline-placeholder/404.m3u8");
    return url;
}

ZMOfflinePlaybackSource::ZMOfflinePlaybackSource(
    std::shared_ptr<ZMOfflineDownload> download,
    const std::optional<ZMPlaybackSourceOptions>& options)
    : ZMPlaybackSource(packageUrlOrPlaceholder(*download),
                       options ? *options : ZMPlaybackSourceOptions(false)),
      loadersQueue_(DispatchQueue::serial("FPAssetPlaybackSource." + download->id())),
      download_(std::move(download)) {}

ZMOfflinePlaybackSource::ZMOfflinePlaybackSource(
    const Url& url, const std::optional<ZMPlaybackSourceOptions>& options)
    : ZMPlaybackSource(url, options ? *options : ZMPlaybackSourceOptions(false)) {
    fatalError("init(url:options:) has not been implemented");
}

std::optional<Url> ZMOfflinePlaybackSource::playbackURL() const {
    auto asset = download_->offlineUrlAsset();
    return asset ? std::optional(asset->url()) : std::nullopt;
}

void ZMOfflinePlaybackSource::setPlaybackURL(std::optional<Url>) {}

bool ZMOfflinePlaybackSource::isInitialized() const {
    return download_->offlineUrlAsset() != nullptr;
}

std::shared_ptr<PlayerItem> ZMOfflinePlaybackSource::createPlayerItem() {
    auto offlineUrl = download_->offlineUrl();
    if (!offlineUrl) {
        fatalError("The download has no offline URL.");
    }
    auto asset = UrlAsset::make(
        Url::fileUrl((AppDirectories::home() / offlineUrl->decodedPath()).string(), true));
    resourceLoaderDelegate_ = FPResourceLoaderDelegate::make(download_);
    asset->resourceLoader()->setPreloadsEligibleContentKeys(false);
    asset->resourceLoader()->setDelegate(resourceLoaderDelegate_, loadersQueue_);
    return PlayerItem::make(asset);
}

}  // namespace zarvo
