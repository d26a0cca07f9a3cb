#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Export.h"
#include "zarvo/player/PreferredMultimediaLanguages.h"
#include "zarvo/player/ZMSubtitles.h"
#include "zarvo/source/ZMFairPlayUrls.h"
#include "zarvo/source/ZMPlaybackTimeshift.h"

namespace zarvo {

// How a source is to be opened: asset options, FairPlay addresses, side-loaded subtitles,
// preferred languages, and whether it is live with an optional timeshift. A source copies
// these values when it is made.
class ZARVO_EXPORT ZMPlaybackSourceOptions {
public:
    // Live or not, without a timeshift.
    explicit ZMPlaybackSourceOptions(bool isLive);
    // Live, with `timeshift` (possibly none); `shouldAddTimeshiftAsQueryParam` puts it into the
    // playback address.
    ZMPlaybackSourceOptions(std::optional<ZMPlaybackTimeshift> timeshift,
                            bool shouldAddTimeshiftAsQueryParam);
    ZMPlaybackSourceOptions() = delete;

    const std::optional<UrlAsset::Options>& avAssetOptions() const { return avAssetOptions_; }
    void setAvAssetOptions(std::optional<UrlAsset::Options> options);
    const std::optional<ZMFairPlayUrls>& drm() const { return drm_; }
    void setDrm(std::optional<ZMFairPlayUrls> drm);
    const std::vector<ZMSubtitles>& externalSubtitles() const { return externalSubtitles_; }
    void setExternalSubtitles(std::vector<ZMSubtitles> subtitles);
    const std::optional<std::string>& assetName() const { return assetName_; }
    void setAssetName(std::optional<std::string> name);
    const PreferredMultimediaLanguages& preferredMultimediaLanguages() const {
        return preferredMultimediaLanguages_;
    }
    void setPreferredMultimediaLanguages(PreferredMultimediaLanguages languages);

    bool isLive() const { return isLive_; }
    bool shouldAddTimeshiftAsQueryParam() const { return shouldAddTimeshiftAsQueryParam_; }
    const std::optional<ZMPlaybackTimeshift>& timeshift() const { return timeshift_; }

private:
    std::optional<UrlAsset::Options> avAssetOptions_;
    std::optional<ZMFairPlayUrls> drm_;
    std::vector<ZMSubtitles> externalSubtitles_;
    std::optional<std::string> assetName_;
    PreferredMultimediaLanguages preferredMultimediaLanguages_;
    bool isLive_;
    bool shouldAddTimeshiftAsQueryParam_ = false;
    std::optional<ZMPlaybackTimeshift> timeshift_;
};

}  // namespace zarvo
