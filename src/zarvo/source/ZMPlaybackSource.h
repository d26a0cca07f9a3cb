#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/AssetResourceLoaderDelegate.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/player/PreferredMultimediaLanguages.h"
#include "zarvo/player/ZMSubtitles.h"
#include "zarvo/source/ZMFairPlayUrls.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"
#include "zarvo/source/ZMPlaybackTimeshift.h"
#include "zarvo/source/ZMStreamType.h"

namespace zarvo {

/// One thing to play: the playback address of an HLS stream (with the timeshift put into its
/// query when the options ask for it), its stream type, and what the player item is built with.
/// Immutable after construction except for the playback address and the key loader of the last
/// item built.
class ZARVO_EXPORT ZMPlaybackSource {
public:
    /// Copies the option values; later changes to `options` do not reach the source. `url` is
    /// not kept, only the playback address derived from it: with a timeshift and
    /// shouldAddTimeshiftAsQueryParam(), `url` followed by "?" (or "&" when it has a query)
    /// and the timeshift's query item (ZMPlaybackTimeshift::queryItem()).
    ZMPlaybackSource(const Url& url, const ZMPlaybackSourceOptions& options);
    virtual ~ZMPlaybackSource() = default;
    ZMPlaybackSource(const ZMPlaybackSource&) = delete;
    ZMPlaybackSource& operator=(const ZMPlaybackSource&) = delete;

    /// The address items are built on.
    virtual std::optional<Url> playbackURL() const { return playbackURL_; }
    /// Replaces the address for the items built from now on.
    virtual void setPlaybackURL(std::optional<Url> url) { playbackURL_ = std::move(url); }
    /// The timeshift of the options; nothing without one.
    const std::optional<ZMPlaybackTimeshift>& maxAllowedTimeshift() const {
        return maxAllowedTimeshift_;
    }
    /// The key-exchange addresses; nothing for a clear stream.
    const std::optional<ZMFairPlayUrls>& drm() const { return drm_; }
    /// The stream type decided from the options: vod when not live, live without a timeshift,
    /// dvrWindowLive or startTimeLive after the timeshift's type.
    ZMStreamType streamType() const { return streamType_; }
    /// Playback rates offered to the user: 0.25, 0.5, 1.0, 1.5 and 2.0.
    const std::vector<float>& speedOptions() const { return speedOptions_; }
    /// False for a streamed source; an offline source is initialised when it has a package.
    virtual bool isInitialized() const { return false; }
    /// The asset options of the options (HTTP header fields for every request).
    const std::optional<UrlAsset::Options>& avAssetOptions() const { return avAssetOptions_; }
    /// Carried for the application; the player item does not use them.
    const std::vector<ZMSubtitles>& externalSubtitles() const { return externalSubtitles_; }
    /// The asset's name of the options.
    const std::optional<std::string>& assetName() const { return assetName_; }
    /// The preferred languages of the options, carried for the application (not applied).
    const PreferredMultimediaLanguages& preferredMultimediaLanguages() const {
        return preferredMultimediaLanguages_;
    }

    /// Builds a new player item: an asset on the playback address with the asset options and,
    /// when FairPlay addresses are set, the key loader made by makeAssetDelegate(), which the
    /// source then keeps (the asset's resource loader holds it only weakly). Nothing without a
    /// playback address.
    virtual std::shared_ptr<PlayerItem> createPlayerItem();

    /// The key loader of the last item built with FairPlay addresses; empty before.
    const std::shared_ptr<AssetResourceLoaderDelegate>& assetDelegate() const {
        return assetDelegate_;
    }

protected:
    /// Makes the FairPlay key loader of `asset` and attaches it to the asset's resource loader.
    /// `assetName` is the source's asset name, or the asset URL's text without one.
    virtual std::shared_ptr<AssetResourceLoaderDelegate> makeAssetDelegate(
        const std::shared_ptr<UrlAsset>& asset, const ZMFairPlayUrls& drm,
        const std::string& assetName);

private:
    std::shared_ptr<AssetResourceLoaderDelegate> assetDelegate_;
    std::optional<Url> playbackURL_;
    std::optional<ZMPlaybackTimeshift> maxAllowedTimeshift_;
    std::optional<ZMFairPlayUrls> drm_;
    ZMStreamType streamType_ = ZMStreamType::unknown;
    std::vector<float> speedOptions_{0.25F, 0.5F, 1.0F, 1.5F, 2.0F};
    std::optional<UrlAsset::Options> avAssetOptions_;
    std::vector<ZMSubtitles> externalSubtitles_;
    std::optional<std::string> assetName_;
    PreferredMultimediaLanguages preferredMultimediaLanguages_;
};

}  // namespace zarvo
