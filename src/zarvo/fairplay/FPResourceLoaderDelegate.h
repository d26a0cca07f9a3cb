#pragma once

#include <memory>
#include <optional>
#include <string>

#include "zarvo/media/AssetResourceLoaderDelegate.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

class ZMOfflineDownload;

// Answers the content-key requests of a downloaded stream: the first time a key is needed it
// gets a persistent key from the key server and keeps it in the download's key directory;
// after that (during the download or offline playback) the key comes from disk, with no
// network. Requests are handled one after another on its own queue.
class FPResourceLoaderDelegate : public AssetResourceLoaderDelegate,
                                 public std::enable_shared_from_this<FPResourceLoaderDelegate> {
public:
    // The download is held weakly.
    explicit FPResourceLoaderDelegate(std::weak_ptr<ZMOfflineDownload> download);
    // Not available: the loader serves one download's keys.
    FPResourceLoaderDelegate();
    ~FPResourceLoaderDelegate() override;

    bool shouldWaitForLoadingOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;
    bool shouldWaitForRenewalOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;
    void didCancel(AssetResourceLoader& loader,
                   const std::shared_ptr<AssetResourceLoadingRequest>& request) override;

    const std::shared_ptr<DispatchQueue>& resourceLoadingRequestQueue() const { return queue_; }
    std::shared_ptr<ZMOfflineDownload> download() const { return download_.lock(); }

private:
    bool take(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    void handle(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    std::string keyFilePath(const std::string& assetId) const;
    void serveFromDisk(const std::shared_ptr<AssetResourceLoadingRequest>& request,
                       const std::string& path);
    // The persistent key, or why it could not be had.
    std::variant<Data, Error> fetchFromServer(
        const std::shared_ptr<AssetResourceLoadingRequest>& request, const std::string& assetId,
        const std::string& path);

    const std::shared_ptr<DispatchQueue> queue_;
    const std::weak_ptr<ZMOfflineDownload> download_;
};

}  // namespace zarvo
