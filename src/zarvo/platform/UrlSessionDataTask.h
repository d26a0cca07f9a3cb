#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Error.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/HttpUrlResponse.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

// One request of a UrlSession. Made suspended; resume() starts it. The completion runs
// exactly once, on the session's delegate queue: with the body and response when an HTTP
// response arrived (any status), or with an Error when the transfer failed (cancel() gives
// UrlError::cancelled).
class ZARVO_EXPORT UrlSessionDataTask {
public:
    enum class State { running, suspended, canceling, completed };
    using Completion = std::function<void(std::optional<Data>, std::optional<HttpUrlResponse>,
                                          std::optional<Error>)>;

    virtual ~UrlSessionDataTask() = default;

    virtual void resume() = 0;
    virtual void cancel() = 0;
    virtual State state() const = 0;
    virtual std::size_t taskIdentifier() const = 0;
    virtual const UrlRequest& originalRequest() const = 0;
    virtual std::optional<std::string> taskDescription() const = 0;
    virtual void setTaskDescription(std::optional<std::string> description) = 0;
};

}  // namespace zarvo
