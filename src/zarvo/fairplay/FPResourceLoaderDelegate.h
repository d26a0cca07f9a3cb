#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/media/model/AssetResourceLoaderDelegate.h"
#include "zarvo/platform/Data.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

class AssetResourceLoadingRequest;
class ZMOfflineDownload;

/// Serves the persistent content keys of one download. The first request for a key
/// (`skd://<asset id>`) fetches the application certificate, has the loading request make a
/// persistent-key request, posts it to the download's licence server and keeps the persistent
/// key in the download's key directory as `<asset id>-Key`; later requests, while downloading
/// or playing offline, are answered from that file without the network.
///
/// Requests are handled one after another on `resourceLoadingRequestQueue`, which blocks while
/// the certificate and licence requests run (60 s time-out each). The download is held weakly;
/// handling a request after it went away, or for a key URL without a host, stops the process.
/// Failures end the request with an FPDownloadError: missingApplicationCertificate (no
/// certificate, or no licence URL), noCKCReturnedByKSM (no answer from the licence server),
/// keyNotFoundLocally (a key file that cannot be read), or unexpectedError (an asset id that
/// cannot name a file); a key that cannot be written ends it with the URL error
/// cannotWriteToFile. The loader prints its progress on standard output.
class ZARVO_EXPORT FPResourceLoaderDelegate
    : public AssetResourceLoaderDelegate,
      public std::enable_shared_from_this<FPResourceLoaderDelegate> {
public:
    /// A loader for `download`'s keys.
    static std::shared_ptr<FPResourceLoaderDelegate> make(
        const std::shared_ptr<ZMOfflineDownload>& download);

    /// Restricts construction to make().
    struct Token {
        /// Made only by make().
        explicit Token() = default;
    };
    /// Used by make().
    FPResourceLoaderDelegate(Token, const std::shared_ptr<ZMOfflineDownload>& download);
    FPResourceLoaderDelegate() = delete;
    FPResourceLoaderDelegate(const FPResourceLoaderDelegate&) = delete;
    FPResourceLoaderDelegate& operator=(const FPResourceLoaderDelegate&) = delete;
    /// Prints its end on standard output.
    ~FPResourceLoaderDelegate() override;

    /// Take "skd" requests (handled later on the queue) and decline every other one.
    bool shouldWaitForLoadingOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;
    /// The same as shouldWaitForLoadingOfRequestedResource().
    bool shouldWaitForRenewalOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;
    /// Prints the cancellation on standard output.
    void didCancel(AssetResourceLoader& loader,
                   const std::shared_ptr<AssetResourceLoadingRequest>& request) override;

    /// The serial queue requests are handled on.
    const std::shared_ptr<DispatchQueue>& resourceLoadingRequestQueue() const { return queue_; }
    /// The download whose keys are served; nullptr once it is gone.
    std::shared_ptr<ZMOfflineDownload> download() const { return download_.lock(); }

private:
    bool take(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    void handle(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    void serveFromDisk(const std::shared_ptr<AssetResourceLoadingRequest>& request,
                       const std::filesystem::path& keyFile);
    void fetchFromServer(const std::shared_ptr<AssetResourceLoadingRequest>& request,
                         const std::string& assetId);
    // The key file of `assetId` in the download's key directory (made when missing).
    std::filesystem::path keyFilePath(const std::string& assetId) const;
    // The licence request for `keyRequest`; nothing when the download, its licence URL or the
    // URL with the download's query items is missing.
    std::optional<UrlRequest> licenseRequest(const Data& keyRequest) const;

    const std::shared_ptr<DispatchQueue> queue_;
    const std::weak_ptr<ZMOfflineDownload> download_;
};

}  // namespace zarvo
