#include "zarvo/platform/UrlParts.h"

#include <cstring>

namespace zarvo {
namespace url {

namespace {

bool isAlpha(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}
bool isHexDigit(unsigned char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
int hexValue(unsigned char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    return (c | 0x20) - 'a' + 10;
}

}  // namespace

bool isUnreserved(unsigned char c) {
    return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

bool isSubDelim(unsigned char c) {
    return c != 0 && std::strchr("!$&'()*+,;=", c) != nullptr;
}

bool isPathChar(unsigned char c) {
    return isUnreserved(c) || isSubDelim(c) || c == ':' || c == '@';
}

bool isValidScheme(std::string_view text) {
    if (text.empty() || !isAlpha(static_cast<unsigned char>(text.front()))) {
        return false;
    }
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') {
            return false;
        }
    }
    return true;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c == '%' && i + 2 < text.size() &&
            isHexDigit(static_cast<unsigned char>(text[i + 1])) &&
            isHexDigit(static_cast<unsigned char>(text[i + 2]))) {
            out.push_back(static_cast<char>(hexValue(static_cast<unsigned char>(text[i + 1])) * 16 +
                                            hexValue(static_cast<unsigned char>(text[i + 2]))));
            i += 2;
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

std::string removeDotSegments(std::string_view path) {
    std::string input(path);
    std::string output;
    std::size_t pos = 0;  // start of the unread input
    auto rest = [&] {
        return std::string_view(input).substr(pos);
    };
    auto dropLastOutputSegment = [&] {
        auto slash = output.rfind('/');
        output.erase(slash == std::string::npos ? 0 : slash);
    };
    while (pos < input.size()) {
        std::string_view in = rest();
        if (in.starts_with("../")) {
            pos += 3;
        } else if (in.starts_with("./")) {
            pos += 2;
        } else if (in.starts_with("/./")) {
            pos += 2;  // leaves "/" at the front of the input
        } else if (in == "/.") {
            input.replace(pos, 2, "/");
        } else if (in.starts_with("/../")) {
            pos += 3;
            dropLastOutputSegment();
        } else if (in == "/..") {
            input.replace(pos, 3, "/");
            dropLastOutputSegment();
        } else if (in == "." || in == "..") {
            pos = input.size();
        } else {
            // Move the first segment (with its leading "/", if any) to the output.
            std::size_t end = input.find('/', in.front() == '/' ? pos + 1 : pos);
            if (end == std::string::npos) {
                end = input.size();
            }
            output.append(input, pos, end - pos);
            pos = end;
        }
    }
    return output;
}

}  // namespace url

namespace {

using url::isPathChar;
using url::isSubDelim;
using url::isUnreserved;

bool isGenDelim(unsigned char c) {
    return c != 0 && std::strchr(":/?#[]@", c) != nullptr;
}

bool isHex(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Every byte is a URI character and every "%" starts a two-digit escape.
bool hasOnlyUriCharacters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        if (c == '%') {
            if (i + 2 >= text.size()) {
                return false;
            }
            if (!isHex(static_cast<unsigned char>(text[i + 1])) ||
                !isHex(static_cast<unsigned char>(text[i + 2]))) {
                return false;
            }
            i += 2;
        } else if (!isUnreserved(c) && !isSubDelim(c) && !isGenDelim(c)) {
            return false;
        }
    }
    return true;
}

// Escapes are already checked, so "%" counts as allowed here.
template <typename Allowed>
bool allOf(std::string_view text, Allowed allowed) {
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (c != '%' && !allowed(c)) {
            return false;
        }
    }
    return true;
}

bool isQueryChar(unsigned char c) {
    return isPathChar(c) || c == '/' || c == '?';
}

bool isValidIpLiteral(std::string_view inner) {
    if (inner.empty()) {
        return false;
    }
    if (inner.front() == 'v' || inner.front() == 'V') {
        auto dot = inner.find('.');
        if (dot == std::string_view::npos || dot < 2 || dot + 1 == inner.size()) {
            return false;
        }
        for (char c : inner.substr(1, dot - 1)) {
            if (!isHex(static_cast<unsigned char>(c))) {
                return false;
            }
        }
        for (char ch : inner.substr(dot + 1)) {
            auto c = static_cast<unsigned char>(ch);
            if (!isUnreserved(c) && !isSubDelim(c) && c != ':') {
                return false;
            }
        }
        return true;
    }
    if (inner.find(':') == std::string_view::npos) {
        return false;
    }
    for (char ch : inner) {
        auto c = static_cast<unsigned char>(ch);
        if (!isHex(c) && c != ':' && c != '.') {
            return false;
        }
    }
    return true;
}

bool isValidPort(std::string_view port) {
    if (port.size() > 5) {
        return false;
    }
    long value = 0;
    for (char c : port) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    return value <= 65535;
}

}  // namespace

