#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A locale named by its identifier ("pl", "en-US", "pl_PL"), and language facts of the
// user's environment and of language identifiers.
class ZARVO_EXPORT Locale {
public:
    Locale() = default;
    explicit Locale(std::string identifier) : identifier_(std::move(identifier)) {}

    const std::string& identifier() const { return identifier_; }
    // The locale's language code ("en" for "en-US"); nothing when the identifier has none.
    std::optional<std::string> lang() const { return languageCode(identifier_); }

    bool operator==(const Locale&) const = default;

    // The language code of an identifier: "pl" for "pl", "en" for "en-US", "pl" for "pl_PL",
    // "pl" for "pl_PL.UTF-8"; nothing for an empty text.
    static std::optional<std::string> languageCode(std::string_view identifier);
    // The user's preferred languages from LANGUAGE, LC_ALL, LC_MESSAGES and LANG, in order
    // ("pl_PL.UTF-8" as "pl-PL"); "C" and "POSIX" are skipped.
    static std::vector<std::string> preferredLanguages();

private:
    std::string identifier_;
};

}  // namespace zarvo
