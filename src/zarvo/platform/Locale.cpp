#include "zarvo/platform/Locale.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace zarvo {

namespace {

// "pl_PL.UTF-8@euro" -> "pl-PL"; nothing for "C", "POSIX" or an empty text.
std::optional<std::string> languageTag(std::string_view locale) {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") {
        return std::nullopt;
    }
    std::string tag(locale);
    std::replace(tag.begin(), tag.end(), '_', '-');
    return tag;
}

void addUnique(std::vector<std::string>& list, std::string tag) {
    if (std::find(list.begin(), list.end(), tag) == list.end()) {
        list.push_back(std::move(tag));
    }
}

}  // namespace

std::optional<std::string> Locale::languageCode(std::string_view identifier) {
    auto end = identifier.find_first_of("-_.@");
    std::string_view code = identifier.substr(0, end);
    if (code.empty()) {
        return std::nullopt;
    }
    std::string lower(code);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::vector<std::string> Locale::preferredLanguages() {
    std::vector<std::string> languages;
    // LANGUAGE is a ":"-separated priority list; the others name one locale each.
    if (const char* list = std::getenv("LANGUAGE")) {
        std::string_view rest = list;
        while (!rest.empty()) {
            auto colon = rest.find(':');
            if (auto tag = languageTag(rest.substr(0, colon))) {
                addUnique(languages, std::move(*tag));
            }
            if (colon == std::string_view::npos) {
                break;
            }
            rest.remove_prefix(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const char* value = std::getenv(name)) {
            if (auto tag = languageTag(value)) {
                addUnique(languages, std::move(*tag));
            }
        }
    }
    return languages;
}

}  // namespace zarvo
