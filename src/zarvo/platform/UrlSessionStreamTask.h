#pragma once

#include <cstddef>
#include <variant>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/HttpUrlResponse.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

// A request whose body is read piece by piece as it arrives, instead of being collected: for
// bodies too large to hold and for passing bytes on while they download. Made suspended by
// UrlSession::streamTask; resume() starts it. Reading blocks the caller. While `bufferLimit`
// bytes wait unread the transfer pauses (curl's receive pause), so a slow reader holds back the
// sender instead of filling memory; it resumes as the reader catches up. Every call may come
// from any thread. Dropping the last reference cancels the transfer.
class ZARVO_EXPORT UrlSessionStreamTask {
public:
    virtual ~UrlSessionStreamTask() = default;

    virtual void resume() = 0;
    // Ends the transfer; blocked and later calls of waitForResponse/read give
    // UrlError::cancelled.
    virtual void cancel() = 0;
    // Blocks until the response head arrived (any HTTP status: 4xx/5xx are responses, as for
    // data tasks) or the transfer failed before it (transport errors as Error values with the
    // same UrlError codes as data tasks, see UrlError.h).
    virtual std::variant<HttpUrlResponse, Error> waitForResponse() = 0;
    // Blocks until the next piece of the body is there and returns it (pieces as they arrived,
    // moved out, not copied); an empty Data at the end of the body; an Error when the transfer
    // failed mid-body (for example UrlError::networkConnectionLost when the peer closed early,
    // timedOut when no byte moved for the request's time-out).
    virtual std::variant<Data, Error> read() = 0;
    virtual const UrlRequest& originalRequest() const = 0;
    // Body bytes received so far (for transfer statistics).
    virtual std::size_t bytesReceived() const = 0;
};

}  // namespace zarvo
