#include "zarvo/platform/Base64.h"

#include <algorithm>

#include "zarvo/platform/GlibMemory.h"

namespace zarvo {

namespace {

bool isAlphabet(char c) {
    return g_ascii_isalnum(c) || c == '+' || c == '/';
}

// GLib's decoder skips whatever is not in the alphabet, so the shape is checked first: whole
// groups of four, padding only at the very end.
bool isWellFormed(std::string_view text) {
    if (text.size() % 4 != 0) {
        return false;
    }
    std::string_view digits = text;
    for (int i = 0; i < 2 && digits.ends_with('='); ++i) {
        digits.remove_suffix(1);
    }
    return std::all_of(digits.begin(), digits.end(), isAlphabet);
}

}  // namespace

std::string Base64::encode(std::string_view bytes) {
    GCharPtr text(g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
    return text.get();
}

std::optional<Data> Base64::decode(std::string_view text) {
    if (!isWellFormed(text)) {
        return std::nullopt;
    }
    gsize length = 0;
    std::unique_ptr<guchar, GFreeDeleter> bytes(
        g_base64_decode(std::string(text).c_str(), &length));
    return length == 0 ? Data() : Data(reinterpret_cast<const char*>(bytes.get()), length);
}

std::string Base64::encodeUrlSafe(std::string_view bytes) {
    std::string text = encode(bytes);
    text.erase(text.find_last_not_of('=') + 1);
    for (char& c : text) {
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    }
    return text;
}

std::optional<Data> Base64::decodeUrlSafe(std::string_view text) {
    std::string standard(text);
    for (char& c : standard) {
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    }
    standard.append((4 - standard.size() % 4) % 4, '=');
    return decode(standard);
}

}  // namespace zarvo
