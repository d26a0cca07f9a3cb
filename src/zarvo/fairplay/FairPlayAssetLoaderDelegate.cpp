#include "zarvo/fairplay/FairPlayAssetLoaderDelegate.h"

#include <cinttypes>
#include <cstdio>
#include <utility>

#include "zarvo/media/model/AssetResourceLoader.h"
#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"
#include "zarvo/media/model/AssetResourceLoadingDataRequest.h"
#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/platform/UserDefaults.h"
#include "zarvo/player/ZMPlayerError.h"

namespace zarvo {

namespace {

constexpr double assetKeyExchangeTimeout = 60;

void fail(const std::shared_ptr<AssetResourceLoadingRequest>& request, long step) {
    request->finishLoading(ZMPlayerError::fairPlayInitialization(step));
}

// FNV-1a over the URL text: the same name for the same asset in every run.
std::uint64_t stableHash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (unsigned char c : text) {
        hash = (hash ^ c) * 1099511628211ull;
    }
    return hash;
}

}  // namespace

std::shared_ptr<FairPlayAssetLoaderDelegate> FairPlayAssetLoaderDelegate::make(
    std::shared_ptr<UrlAsset> asset, std::string assetName, Url fpsCertUrl, Url licenseUrl,
    std::map<std::string, std::string> headerFields,
    std::optional<std::filesystem::path> documentUrl) {
    auto delegate = std::make_shared<FairPlayAssetLoaderDelegate>(
        Token{}, std::move(asset), std::move(assetName), std::move(fpsCertUrl),
        std::move(licenseUrl), std::move(headerFields),
        documentUrl ? std::move(*documentUrl) : AppDirectories::documents());
    delegate->asset_->resourceLoader()->setDelegate(delegate, delegate->queue_);
    return delegate;
}

FairPlayAssetLoaderDelegate::FairPlayAssetLoaderDelegate(
    Token, std::shared_ptr<UrlAsset> asset, std::string assetName, Url fpsCertUrl, Url licenseUrl,
    std::map<std::string, std::string> headerFields, std::filesystem::path documentUrl)
    : asset_(std::move(asset)),
      assetName_(std::move(assetName)),
      fpsCertUrl_(std::move(fpsCertUrl)),
      licenseUrl_(std::move(licenseUrl)),
      headerFields_(std::move(headerFields)),
      documentUrl_(std::move(documentUrl)),
      queue_(DispatchQueue::serial("com.zarvo.mediaplayer.resourceLoadingRequests")) {}

const std::string& FairPlayAssetLoaderDelegate::assetUserDefaultsKey() const {
    std::call_once(defaultsKeyOnce_, [this] { assetUserDefaultsKey_ = assetName_ + "-Key"; });
    return assetUserDefaultsKey_;
}

bool FairPlayAssetLoaderDelegate::shouldWaitForLoadingOfRequestedResource(
    AssetResourceLoader&, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    return take(request);
}

bool FairPlayAssetLoaderDelegate::shouldWaitForRenewalOfRequestedResource(
    AssetResourceLoader&, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    return take(request);
}

bool FairPlayAssetLoaderDelegate::take(
    const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    if (request->request().url.scheme() != "skd") {
        return false;
    }
    queue_->async([weakSelf = weak_from_this(), request] {
        if (auto self = weakSelf.lock()) {
            self->handle(request);
        }
    });
    return true;
}

std::string FairPlayAssetLoaderDelegate::keyFileName() const {
    char name[32];
    std::snprintf(name, sizeof name, "%" PRIu64 ".key", stableHash(asset_->url().absoluteString()));
    return name;
}

