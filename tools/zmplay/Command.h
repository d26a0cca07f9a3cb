#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Url.h"

namespace zarvo::zmplay {

// A zmplay sub-command. Each command's file registers itself with a static Command::Registration.
struct Command {
    using Run = std::function<int(const std::vector<std::string>& arguments)>;

    std::string name;
    std::string usage;  // one line after "zmplay ", for example "playlist <file|url> [--json]"
    std::string summary;
    Run run;

    struct Registration {
        explicit Registration(Command command);
    };

    static const std::vector<Command>& all();
};

// A stream's address as given on the command line: an absolute http or https URL with a host,
// or a file URL; nothing for anything else.
inline std::optional<Url> streamUrl(const std::string& text) {
    auto url = Url::parse(text);
    if (!url || url->isFileUrl()) {
        return url;
    }
    const auto host = url->host();
    if (!url->isHttp() || !host || host->empty()) {
        return std::nullopt;
    }
    return url;
}

// Adds a "NAME:VALUE" option value to `headers`; false when there is no value or no name.
inline bool addHeaderField(const std::optional<std::string>& text,
                           std::map<std::string, std::string>& headers) {
    const auto colon = text ? text->find(':') : std::string::npos;
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    headers[text->substr(0, colon)] = text->substr(colon + 1);
    return true;
}

}  // namespace zarvo::zmplay
