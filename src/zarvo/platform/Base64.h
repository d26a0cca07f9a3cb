#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zarvo/platform/Data.h"

namespace zarvo {

// Standard Base64 (RFC 4648 section 4, with padding), and the URL-safe alphabet of section 5
// ("-_" for "+/") without padding.
struct Base64 {
    static std::string encode(std::string_view bytes);
    // Nothing for text outside the alphabet or of a wrong length.
    static std::optional<Data> decode(std::string_view text);

    static std::string encodeUrlSafe(std::string_view bytes);
    // Adds the padding back; the standard "+/" are read too.
    static std::optional<Data> decodeUrlSafe(std::string_view text);
};

}  // namespace zarvo
