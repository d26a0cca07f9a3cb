#include "zarvo/media/model/PlayerItemMetadataCollector.h"

#include "zarvo/media/model/MediaEngine.h"

namespace zarvo {

std::shared_ptr<PlayerItemMetadataCollector> PlayerItemMetadataCollector::make() {
    return std::make_shared<PlayerItemMetadataCollector>();
}

void PlayerItemMetadataCollector::setDelegate(
    std::weak_ptr<PlayerItemMetadataCollectorPushDelegate> delegate,
    std::shared_ptr<DispatchQueue> queue) {
    std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
    queue_ = std::move(queue);
}

std::shared_ptr<PlayerItemMetadataCollectorPushDelegate> PlayerItemMetadataCollector::delegate()
    const {
    std::lock_guard lock(mutex_);
    return delegate_.lock();
}

std::shared_ptr<DispatchQueue> PlayerItemMetadataCollector::delegateQueue() const {
    std::lock_guard lock(mutex_);
    return queue_;
}

void PlayerItemMetadataCollector::collect(const MediaEngineKey&,
                                          const std::vector<DateRangeMetadataGroup>& groups) {
    std::vector<std::size_t> added;
    std::vector<std::size_t> modified;
    std::shared_ptr<DispatchQueue> queue;
    {
        std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < groups.size(); ++i) {
            auto [found, inserted] = seen_.try_emplace(groups[i].identifier, groups[i]);
            if (inserted) {
                added.push_back(i);
            } else if (!(found->second == groups[i])) {
                found->second = groups[i];
                modified.push_back(i);
            }
        }
        queue = queue_ ? queue_ : DispatchQueue::main();
    }
    if (added.empty() && modified.empty()) {
        return;
    }
    queue->async([weakSelf = weak_from_this(), groups, added = std::move(added),
                  modified = std::move(modified)] {
        auto self = weakSelf.lock();
        auto delegate = self ? self->delegate() : nullptr;
        if (delegate) {
            delegate->metadataCollector(*self, groups, added, modified);
        }
    });
}

}  // namespace zarvo
