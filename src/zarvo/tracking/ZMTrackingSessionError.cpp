#include "zarvo/tracking/ZMTrackingSessionError.h"

namespace zarvo {

bool ZMTrackingSessionError::isRetryable() const {
    return kind_ == Kind::connectionError ||
           (kind_ == Kind::serverError && statusCode_ >= 500 && statusCode_ <= 599);
}

std::string ZMTrackingSessionError::description() const {
    switch (kind_) {
        case Kind::wrongEndpointUrl:
            return "wrongEndpointUrl(\"" + text_ + "\")";
        case Kind::unableToCreateUrlWithQuery:
            return "unableToCreateUrlWithQuery(\"" + text_ + "\")";
        case Kind::connectionError:
            return "connectionError(" + (error_ ? error_->description() : std::string()) + ")";
        case Kind::serverError:
            return "serverError(" + std::to_string(statusCode_) + ", \"" + text_ + "\")";
        case Kind::otherError:
            return "otherError(" + (error_ ? error_->description() : std::string()) + ")";
    }
    return {};
}

}  // namespace zarvo
