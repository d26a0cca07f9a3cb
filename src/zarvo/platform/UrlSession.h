#pragma once

#include <memory>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlSessionConfiguration.h"
#include "zarvo/platform/UrlSessionDataTask.h"
#include "zarvo/platform/UrlSessionStreamTask.h"

namespace zarvo {

// HTTP(S) on libcurl's multi interface. One network thread serves every session; transfers
// run concurrently with keep-alive reuse and TLS verification; completions are delivered on
// the session's delegate queue, never on the network thread.
class ZARVO_EXPORT UrlSession {
public:
    virtual ~UrlSession() = default;

    // The process-wide session (default configuration, its own serial delegate queue). It
    // ignores invalidateAndCancel and finishTasksAndInvalidate.
    static std::shared_ptr<UrlSession> shared();
    // A session from a configuration. Without a delegate queue the session makes a serial one.
    static std::shared_ptr<UrlSession> make(UrlSessionConfiguration configuration,
                                            std::shared_ptr<DispatchQueue> delegateQueue = nullptr);

    virtual const UrlSessionConfiguration& configuration() const = 0;
    virtual std::shared_ptr<DispatchQueue> delegateQueue() const = 0;

    virtual std::shared_ptr<UrlSessionDataTask> dataTask(
        UrlRequest request, UrlSessionDataTask::Completion completion) = 0;
    std::shared_ptr<UrlSessionDataTask> dataTask(const Url& url,
                                                 UrlSessionDataTask::Completion completion) {
        return dataTask(UrlRequest(url), std::move(completion));
    }

    // A streamed request (see UrlSessionStreamTask). `bufferLimit`: unread bytes held before
    // the transfer pauses.
    virtual std::shared_ptr<UrlSessionStreamTask> streamTask(UrlRequest request,
                                                             std::size_t bufferLimit = 1 << 20) = 0;

    // Cancels every running task; later dataTask and streamTask calls give tasks that fail as
    // cancelled.
    virtual void invalidateAndCancel() = 0;
    // Lets running tasks finish; later tasks fail as cancelled.
    virtual void finishTasksAndInvalidate() = 0;
};

}  // namespace zarvo
