#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// An error value: a domain, an integer code and user info. The user info carries the
// localized description under `localizedDescriptionKey` and, optionally, the error that
// caused this one under `innerErrorKey`.
class ZARVO_EXPORT Error {
public:
    using UserInfo = std::map<std::string, std::string>;

    static constexpr const char* localizedDescriptionKey = "NSLocalizedDescription";
    static constexpr const char* innerErrorKey = "InnerError";

    Error(std::string domain, long code, UserInfo userInfo = {},
          std::optional<Error> innerError = std::nullopt);

    // An error with just a description.
    static Error withDescription(std::string domain, long code, std::string description);

    const std::string& domain() const { return domain_; }
    long code() const { return code_; }
    // String-valued user info; the inner error is held apart (see innerError()).
    const UserInfo& userInfo() const { return userInfo_; }
    std::optional<std::string> userInfoValue(const std::string& key) const;

    // The description under localizedDescriptionKey, or a generic text naming domain and code.
    std::string localizedDescription() const;
    // The error stored under "InnerError", if any.
    const Error* innerError() const { return innerError_.get(); }

    // "Error Domain=<domain> Code=<code> \"<description>\"" (and the inner error, if any).
    std::string description() const;

    bool operator==(const Error& other) const;

private:
    std::string domain_;
    long code_;
    UserInfo userInfo_;
    std::shared_ptr<const Error> innerError_;
};

}  // namespace zarvo