void FairPlayAssetLoaderDelegate::handle(
    const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    const bool persistent = asset_->resourceLoader()->preloadsEligibleContentKeys();

    const std::string contentIdentifier = request->request().url.host().value_or("");
    if (contentIdentifier.empty()) {
        return fail(request, 1);
    }

    auto defaults = UserDefaults::standard();
    if (auto fileName = defaults->string(assetUserDefaultsKey())) {
        std::error_code error;
        const auto path = documentUrl_ / *fileName;
        if (!fileName->empty() && std::filesystem::exists(path, error)) {
            auto stored = DataFile::read(path);
            if (!stored || !request->dataRequest()) {
                return fail(request, 2);
            }
            request->dataRequest()->respond(*stored);
            return request->finishLoading();
        }
    }

    if (persistent) {
        if (!request->contentInformationRequest()) {
            return fail(request, 3);
        }
        request->contentInformationRequest()->setContentType(
            AssetResourceLoadingContentInformationRequest::persistentContentKeyType);
    }

    UrlRequest certificateRequest(fpsCertUrl_, UrlRequest::CachePolicy::useProtocolCachePolicy,
                                  assetKeyExchangeTimeout);
    fetch(std::move(certificateRequest), request, 4,
          [request, contentIdentifier, persistent](FairPlayAssetLoaderDelegate& self,
                                                   const Data& certificate) {
              self.requestKey(request, contentIdentifier, persistent, certificate);
          });
}

void FairPlayAssetLoaderDelegate::fetch(
    UrlRequest urlRequest, const std::shared_ptr<AssetResourceLoadingRequest>& request,
    long failedStep, std::function<void(FairPlayAssetLoaderDelegate&, const Data&)> next) {
    urlRequest.maximumBodyLength = ResponseLimits::keyAnswer;
    UrlSession::shared()
        ->dataTask(std::move(urlRequest),
                   [weakSelf = weak_from_this(), request, failedStep, next = std::move(next)](
                       std::optional<Data> data, std::optional<HttpUrlResponse>,
                       std::optional<Error> error) {
                       auto self = weakSelf.lock();
                       if (!self) {
                           return;
                       }
                       // Data without an error will do: the HTTP status is not looked at.
                       if (!data || error) {
                           return fail(request, failedStep);
                       }
                       next(*self, *data);
                   })
        ->resume();
}

void FairPlayAssetLoaderDelegate::requestKey(
    const std::shared_ptr<AssetResourceLoadingRequest>& request,
    const std::string& contentIdentifier, bool persistent, const Data& certificate) {
    AssetResourceLoadingRequest::Options options;
    if (persistent) {
        options[AssetResourceLoadingRequest::streamingContentKeyRequestRequiresPersistentKey] =
            true;
    }
    auto keyRequest =
        request->streamingContentKeyRequestData(certificate, contentIdentifier, options);
    if (std::holds_alternative<Error>(keyRequest)) {
        return fail(request, 5);
    }

    UrlRequest post(licenseUrl_, UrlRequest::CachePolicy::useProtocolCachePolicy,
                    assetKeyExchangeTimeout);
    post.httpMethod = "POST";
    post.setValue("application/octet-stream", "Content-Type");
    post.httpBody = std::get<Data>(std::move(keyRequest));
    for (const auto& [name, value] : headerFields_) {
        post.setValue(value, name);
    }
    fetch(std::move(post), request, 6,
          [request, persistent](FairPlayAssetLoaderDelegate& self, const Data& keyResponse) {
              self.deliverKey(request, persistent, keyResponse);
          });
}

void FairPlayAssetLoaderDelegate::deliverKey(
    const std::shared_ptr<AssetResourceLoadingRequest>& request, bool persistent,
    const Data& keyResponse) {
    if (!persistent) {
        if (!request->dataRequest()) {
            return fail(request, 7);
        }
        request->dataRequest()->respond(keyResponse);
        return request->finishLoading();
    }
    auto persistentKey = request->persistentContentKey(keyResponse);
    if (std::holds_alternative<Error>(persistentKey) || !request->dataRequest()) {
        return fail(request, 8);
    }
    const Data& key = std::get<Data>(persistentKey);
    const std::string fileName = keyFileName();
    AppDirectories::makeFolder(documentUrl_);
    if (!DataFile::writeAtomically(
            documentUrl_ / fileName, key,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)) {
        return fail(request, 8);
    }
    auto defaults = UserDefaults::standard();
    if (!defaults->setString(assetUserDefaultsKey(), fileName) || !defaults->synchronize()) {
        return fail(request, 8);
    }
    request->dataRequest()->respond(key);
    request->finishLoading();
}

}  // namespace zarvo
