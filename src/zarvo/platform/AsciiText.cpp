#include "zarvo/platform/AsciiText.h"

#include <algorithm>
#include <charconv>

#include <glib.h>

namespace zarvo::ascii {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view whitespace = " \t\n\v\f\r";
    const auto first = text.find_first_not_of(whitespace);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(whitespace) - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return g_ascii_tolower(x) == g_ascii_tolower(y); });
}

void appendDecimal(std::string& out, std::int64_t number) {
    char buffer[24];
    const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, number);
    (void)status;  // 24 characters hold every 64-bit number
    out.append(buffer, end);
}

}  // namespace zarvo::ascii
