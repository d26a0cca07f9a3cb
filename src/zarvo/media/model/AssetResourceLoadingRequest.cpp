#include "zarvo/media/model/AssetResourceLoadingRequest.h"

#include "zarvo/media/model/ContentKeyRequest.h"

namespace zarvo {

AssetResourceLoadingRequest::AssetResourceLoadingRequest(UrlRequest request,
                                                         bool hasContentInformationRequest,
                                                         bool hasDataRequest, Finish finish)
    : request_(std::move(request)),
      contentInformation_(hasContentInformationRequest
                              ? std::make_shared<AssetResourceLoadingContentInformationRequest>()
                              : nullptr),
      data_(hasDataRequest ? std::make_shared<AssetResourceLoadingDataRequest>() : nullptr),
      finish_(std::move(finish)) {}

std::variant<Data, Error> AssetResourceLoadingRequest::streamingContentKeyRequestData(
    const Data& appIdentifier, const Data& contentIdentifier, const Options& options) const {
    auto persistent = options.find(streamingContentKeyRequestRequiresPersistentKey);
    auto made = ContentKeyRequest::make(appIdentifier, contentIdentifier,
                                        persistent != options.end() && persistent->second);
    if (auto* error = std::get_if<Error>(&made)) {
        return *error;
    }
    return std::get<ContentKeyRequest>(made).encode();
}

std::variant<Data, Error> AssetResourceLoadingRequest::persistentContentKey(
    const Data& keyVendorResponse, const Options&) const {
    if (auto key = ContentKeyRequest::makePersistentKey(keyVendorResponse)) {
        return *key;
    }
    return ContentKeyRequest::makeError(ContentKeyRequest::ErrorCode::invalidKeyResponse,
                                        "The key response is not a content key.");
}

void AssetResourceLoadingRequest::finishLoading() {
    end(std::nullopt);
}

void AssetResourceLoadingRequest::finishLoading(const Error& error) {
    end(error);
}

void AssetResourceLoadingRequest::end(std::optional<Error> error) {
    Finish finish;
    {
        std::lock_guard lock(mutex_);
        if (finished_ || cancelled_) {
            return;
        }
        finished_ = true;
        finish = std::move(finish_);
        finish_ = nullptr;
    }
    if (finish) {
        Outcome outcome{data_ ? data_->respondedData() : Data(),
                        contentInformation_ ? contentInformation_->contentType() : std::nullopt,
                        std::move(error)};
        finish(outcome);
    }
}

bool AssetResourceLoadingRequest::isFinished() const {
    std::lock_guard lock(mutex_);
    return finished_;
}

bool AssetResourceLoadingRequest::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

bool AssetResourceLoadingRequest::cancel() {
    std::lock_guard lock(mutex_);
    if (finished_ || cancelled_) {
        return false;
    }
    cancelled_ = true;
    finish_ = nullptr;
    return true;
}

}  // namespace zarvo
