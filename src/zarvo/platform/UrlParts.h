#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zarvo {

// The five parts of a URL reference (RFC 3986 section 3), each kept exactly as written.
// Shared by Url and UrlComponents; not part of the public API.
struct UrlParts {
    std::optional<std::string> scheme;     // without ":"
    std::optional<std::string> authority;  // without "//"
    std::string path;
    std::optional<std::string> query;     // without "?"
    std::optional<std::string> fragment;  // without "#"

    // Splits and validates `text`; nothing when it is not a URL reference.
    static std::optional<UrlParts> parse(std::string_view text);
    // The reference text again (RFC 3986 section 5.3).
    std::string compose() const;
    // This reference resolved against `base` (RFC 3986 section 5.2.2).
    UrlParts resolvedAgainst(const UrlParts& base) const;
};

// The pieces of an authority "user:password@host:port", as written.
struct UrlAuthority {
    std::optional<std::string> userInfo;
    std::string host;                 // an IP literal keeps its brackets
    std::optional<std::string> port;  // digits only; may be empty ("h:")

    static std::optional<UrlAuthority> parse(std::string_view authority);
};

namespace url {

// RFC 3986 section 5.2.4.
std::string removeDotSegments(std::string_view path);
// "%41" -> "A"; malformed escapes are kept as they are.
std::string percentDecode(std::string_view text);
// Percent-encodes every byte of `text` for which `keep` is false (upper-case hex).
template <typename Keep>
std::string percentEncode(std::string_view text, Keep keep) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (keep(byte)) {
            out.push_back(c);
        } else {
            out.push_back('%');
            out.push_back(hex[byte >> 4]);
            out.push_back(hex[byte & 0x0F]);
        }
    }
    return out;
}

bool isUnreserved(unsigned char c);
bool isSubDelim(unsigned char c);
// pchar (RFC 3986 section 3.3) less the percent sign.
bool isPathChar(unsigned char c);
// A scheme: a letter followed by letters, digits, "+", "-" or ".".
bool isValidScheme(std::string_view text);

}  // namespace url
}  // namespace zarvo
