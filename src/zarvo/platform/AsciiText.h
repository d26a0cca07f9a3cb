#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zarvo::ascii {

// `text` without leading and trailing ASCII white space (space, tab, LF, VT, FF, CR).
std::string_view trimmed(std::string_view text);

// Equal texts when ASCII letters are compared without regard to case (HTTP header names,
// method names, boolean words).
bool equalsIgnoringCase(std::string_view a, std::string_view b);

// Appends the decimal digits of `number` (with its sign) to `out`.
void appendDecimal(std::string& out, std::int64_t number);

}  // namespace zarvo::ascii
