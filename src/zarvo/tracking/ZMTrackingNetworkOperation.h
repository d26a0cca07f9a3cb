#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlSession.h"
#include "zarvo/tracking/ZMTrackingSessionError.h"
#include "zarvo/tracking/ZMTrackingUrlCreator.h"

namespace zarvo {

// One beacon request: a plain GET of the creator's URL through the owner's URL session.
// It neither retries nor logs; the owner decides what a failure means.
class ZARVO_EXPORT ZMTrackingNetworkOperation {
public:
    // Nothing on success, otherwise the failure.
    using Completion = std::function<void(std::optional<ZMTrackingSessionError>)>;

    ZMTrackingNetworkOperation(ZMTrackingUrlCreator urlCreator,
                               std::shared_ptr<UrlSession> urlSession);

    // Builds the URL and sends the request. When the URL cannot be built the completion runs
    // at once on the calling thread and nothing is sent; otherwise it runs on the URL
    // session's delegate queue.
    void start(Completion completion);
    // Cancels the running request (its completion then reports a connection error).
    void cancel();

    const ZMTrackingUrlCreator& urlCreator() const { return urlCreator_; }
    std::shared_ptr<UrlSessionDataTask> dataTask() const;

private:
    const ZMTrackingUrlCreator urlCreator_;
    const std::shared_ptr<UrlSession> urlSession_;
    mutable std::mutex mutex_;
    std::shared_ptr<UrlSessionDataTask> dataTask_;
};

}  // namespace zarvo
