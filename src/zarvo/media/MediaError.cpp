#include "zarvo/media/MediaError.h"

namespace zarvo {

Error makeMediaError(MediaError code, const std::string& description, std::optional<Error> inner,
                     Error::UserInfo userInfo) {
    userInfo[Error::localizedDescriptionKey] = description;
    return Error(mediaErrorDomain, static_cast<long>(code), std::move(userInfo), std::move(inner));
}

bool isMediaError(const Error& error, MediaError code) {
    return error.domain() == mediaErrorDomain && error.code() == static_cast<long>(code);
}

}  // namespace zarvo
