#include "zarvo/media/model/AssetResourceLoader.h"

namespace zarvo {

void AssetResourceLoader::setDelegate(std::weak_ptr<AssetResourceLoaderDelegate> delegate,
                                      std::shared_ptr<DispatchQueue> queue) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
    queue_ = std::move(queue);
}

std::shared_ptr<AssetResourceLoaderDelegate> AssetResourceLoader::delegate() const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
}

std::shared_ptr<DispatchQueue> AssetResourceLoader::delegateQueue() const {
    std::lock_guard lock(mutex_);
    return queue_;
}

bool AssetResourceLoader::preloadsEligibleContentKeys() const {
    std::lock_guard lock(mutex_);
    return preloadsEligibleContentKeys_;
}

void AssetResourceLoader::setPreloadsEligibleContentKeys(bool preloads) {
    std::lock_guard lock(mutex_);
    preloadsEligibleContentKeys_ = preloads;
}

void AssetResourceLoader::offer(const std::shared_ptr<AssetResourceLoadingRequest>& request,
                                bool renewal, std::function<void(bool accepted)> answered) {
    std::shared_ptr<DispatchQueue> queue;
    {
        std::lock_guard lock(mutex_);
        queue = queue_;
    }
    if (!queue || !delegate()) {
        answered(false);
        return;
    }
    queue->async([weakSelf = weak_from_this(), request, renewal, answered = std::move(answered)] {
        auto self = weakSelf.lock();
        auto delegate = self ? self->delegate() : nullptr;
        if (!delegate) {
            answered(false);
            return;
        }
        answered(renewal ? delegate->shouldWaitForRenewalOfRequestedResource(*self, request)
                         : delegate->shouldWaitForLoadingOfRequestedResource(*self, request));
    });
}

void AssetResourceLoader::notifyCancelled(
    const std::shared_ptr<AssetResourceLoadingRequest>& request) {
    auto queue = delegateQueue();
    if (!queue) {
        return;
    }
    queue->async([weakSelf = weak_from_this(), request] {
        auto self = weakSelf.lock();
        if (auto delegate = self ? self->delegate() : nullptr) {
            delegate->didCancel(*self, request);
        }
    });
}

}  // namespace zarvo
