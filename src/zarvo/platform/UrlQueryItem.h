#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// One name/value pair of a URL query. A missing value renders as "name" alone.
struct ZARVO_EXPORT UrlQueryItem {
    std::string name;
    std::optional<std::string> value;

    bool operator==(const UrlQueryItem&) const = default;
};

}  // namespace zarvo
