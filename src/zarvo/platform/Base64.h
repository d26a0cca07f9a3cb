#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zarvo/platform/Data.h"

namespace zarvo {

// Standard Base64 (RFC 4648 section 4, with padding). Callers that need the URL-safe
// alphabet translate "-_" to "+/" and add the padding themselves.
struct Base64 {
    static std::string encode(std::string_view bytes);
    // Nothing for text outside the alphabet or of a wrong length.
    static std::optional<Data> decode(std::string_view text);
};

}  // namespace zarvo
