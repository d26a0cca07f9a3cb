#include "zarvo/tracking/ZMTrackingNetworkOperation.h"

#include <exception>
#include <string_view>
#include <utility>

#include "zarvo/platform/Utf8.h"

namespace zarvo {
namespace {

constexpr const char* trackingErrorDomain = "ZMTrackingSessionErrorDomain";

}  // namespace

ZMTrackingNetworkOperation::ZMTrackingNetworkOperation(ZMTrackingUrlCreator urlCreator,
                                                       std::shared_ptr<UrlSession> urlSession)
    : urlCreator_(std::move(urlCreator)), urlSession_(std::move(urlSession)) {}

void ZMTrackingNetworkOperation::start(Completion completion) {
    std::optional<Url> url;
    try {
        auto built = urlCreator_.url();
        if (auto* failure = std::get_if<ZMTrackingSessionError>(&built)) {
            completion(*failure);
            return;
        }
        url = std::get<Url>(std::move(built));
    } catch (const std::exception& thrown) {
        completion(ZMTrackingSessionError::otherError(
            Error::withDescription(trackingErrorDomain, 1, thrown.what())));
        return;
    }

    auto task = urlSession_->dataTask(
        *url, [completion = std::move(completion)](std::optional<Data> body,
                                                   std::optional<HttpUrlResponse> response,
                                                   std::optional<Error> error) {
            if (error) {
                completion(ZMTrackingSessionError::connectionError(std::move(*error)));
                return;
            }
            int status = response ? response->statusCode : 0;
            if (response && status >= 200 && status <= 299) {
                completion(std::nullopt);
                return;
            }
            std::string text = body && utf8::isValid(*body) ? std::move(*body) : std::string();
            completion(ZMTrackingSessionError::serverError(status, std::move(text)));
        });
    {
        std::lock_guard lock(mutex_);
        dataTask_ = task;
    }
    task->resume();
}

void ZMTrackingNetworkOperation::cancel() {
    std::shared_ptr<UrlSessionDataTask> task = dataTask();
    if (task) {
        task->cancel();
    }
}

std::shared_ptr<UrlSessionDataTask> ZMTrackingNetworkOperation::dataTask() const {
    std::lock_guard lock(mutex_);
    return dataTask_;
}

}  // namespace zarvo
