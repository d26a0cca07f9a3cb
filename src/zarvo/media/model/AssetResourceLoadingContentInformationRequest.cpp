#include "zarvo/media/model/AssetResourceLoadingContentInformationRequest.h"

namespace zarvo {

std::optional<std::string> AssetResourceLoadingContentInformationRequest::contentType() const {
    std::lock_guard lock(mutex_);
    return contentType_;
}

void AssetResourceLoadingContentInformationRequest::setContentType(
    std::optional<std::string> type) {
    std::lock_guard lock(mutex_);
    contentType_ = std::move(type);
}

std::int64_t AssetResourceLoadingContentInformationRequest::contentLength() const {
    std::lock_guard lock(mutex_);
    return contentLength_;
}

void AssetResourceLoadingContentInformationRequest::setContentLength(std::int64_t length) {
    std::lock_guard lock(mutex_);
    contentLength_ = length;
}

}  // namespace zarvo