std::optional<UrlAuthority> UrlAuthority::parse(std::string_view authority) {
    UrlAuthority result;
    if (auto at = authority.find('@'); at != std::string_view::npos) {
        std::string_view userInfo = authority.substr(0, at);
        if (!allOf(userInfo,
                   [](unsigned char c) { return isUnreserved(c) || isSubDelim(c) || c == ':'; })) {
            return std::nullopt;
        }
        result.userInfo = std::string(userInfo);
        authority.remove_prefix(at + 1);
    }
    std::string_view hostPort = authority;
    std::string_view host;
    std::optional<std::string_view> port;
    if (hostPort.starts_with('[')) {
        auto close = hostPort.find(']');
        if (close == std::string_view::npos || !isValidIpLiteral(hostPort.substr(1, close - 1))) {
            return std::nullopt;
        }
        host = hostPort.substr(0, close + 1);
        std::string_view after = hostPort.substr(close + 1);
        if (!after.empty()) {
            if (after.front() != ':') {
                return std::nullopt;
            }
            port = after.substr(1);
        }
    } else {
        auto colon = hostPort.find(':');
        host = hostPort.substr(0, colon);
        if (colon != std::string_view::npos) {
            port = hostPort.substr(colon + 1);
        }
        if (!allOf(host, [](unsigned char c) { return isUnreserved(c) || isSubDelim(c); })) {
            return std::nullopt;
        }
    }
    if (port && !isValidPort(*port)) {
        return std::nullopt;
    }
    result.host = std::string(host);
    if (port) {
        result.port = std::string(*port);
    }
    return result;
}

std::optional<UrlParts> UrlParts::parse(std::string_view text) {
    if (!hasOnlyUriCharacters(text)) {
        return std::nullopt;
    }
    UrlParts parts;
    std::string_view rest = text;

    // A ":" before any "/", "?" or "#" ends a scheme; a relative path cannot hold one there.
    auto firstDelimiter = rest.find_first_of(":/?#");
    if (firstDelimiter != std::string_view::npos && rest[firstDelimiter] == ':') {
        std::string_view scheme = rest.substr(0, firstDelimiter);
        if (!url::isValidScheme(scheme)) {
            return std::nullopt;
        }
        parts.scheme = std::string(scheme);
        rest.remove_prefix(firstDelimiter + 1);
    }

    if (auto hash = rest.find('#'); hash != std::string_view::npos) {
        std::string_view fragment = rest.substr(hash + 1);
        if (!allOf(fragment, isQueryChar)) {
            return std::nullopt;
        }
        parts.fragment = std::string(fragment);
        rest = rest.substr(0, hash);
    }
    if (auto question = rest.find('?'); question != std::string_view::npos) {
        std::string_view query = rest.substr(question + 1);
        if (!allOf(query, isQueryChar)) {
            return std::nullopt;
        }
        parts.query = std::string(query);
        rest = rest.substr(0, question);
    }
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        auto slash = rest.find('/');
        std::string_view authority = rest.substr(0, slash);
        if (!UrlAuthority::parse(authority)) {
            return std::nullopt;
        }
        parts.authority = std::string(authority);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    if (!allOf(rest, [](unsigned char c) { return isPathChar(c) || c == '/'; })) {
        return std::nullopt;
    }
    parts.path = std::string(rest);
    return parts;
}

std::string UrlParts::compose() const {
    std::string out;
    if (scheme) {
        out += *scheme;
        out += ':';
    }
    if (authority) {
        out += "//";
        out += *authority;
    } else if (path.starts_with("//")) {
        out += "/.";  // keeps "//" from reading as an authority
    } else if (!scheme && path.substr(0, path.find('/')).find(':') != std::string::npos) {
        out += "./";  // keeps a ":" in the first segment from reading as a scheme
    }
    out += path;
    if (query) {
        out += '?';
        out += *query;
    }
    if (fragment) {
        out += '#';
        out += *fragment;
    }
    return out;
}

UrlParts UrlParts::resolvedAgainst(const UrlParts& base) const {
    UrlParts target;
    if (scheme) {
        target.scheme = scheme;
        target.authority = authority;
        target.path = url::removeDotSegments(path);
        target.query = query;
    } else {
        if (authority) {
            target.authority = authority;
            target.path = url::removeDotSegments(path);
            target.query = query;
        } else {
            if (path.empty()) {
                target.path = base.path;
                target.query = query ? query : base.query;
            } else {
                if (path.front() == '/') {
                    target.path = url::removeDotSegments(path);
                } else {
                    std::string merged;
                    if (base.authority && base.path.empty()) {
                        merged = "/" + path;
                    } else {
                        auto slash = base.path.rfind('/');
                        merged = slash == std::string::npos ? path
                                                            : base.path.substr(0, slash + 1) + path;
                    }
                    target.path = url::removeDotSegments(merged);
                }
                target.query = query;
            }
            target.authority = base.authority;
        }
        target.scheme = base.scheme;
    }
    target.fragment = fragment;
    return target;
}

}  // namespace zarvo
