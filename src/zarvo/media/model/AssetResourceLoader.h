#pragma once

#include <memory>
#include <mutex>

#include "zarvo/media/model/AssetResourceLoaderDelegate.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

// The resource loader of an asset: where the engine sends the resources it cannot load
// itself. The delegate is held weakly and called on its queue.
class ZARVO_EXPORT AssetResourceLoader : public std::enable_shared_from_this<AssetResourceLoader> {
public:
    void setDelegate(std::weak_ptr<AssetResourceLoaderDelegate> delegate,
                     std::shared_ptr<DispatchQueue> queue);
    std::shared_ptr<AssetResourceLoaderDelegate> delegate() const;
    std::shared_ptr<DispatchQueue> delegateQueue() const;

    // Whether content keys are loaded ahead of need, as persistent keys.
    bool preloadsEligibleContentKeys() const;
    void setPreloadsEligibleContentKeys(bool preloads);

    // Engine side: offers `request` to the delegate on its queue and calls `answered` there
    // with its answer (false when there is no delegate, or it is gone, or it declined).
    void offer(const std::shared_ptr<AssetResourceLoadingRequest>& request, bool renewal,
               std::function<void(bool accepted)> answered);
    // Engine side: tells the delegate (if any) on its queue that a taken request is cancelled.
    void notifyCancelled(const std::shared_ptr<AssetResourceLoadingRequest>& request);

private:
    mutable std::mutex mutex_;
    std::weak_ptr<AssetResourceLoaderDelegate> delegate_;
    std::shared_ptr<DispatchQueue> queue_;
    bool preloadsEligibleContentKeys_ = false;
};

}  // namespace zarvo
