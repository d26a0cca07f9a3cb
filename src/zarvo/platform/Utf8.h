#pragma once

#include <string>
#include <string_view>

// GLib's validator refuses NUL, which is well-formed UTF-8, and its repair replaces each bad
// byte rather than each maximal ill-formed subpart; these keep both.
namespace zarvo::utf8 {

// True when `text` is well-formed UTF-8.
bool isValid(std::string_view text);

// `text` with every ill-formed sequence replaced by U+FFFD REPLACEMENT CHARACTER.
std::string repaired(std::string_view text);

}  // namespace zarvo::utf8
