#include "zarvo/media/model/AssetResourceLoadingDataRequest.h"

namespace zarvo {

void AssetResourceLoadingDataRequest::respond(const Data& data) {
    std::lock_guard lock(mutex_);
    data_ += data;
}

Data AssetResourceLoadingDataRequest::respondedData() const {
    std::lock_guard lock(mutex_);
    return data_;
}

}  // namespace zarvo
