#pragma once

#include <memory>
#include <optional>

#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/source/ZMPlaybackSource.h"
#include "zarvo/source/ZMPlaybackSourceOptions.h"

namespace zarvo {

class FPResourceLoaderDelegate;

/// Plays a download's package from disk, its keys served by the offline key loader from the
/// download's key directory, with no network. Open it on a ZMPlayer like any source, for a
/// download that has a package (ZMOfflineDownload::offlineUrl(); a completed one).
class ZARVO_EXPORT ZMOfflinePlaybackSource : public ZMPlaybackSource {
public:
    /// A source for `download` (kept alive by the source), a VOD unless `options` say
    /// otherwise.
    ZMOfflinePlaybackSource(std::shared_ptr<ZMOfflineDownload> download,
                            const std::optional<ZMPlaybackSourceOptions>& options = std::nullopt);
    /// Not available: an offline source is made from its download. Stops the process with
    /// "init(url:options:) has not been implemented".
    ZMOfflinePlaybackSource(const Url& url, const std::optional<ZMPlaybackSourceOptions>& options);

    /// The file URL of the download's package in the current application home; nothing while
    /// the download has no package.
    std::optional<Url> playbackURL() const override;
    /// Ignored: the address is the package's.
    void setPlaybackURL(std::optional<Url> url) override;
    /// Whether the download has a package.
    bool isInitialized() const override;
    /// An item on the package directory in the current application home, with a new offline
    /// key loader for the download (preloading of content keys off). A download without a
    /// package location stops the process with "The download has no offline URL.".
    std::shared_ptr<PlayerItem> createPlayerItem() override;

    /// The serial queue the key loader runs on.
    const std::shared_ptr<DispatchQueue>& loadersQueue() const { return loadersQueue_; }
    /// The download played.
    const std::shared_ptr<ZMOfflineDownload>& download() const { return download_; }
    /// The key loader of the last item built; nullptr before.
    const std::shared_ptr<FPResourceLoaderDelegate>& resourceLoaderDelegate() const {
        return resourceLoaderDelegate_;
    }

    /// Where a source without a package points: an address that answers 404.
    static const Url& placeholderUrl();

private:
    std::shared_ptr<DispatchQueue> loadersQueue_;
    std::shared_ptr<ZMOfflineDownload> download_;
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoaderDelegate_;
};

}  // namespace zarvo
