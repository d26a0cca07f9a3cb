#pragma once

#include <optional>
#include <string>

#include "zarvo/platform/Export.h"

namespace zarvo {

// One attribute of a timed-metadata group, such as a client attribute "X-AD-EVENT" of an
// EXT-X-DATERANGE tag.
struct ZARVO_EXPORT MetadataItem {
    std::string identifier;  // "lsdr/" + key for date-range attributes
    std::string key;         // the attribute name
    std::optional<std::string> stringValue;

    bool operator==(const MetadataItem&) const = default;
};

}  // namespace zarvo
