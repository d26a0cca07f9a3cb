#include "zarvo/media/model/MediaError.h"

namespace zarvo {

Error makeMediaError(MediaError code, const std::string& description, std::optional<Error> inner,
                     Error::UserInfo userInfo) {
    userInfo[Error::localizedDescriptionKey] = description;
    return Error(mediaErrorDomain, static_cast<long>(code), std::move(userInfo), std::move(inner));
}

bool isMediaError(const Error& error, MediaError code) {
    return error.domain() == mediaErrorDomain && error.code() == static_cast<long>(code);
}

Error makeStatusError(const Url& url, int status) {
    return makeMediaError(MediaError::resourceUnavailable,
                          url.absoluteString() + " answered " + std::to_string(status) + ".",
                          std::nullopt, {{httpStatusCodeKey, std::to_string(status)}});
}

Error makeTransportError(const Url& url, const Error& error) {
    return makeMediaError(
        MediaError::networkFailure,
        url.absoluteString() + " could not be loaded: " + error.localizedDescription(), error);
}

}  // namespace zarvo
