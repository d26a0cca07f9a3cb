#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zarvo {

// Language facts of the user's environment and of language identifiers.
struct Locale {
    // The language code of an identifier: "pl" for "pl", "en" for "en-US", "pl" for "pl_PL",
    // "pl" for "pl_PL.UTF-8"; nothing for an empty text.
    static std::optional<std::string> languageCode(std::string_view identifier);
    // The user's preferred languages from LANGUAGE, LC_ALL, LC_MESSAGES and LANG, in order
    // ("pl_PL.UTF-8" as "pl-PL"); "C" and "POSIX" are skipped.
    static std::vector<std::string> preferredLanguages();
};

}  // namespace zarvo
