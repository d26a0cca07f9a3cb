#include "zarvo/source/ZMPlaybackSourceOptions.h"

#include <utility>

namespace zarvo {

ZMPlaybackSourceOptions::ZMPlaybackSourceOptions(bool isLive) : isLive_(isLive) {}

ZMPlaybackSourceOptions::ZMPlaybackSourceOptions(std::optional<ZMPlaybackTimeshift> timeshift,
                                                 bool shouldAddTimeshiftAsQueryParam)
    : isLive_(true),
      shouldAddTimeshiftAsQueryParam_(shouldAddTimeshiftAsQueryParam),
      timeshift_(std::move(timeshift)) {}

void ZMPlaybackSourceOptions::setAvAssetOptions(std::optional<UrlAsset::Options> options) {
    avAssetOptions_ = std::move(options);
}

void ZMPlaybackSourceOptions::setDrm(std::optional<ZMFairPlayUrls> drm) {
    drm_ = std::move(drm);
}

void ZMPlaybackSourceOptions::setExternalSubtitles(std::vector<ZMSubtitles> subtitles) {
    externalSubtitles_ = std::move(subtitles);
}

void ZMPlaybackSourceOptions::setAssetName(std::optional<std::string> name) {
    assetName_ = std::move(name);
}

void ZMPlaybackSourceOptions::setPreferredMultimediaLanguages(
    PreferredMultimediaLanguages languages) {
    preferredMultimediaLanguages_ = std::move(languages);
}

}  // namespace zarvo
