#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// An error value: a domain, an integer code and user info. The user info carries the
/// localized description under `localizedDescriptionKey`; the error that caused this one, if
/// any, is kept as the inner error (see innerError()). Errors are values: copies share the
/// inner error, which never changes.
class ZARVO_EXPORT Error {
public:
    /// String-valued user info by key.
    using UserInfo = std::map<std::string, std::string>;

    /// The user-info key of the localized description: "NSLocalizedDescription".
    static constexpr const char* localizedDescriptionKey = "NSLocalizedDescription";
    /// The name under which the cause of an error is known: "InnerError". The cause is not a
    /// user-info string; read it with innerError().
    static constexpr const char* innerErrorKey = "InnerError";

    /// An error of `domain` with `code`, `userInfo` and, optionally, the error that caused it.
    Error(std::string domain, long code, UserInfo userInfo = {},
          std::optional<Error> innerError = std::nullopt);

    /// An error with just a description (under `localizedDescriptionKey`).
    static Error withDescription(std::string domain, long code, std::string description);

    /// The domain, for example "ZMMediaErrorDomain".
    const std::string& domain() const { return domain_; }
    /// The code, which has its meaning within the domain.
    long code() const { return code_; }
    /// String-valued user info; the inner error is held apart (see innerError()).
    const UserInfo& userInfo() const { return userInfo_; }
    /// The user-info value under `key`; nothing when there is none.
    std::optional<std::string> userInfoValue(const std::string& key) const;

    /// The localized description. It is the text under localizedDescriptionKey, or without
    /// one a generic text: `The operation couldn't be completed. (<domain> error <code>.)`
    std::string localizedDescription() const;
    /// The error that caused this one (known as "InnerError"); nullptr when there is none.
    /// The pointer is valid as long as this error (or a copy of it) lives.
    const Error* innerError() const { return innerError_.get(); }

    /// `Error Domain=<domain> Code=<code> "<description>"`; with an inner error, followed by
    /// a space and `InnerError={<the inner error's description>}`.
    std::string description() const;

    /// Equal domain, code and user info, and equal inner errors (or none on both sides).
    bool operator==(const Error& other) const;

private:
    std::string domain_;
    long code_;
    UserInfo userInfo_;
    std::shared_ptr<const Error> innerError_;
};

}  // namespace zarvo
