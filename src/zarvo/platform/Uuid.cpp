#include "zarvo/platform/Uuid.h"

#include <cstring>
#include <uuid/uuid.h>

namespace zarvo {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool isDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

Uuid::Uuid() {
    uuid_t value;
    uuid_generate_random(value);
    std::memcpy(bytes_.data(), value, bytes_.size());
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    // 8-4-4-4-12 hexadecimal digits.
    if (text.size() != 36) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 16> bytes{};
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isDashPosition(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        int high = hexValue(text[i]);
        int low = hexValue(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return Uuid(bytes);
}

bool Uuid::isValid(std::string_view text) {
    return parse(text).has_value();
}

std::string Uuid::uuidString() const {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(hex[bytes_[i] >> 4]);
        text.push_back(hex[bytes_[i] & 0x0F]);
    }
    return text;
}

}  // namespace zarvo
