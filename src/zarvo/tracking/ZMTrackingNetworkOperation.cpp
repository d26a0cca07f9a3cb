#include "zarvo/tracking/ZMTrackingNetworkOperation.h"

#include <exception>
#include <string_view>
#include <utility>

namespace zarvo {
namespace {

constexpr const char* trackingErrorDomain = "ZMTrackingSessionErrorDomain";

bool isValidUtf8(std::string_view text) {
    std::size_t index = 0;
    while (index < text.size()) {
        auto byte = static_cast<unsigned char>(text[index]);
        std::size_t length = byte < 0x80           ? 1
                             : (byte >> 5) == 0x6  ? 2
                             : (byte >> 4) == 0xE  ? 3
                             : (byte >> 3) == 0x1E ? 4
                                                   : 0;
        if (length == 0 || index + length > text.size()) {
            return false;
        }
        std::uint32_t codePoint = length == 1 ? byte : byte & (0x7F >> length);
        for (std::size_t next = 1; next < length; ++next) {
            auto continuation = static_cast<unsigned char>(text[index + next]);
            if ((continuation & 0xC0) != 0x80) {
                return false;
            }
            codePoint = (codePoint << 6) | (continuation & 0x3F);
        }
        static constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (codePoint < smallest[length] || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            return false;
        }
        index += length;
    }
    return true;
}

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
            std::string text = body && isValidUtf8(*body) ? std::move(*body) : std::string();
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
