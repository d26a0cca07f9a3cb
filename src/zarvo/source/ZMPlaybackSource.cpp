#include "zarvo/source/ZMPlaybackSource.h"

#include <utility>

#include "zarvo/fairplay/FairPlayAssetLoaderDelegate.h"
#include "zarvo/platform/UrlComponents.h"

namespace zarvo {

namespace {

ZMStreamType streamTypeFor(const ZMPlaybackSourceOptions& options) {
    if (!options.isLive()) {
        return ZMStreamType::vod;
    }
    const auto& timeshift = options.timeshift();
    if (!timeshift || !timeshift->type()) {
        return ZMStreamType::live;
    }
    switch (*timeshift->type()) {
        case ZMPlaybackTimeshiftType::dvrWindow:
            return ZMStreamType::dvrWindowLive;
        case ZMPlaybackTimeshiftType::startTime:
            return ZMStreamType::startTimeLive;
    }
    return ZMStreamType::live;
}

// The address with the timeshift parameter appended to its text as it is: the value is not
// encoded and a parameter of the same name already in the query stays.
Url playbackURLFor(const Url& url, const std::optional<ZMPlaybackTimeshift>& timeshift,
                   bool shouldAddTimeshiftAsQueryParam) {
    auto components = UrlComponents::parse(url.absoluteString());
    if (!components || !timeshift || !shouldAddTimeshiftAsQueryParam) {
        return url;
    }
    const UrlQueryItem item = timeshift->queryItem();
    // Only whether a query exists matters here, not which items it has.
    const char* separator = components->queryItems() ? "&" : "?";
    std::string text = url.absoluteString() + separator;
    if (item.value) {
        text += item.name + "=" + *item.value;
    }
    return Url::parse(text).value_or(url);
}

}  // namespace

ZMPlaybackSource::ZMPlaybackSource(const Url& url, const ZMPlaybackSourceOptions& options)
    : playbackURL_(
          playbackURLFor(url, options.timeshift(), options.shouldAddTimeshiftAsQueryParam())),
      maxAllowedTimeshift_(options.timeshift()),
      drm_(options.drm()),
      streamType_(streamTypeFor(options)),
      avAssetOptions_(options.avAssetOptions()),
      externalSubtitles_(options.externalSubtitles()),
      assetName_(options.assetName()),
      preferredMultimediaLanguages_(options.preferredMultimediaLanguages()) {}

std::shared_ptr<PlayerItem> ZMPlaybackSource::createPlayerItem() {
    const auto url = playbackURL();
    if (!url) {
        return nullptr;
    }
    auto asset = UrlAsset::make(*url, avAssetOptions_.value_or(UrlAsset::Options{}));
    if (drm_) {
        assetDelegate_ =
            makeAssetDelegate(asset, *drm_, assetName_.value_or(asset->url().absoluteString()));
    }
    return PlayerItem::make(std::move(asset));
}

std::shared_ptr<AssetResourceLoaderDelegate> ZMPlaybackSource::makeAssetDelegate(
    const std::shared_ptr<UrlAsset>& asset, const ZMFairPlayUrls& drm,
    const std::string& assetName) {
    return FairPlayAssetLoaderDelegate::make(asset, assetName, drm.serverCertUrl(),
                                             drm.licenseUrl(), drm.headerFields());
}

}  // namespace zarvo
