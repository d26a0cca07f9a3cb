#include "zarvo/hls/Utf8Text.h"

#include <algorithm>
#include <array>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zarvo::utf8 {
namespace {

// First code point of each block of ten Unicode decimal digits beyond ASCII (Unicode 14);
// the last entry starts the run of fifty mathematical digits, checked on its own.
constexpr std::array<char32_t, 61> kDigitBlocks = {
    0x660,   0x6F0,   0x7C0,   0x966,   0x9E6,   0xA66,   0xAE6,   0xB66,   0xBE6,
    0xC66,   0xCE6,   0xD66,   0xDE6,   0xE50,   0xED0,   0xF20,   0x1040,  0x1090,
    0x17E0,  0x1810,  0x1946,  0x19D0,  0x1A80,  0x1A90,  0x1B50,  0x1BB0,  0x1C40,
    0x1C50,  0xA620,  0xA8D0,  0xA900,  0xA9D0,  0xA9F0,  0xAA50,  0xABF0,  0xFF10,
    0x104A0, 0x10D30, 0x11066, 0x110F0, 0x11136, 0x111D0, 0x112F0, 0x11450, 0x114D0,
    0x11650, 0x116C0, 0x11730, 0x118E0, 0x11950, 0x11C50, 0x11D50, 0x11DA0, 0x16A60,
    0x16AC0, 0x16B50, 0x1E140, 0x1E2F0, 0x1E950, 0x1FBF0, 0x1D7CE};

}  // namespace

CodePoint decodeAt(std::string_view text, std::size_t position) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data()) + position;
    unsigned char b0 = p[0];
    if (b0 < 0x80) {
        return {b0, 1};
    }
    if (b0 < 0xE0) {
        return {static_cast<char32_t>(((b0 & 0x1F) << 6) | (p[1] & 0x3F)), 2};
    }
    if (b0 < 0xF0) {
        return {static_cast<char32_t>(((b0 & 0x0F) << 12) | ((p[1] & 0x3F) << 6) | (p[2] & 0x3F)),
                3};
    }
    return {static_cast<char32_t>(((b0 & 0x07) << 18) | ((p[1] & 0x3F) << 12) |
                                  ((p[2] & 0x3F) << 6) | (p[3] & 0x3F)),
            4};
}

bool isDecimalDigit(char32_t c) {
    if (c < 0x80) {
        return c >= '0' && c <= '9';
    }
    if (c >= 0x1D7CE && c <= 0x1D7FF) {
        return true;  // mathematical digits: five runs of ten
    }
    auto it = std::upper_bound(kDigitBlocks.begin(), kDigitBlocks.end() - 1, c);
    if (it == kDigitBlocks.begin()) {
        return false;
    }
    return c - *(it - 1) < 10;
}

bool isWhitespaceOrNewline(char32_t c) {
    if (c <= 0x20) {
        return c == 0x20 || (c >= 0x09 && c <= 0x0D);
    }
    switch (c) {
        case 0x85:
        case 0xA0:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return c >= 0x2000 && c <= 0x200A;
    }
}

Newline findNewline(std::string_view text, std::size_t from) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t n = text.size();
    auto check = [&](std::size_t i) -> std::size_t {
        unsigned char b = p[i];
        if (b >= 0x0A && b <= 0x0D) {
            return 1;
        }
        if (b == 0xC2 && i + 1 < n && p[i + 1] == 0x85) {
            return 2;
        }
        if (b == 0xE2 && i + 2 < n && p[i + 1] == 0x80 && (p[i + 2] == 0xA8 || p[i + 2] == 0xA9)) {
            return 3;
        }
        return 0;
    };
    std::size_t i = from;
#if defined(__SSE2__)
    const __m128i low = _mm_set1_epi8(0x0A);
    const __m128i three = _mm_set1_epi8(3);
    const __m128i c2 = _mm_set1_epi8(static_cast<char>(0xC2));
    const __m128i e2 = _mm_set1_epi8(static_cast<char>(0xE2));
    while (i + 16 <= n) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
        __m128i shifted = _mm_sub_epi8(v, low);
        __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(shifted, three), shifted);
        __m128i lead = _mm_or_si128(_mm_cmpeq_epi8(v, c2), _mm_cmpeq_epi8(v, e2));
        unsigned bits = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, lead)));
        while (bits != 0) {
            std::size_t at = i + static_cast<std::size_t>(__builtin_ctz(bits));
            if (std::size_t length = check(at)) {
                return {at, length};
            }
            bits &= bits - 1;
        }
        i += 16;
    }
#endif
    for (; i < n; ++i) {
        if (std::size_t length = check(i)) {
            return {i, length};
        }
    }
    return {std::string_view::npos, 0};
}

std::string_view trimmedWhitespace(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        CodePoint c = decodeAt(text, begin);
        if (!isWhitespaceOrNewline(c.value)) {
            break;
        }
        begin += c.length;
    }
    std::size_t end = text.size();
    while (end > begin) {
        std::size_t start = end - 1;
        while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
            --start;
        }
        if (!isWhitespaceOrNewline(decodeAt(text, start).value)) {
            break;
        }
        end = start;
    }
    return text.substr(begin, end - begin);
}

}  // namespace zarvo::utf8
