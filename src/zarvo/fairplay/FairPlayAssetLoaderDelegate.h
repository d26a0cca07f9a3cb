#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "zarvo/media/model/AssetResourceLoaderDelegate.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

class AssetResourceLoadingRequest;
class UrlAsset;

/// Answers the content-key requests ("skd" URLs) of one protected asset while it plays: it
/// fetches the application certificate, has the loading request make the key request, posts
/// it to the licence server and hands the answer back. When the asset's resource loader
/// preloads eligible content keys it asks for a persistent key instead, keeps it in a file of
/// `documentUrl` (its name in the user defaults under `assetName` + "-Key"), and answers later
/// requests from that file without the network. Failures end the request with the
/// "ZMPlayerErrorDomain" error 10 and the number of the step that failed:
///
/// 1. the key URL has no host (the content identifier);
/// 2. a stored key file could not be read, or the request has no data request to answer;
/// 3. a persistent key is asked for without a content-information request;
/// 4. the certificate request got no answer (any HTTP answer counts as one);
/// 5. the key request could not be made from the certificate;
/// 6. the licence request got no answer;
/// 7. a streaming key has no data request to answer;
/// 8. the persistent key could not be made, written or recorded in the user defaults.
///
/// The certificate and licence requests are plain requests of the shared URL session (60 s
/// time-out); the licence request is a POST of "application/octet-stream" with the header
/// fields given.
class ZARVO_EXPORT FairPlayAssetLoaderDelegate
    : public AssetResourceLoaderDelegate,
      public std::enable_shared_from_this<FairPlayAssetLoaderDelegate> {
public:
    /// A delegate installed on `asset`'s resource loader, called on its own serial queue.
    /// `documentUrl`: where persistent keys go (the application home's Documents by default).
    static std::shared_ptr<FairPlayAssetLoaderDelegate> make(
        std::shared_ptr<UrlAsset> asset, std::string assetName, Url fpsCertUrl, Url licenseUrl,
        std::map<std::string, std::string> headerFields,
        std::optional<std::filesystem::path> documentUrl = std::nullopt);

    /// Takes "skd" requests (handled later on the queue) and declines every other one.
    bool shouldWaitForLoadingOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;
    /// The same as shouldWaitForLoadingOfRequestedResource().
    bool shouldWaitForRenewalOfRequestedResource(
        AssetResourceLoader& loader,
        const std::shared_ptr<AssetResourceLoadingRequest>& request) override;

    /// The protected asset.
    const std::shared_ptr<UrlAsset>& asset() const { return asset_; }
    /// The name that keys the persistent key in the user defaults.
    const std::string& assetName() const { return assetName_; }
    /// The folder of persistent key files.
    const std::filesystem::path& documentUrl() const { return documentUrl_; }
    /// The serial queue requests are handled on.
    const std::shared_ptr<DispatchQueue>& resourceLoadingRequestQueue() const { return queue_; }
    /// The user-defaults key of the persistent key file's name: `assetName` + "-Key".
    const std::string& assetUserDefaultsKey() const;

    /// Restricts construction to make().
    struct Token {
        /// Made only by make().
        explicit Token() = default;
    };
    /// Used by make(); does not install the delegate.
    FairPlayAssetLoaderDelegate(Token, std::shared_ptr<UrlAsset> asset, std::string assetName,
                                Url fpsCertUrl, Url licenseUrl,
                                std::map<std::string, std::string> headerFields,
                                std::filesystem::path documentUrl);

private:
    bool take(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    void handle(const std::shared_ptr<AssetResourceLoadingRequest>& request);
    // Fetches `urlRequest` on the shared session; with its bytes calls `next` (while the
    // delegate lives), else fails `request` at `failedStep`.
    void fetch(UrlRequest urlRequest, const std::shared_ptr<AssetResourceLoadingRequest>& request,
               long failedStep,
               std::function<void(FairPlayAssetLoaderDelegate&, const Data&)> next);
    void requestKey(const std::shared_ptr<AssetResourceLoadingRequest>& request,
                    const std::string& contentIdentifier, bool persistent, const Data& certificate);
    void deliverKey(const std::shared_ptr<AssetResourceLoadingRequest>& request, bool persistent,
                    const Data& keyResponse);
    // The name of the persistent key file: a stable hash of the asset URL, "%lu.key".
    std::string keyFileName() const;

    const std::shared_ptr<UrlAsset> asset_;
    const std::string assetName_;
    const Url fpsCertUrl_;
    const Url licenseUrl_;
    const std::map<std::string, std::string> headerFields_;
    const std::filesystem::path documentUrl_;
    const std::shared_ptr<DispatchQueue> queue_;
    mutable std::once_flag defaultsKeyOnce_;
    mutable std::string assetUserDefaultsKey_;
};

}  // namespace zarvo
