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

/// How a source is to be opened: asset options, FairPlay addresses, side-loaded subtitles,
/// preferred languages, and whether it is live with an optional timeshift. A source copies
/// these values when it is made.
class ZARVO_EXPORT ZMPlaybackSourceOptions {
public:
    /// Live or not, without a timeshift.
    explicit ZMPlaybackSourceOptions(bool isLive);
    /// Live, with `timeshift` (possibly none); `shouldAddTimeshiftAsQueryParam` puts it into the
    /// playback address.
    ZMPlaybackSourceOptions(std::optional<ZMPlaybackTimeshift> timeshift,
                            bool shouldAddTimeshiftAsQueryParam);
    ZMPlaybackSourceOptions() = delete;

    /// The asset options: the HTTP header fields sent with every request for the stream
    /// (playlists, segments, keys on servers).
    const std::optional<UrlAsset::Options>& avAssetOptions() const { return avAssetOptions_; }
    /// Sets the asset options.
    void setAvAssetOptions(std::optional<UrlAsset::Options> options);
    /// The key-exchange addresses of a protected stream; nothing for a clear one.
    const std::optional<ZMFairPlayUrls>& drm() const { return drm_; }
    /// Sets the key-exchange addresses.
    void setDrm(std::optional<ZMFairPlayUrls> drm);
    /// Side-loaded subtitle files, carried for the application (the player does not load them).
    const std::vector<ZMSubtitles>& externalSubtitles() const { return externalSubtitles_; }
    /// Sets the side-loaded subtitle files.
    void setExternalSubtitles(std::vector<ZMSubtitles> subtitles);
    /// The asset's name, which names its persistent key in the user defaults (see
    /// FairPlayAssetLoaderDelegate); nothing uses the asset URL's text.
    const std::optional<std::string>& assetName() const { return assetName_; }
    /// Sets the asset's name.
    void setAssetName(std::optional<std::string> name);
    /// The preferred audio and subtitle languages, carried for the application (the player
    /// does not apply them).
    const PreferredMultimediaLanguages& preferredMultimediaLanguages() const {
        return preferredMultimediaLanguages_;
    }
    /// Sets the preferred languages.
    void setPreferredMultimediaLanguages(PreferredMultimediaLanguages languages);

    /// Whether the stream is live (always true with the timeshift constructor).
    bool isLive() const { return isLive_; }
    /// Whether the timeshift goes into the playback address as a query parameter.
    bool shouldAddTimeshiftAsQueryParam() const { return shouldAddTimeshiftAsQueryParam_; }
    /// The timeshift; nothing without one.
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
