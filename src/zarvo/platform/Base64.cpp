#include "zarvo/platform/Base64.h"

#include <array>

namespace zarvo {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int, 256> makeDecodeTable() {
    std::array<int, 256> table{};
    for (int& entry : table) {
        entry = -1;
    }
    for (int i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(alphabet[i])] = i;
    }
    return table;
}

constexpr std::array<int, 256> decodeTable = makeDecodeTable();

}  // namespace

std::string Base64::encode(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    auto at = [&](std::size_t index) {
        return static_cast<unsigned char>(bytes[index]);
    };
    for (; i + 3 <= bytes.size(); i += 3) {
        unsigned value = (at(i) << 16) | (at(i + 1) << 8) | at(i + 2);
        out.push_back(alphabet[(value >> 18) & 63]);
        out.push_back(alphabet[(value >> 12) & 63]);
        out.push_back(alphabet[(value >> 6) & 63]);
        out.push_back(alphabet[value & 63]);
    }
    std::size_t left = bytes.size() - i;
    if (left == 1) {
        unsigned value = at(i) << 16;
        out.push_back(alphabet[(value >> 18) & 63]);
        out.push_back(alphabet[(value >> 12) & 63]);
        out += "==";
    } else if (left == 2) {
        unsigned value = (at(i) << 16) | (at(i + 1) << 8);
        out.push_back(alphabet[(value >> 18) & 63]);
        out.push_back(alphabet[(value >> 12) & 63]);
        out.push_back(alphabet[(value >> 6) & 63]);
        out.push_back('=');
    }
    return out;
}

std::optional<Data> Base64::decode(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::size_t padding = 0;
    if (text.ends_with("==")) {
        padding = 2;
    } else if (text.ends_with('=')) {
        padding = 1;
    }
    Data out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        unsigned value = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            char c = text[i + j];
            int digit = 0;
            if (last && j >= 4 - padding) {
                digit = 0;  // the padding itself
            } else {
                digit = decodeTable[static_cast<unsigned char>(c)];
                if (digit < 0) {
                    return std::nullopt;
                }
            }
            value = (value << 6) | static_cast<unsigned>(digit);
        }
        out.push_back(static_cast<char>((value >> 16) & 0xFF));
        if (!last || padding < 2) {
            out.push_back(static_cast<char>((value >> 8) & 0xFF));
        }
        if (!last || padding < 1) {
            out.push_back(static_cast<char>(value & 0xFF));
        }
    }
    return out;
}

}  // namespace zarvo
