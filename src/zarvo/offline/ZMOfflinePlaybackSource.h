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

// Plays a download's package from disk, its keys served by the offline key loader from the
// download's key directory.
class ZARVO_EXPORT ZMOfflinePlaybackSource : public ZMPlaybackSource {
public:
    ZMOfflinePlaybackSource(std::shared_ptr<ZMOfflineDownload> download,
                            const std::optional<ZMPlaybackSourceOptions>& options = std::nullopt);
    // Not available: an offline source is made from its download.
    ZMOfflinePlaybackSource(const Url& url, const std::optional<ZMPlaybackSourceOptions>& options);

    std::optional<Url> playbackURL() const override;
    void setPlaybackURL(std::optional<Url> url) override;
    bool isInitialized() const override;
    std::shared_ptr<PlayerItem> createPlayerItem() override;

    const std::shared_ptr<DispatchQueue>& loadersQueue() const { return loadersQueue_; }
    const std::shared_ptr<ZMOfflineDownload>& download() const { return download_; }
    const std::shared_ptr<FPResourceLoaderDelegate>& resourceLoaderDelegate() const {
        return resourceLoaderDelegate_;
    }

    // Where a source without a package points: an address that answers 404.
    static const Url& placeholderUrl();

private:
    std::shared_ptr<DispatchQueue> loadersQueue_;
    std::shared_ptr<ZMOfflineDownload> download_;
    std::shared_ptr<FPResourceLoaderDelegate> resourceLoaderDelegate_;
};

}  // namespace zarvo
