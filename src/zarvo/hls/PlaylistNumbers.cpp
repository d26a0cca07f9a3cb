#include "zarvo/hls/PlaylistNumbers.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <string>

namespace zarvo::playlistnumbers {
namespace {

locale_t cLocale() {
    static locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

// Plain "digits[.digits]" with few significant digits: the quotient of two exactly
// representable floats is correctly rounded, as the full conversion would be.
std::optional<float> parseSimpleDecimal(std::string_view text) {
    std::size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::uint32_t mantissa = 0;
    int digits = 0;
    int fraction = 0;
    bool point = false;
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c >= '0' && c <= '9') {
            if (mantissa > (1u << 24) / 10) {
                return std::nullopt;
            }
            mantissa = mantissa * 10 + static_cast<std::uint32_t>(c - '0');
            ++digits;
            fraction += point ? 1 : 0;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return std::nullopt;
        }
    }
    if (digits == 0 || mantissa > (1u << 24) || fraction > 10) {
        return std::nullopt;
    }
    static constexpr float kPowers[] = {1e0f, 1e1f, 1e2f, 1e3f, 1e4f, 1e5f,
                                        1e6f, 1e7f, 1e8f, 1e9f, 1e10f};
    float value = static_cast<float>(mantissa) / kPowers[fraction];
    return negative ? -value : value;
}

}  // namespace

std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::size_t i = 0;
    bool negative = false;
    if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
        negative = text[0] == '-';
        i = 1;
    }
    if (i == text.size()) {
        return std::nullopt;
    }
    // Accumulate negatively so that the minimum value fits.
    std::int64_t value = 0;
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        int digit = c - '0';
        if (value < (kMin + digit) / 10) {
            return std::nullopt;
        }
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == kMin) {
            return std::nullopt;
        }
        value = -value;
    }
    return value;
}

std::optional<float> parseFloat(std::string_view text) {
    if (std::size_t nul = text.find('\0'); nul != std::string_view::npos) {
        text = text.substr(0, nul);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    switch (text[0]) {
        case ' ':
        case '\t':
        case '\n':
        case '\v':
        case '\f':
        case '\r':
            return std::nullopt;
        default:
            break;
    }
    if (auto simple = parseSimpleDecimal(text)) {
        return simple;
    }
    std::string copy(text);
    char* end = nullptr;
    errno = 0;
    float value = strtof_l(copy.c_str(), &end, cLocale());
    if (end != copy.c_str() + copy.size()) {
        return std::nullopt;
    }
    if (errno == ERANGE && (value == 0.0f || std::isinf(value))) {
        return std::nullopt;
    }
    return value;
}

}  // namespace zarvo::playlistnumbers
