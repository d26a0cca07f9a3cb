#include "zarvo/platform/Utf8.h"

#include <cstdint>

namespace zarvo::utf8 {
namespace {

// Length of the well-formed sequence at `i`, or the length of its maximal ill-formed
// subpart as a negative number.
int sequenceLength(const unsigned char* p, std::size_t available) {
    unsigned char b0 = p[0];
    if (b0 < 0x80) {
        return 1;
    }
    int needed;
    unsigned char lo = 0x80, hi = 0xBF;
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        needed = 1;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        needed = 2;
        if (b0 == 0xE0) {
            lo = 0xA0;
        } else if (b0 == 0xED) {
            hi = 0x9F;
        }
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        needed = 3;
        if (b0 == 0xF0) {
            lo = 0x90;
        } else if (b0 == 0xF4) {
            hi = 0x8F;
        }
    } else {
        return -1;
    }
    for (int k = 1; k <= needed; ++k) {
        if (static_cast<std::size_t>(k) >= available) {
            return -k;
        }
        unsigned char b = p[k];
        if (k == 1 ? (b < lo || b > hi) : (b < 0x80 || b > 0xBF)) {
            return -k;
        }
    }
    return needed + 1;
}

bool isAsciiBlock(const unsigned char* p) {
    std::uint64_t word;
    __builtin_memcpy(&word, p, 8);
    return (word & 0x8080808080808080ULL) == 0;
}

// 32 bytes at once, for long ASCII runs.
bool isAsciiRun(const unsigned char* p) {
    std::uint64_t words[4];
    __builtin_memcpy(words, p, 32);
    return ((words[0] | words[1] | words[2] | words[3]) & 0x8080808080808080ULL) == 0;
}

}  // namespace

bool isValid(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t n = text.size(), i = 0;
    while (i < n) {
        if (i + 32 <= n && isAsciiRun(p + i)) {
            i += 32;
            continue;
        }
        if (i + 8 <= n && isAsciiBlock(p + i)) {
            i += 8;
            continue;
        }
        int length = sequenceLength(p + i, n - i);
        if (length < 0) {
            return false;
        }
        i += static_cast<std::size_t>(length);
    }
    return true;
}

std::string repaired(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::string out;
    out.reserve(text.size() + 8);
    std::size_t n = text.size(), i = 0;
    while (i < n) {
        int length = sequenceLength(p + i, n - i);
        if (length > 0) {
            out.append(text.substr(i, static_cast<std::size_t>(length)));
            i += static_cast<std::size_t>(length);
        } else {
            out.append("\xEF\xBF\xBD");
            i += static_cast<std::size_t>(-length);
        }
    }
    return out;
}

}  // namespace zarvo::utf8
