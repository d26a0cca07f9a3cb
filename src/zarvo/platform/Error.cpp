#include "zarvo/platform/Error.h"

#include <utility>

namespace zarvo {

Error::Error(std::string domain, long code, UserInfo userInfo, std::optional<Error> innerError)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {
    if (innerError) {
        innerError_ = std::make_shared<const Error>(std::move(*innerError));
    }
}

Error Error::withDescription(std::string domain, long code, std::string description) {
    return Error(std::move(domain), code, {{localizedDescriptionKey, std::move(description)}});
}

std::optional<std::string> Error::userInfoValue(const std::string& key) const {
    auto found = userInfo_.find(key);
    if (found == userInfo_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::string Error::localizedDescription() const {
    if (auto text = userInfoValue(localizedDescriptionKey)) {
        return *text;
    }
    return "The operation couldn't be completed. (" + domain_ + " error " + std::to_string(code_) +
           ".)";
}

std::string Error::description() const {
    std::string text = "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
                       localizedDescription() + "\"";
    if (innerError_) {
        text += " InnerError={" + innerError_->description() + "}";
    }
    return text;
}

bool Error::operator==(const Error& other) const {
    if (domain_ != other.domain_ || code_ != other.code_ || userInfo_ != other.userInfo_) {
        return false;
    }
    if (!innerError_ || !other.innerError_) {
        return !innerError_ && !other.innerError_;
    }
    return *innerError_ == *other.innerError_;
}

}  // namespace zarvo
