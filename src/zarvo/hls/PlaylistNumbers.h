#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zarvo::playlistnumbers {

// A decimal signed integer: an optional "+" or "-" and ASCII digits only, no spaces, within
// 64 bits; anything else gives nothing.
std::optional<std::int64_t> parseInteger(std::string_view text);

// A single-precision float as the C library reads it in the "C" locale (decimal or
// hexadecimal, "inf", "nan"), where the whole text must be used; leading white space, an
// empty text and values out of range give nothing. A NUL ends the text.
std::optional<float> parseFloat(std::string_view text);

}  // namespace zarvo::playlistnumbers
