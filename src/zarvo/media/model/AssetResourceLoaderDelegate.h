#pragma once

#include <memory>

#include "zarvo/media/model/AssetResourceLoadingRequest.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class AssetResourceLoader;

// Loads what the engine cannot: called on the queue given with the delegate.
class ZARVO_EXPORT AssetResourceLoaderDelegate {
public:
    virtual ~AssetResourceLoaderDelegate() = default;

    // True when the delegate takes the request and will finish it; false declines it (the
    // engine then fails the item).
    virtual bool shouldWaitForLoadingOfRequestedResource(
        AssetResourceLoader& loader, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
        (void)loader;
        (void)request;
        return false;
    }
    // The same for a resource that must be loaded again (a content key that expired).
    virtual bool shouldWaitForRenewalOfRequestedResource(
        AssetResourceLoader& loader, const std::shared_ptr<AssetResourceLoadingRequest>& request) {
        (void)loader;
        (void)request;
        return false;
    }
    // The engine no longer needs a request the delegate took.
    virtual void didCancel(AssetResourceLoader& loader,
                           const std::shared_ptr<AssetResourceLoadingRequest>& request) {
        (void)loader;
        (void)request;
    }
};

}  // namespace zarvo
