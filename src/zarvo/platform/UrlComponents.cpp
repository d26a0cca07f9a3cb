#include "zarvo/platform/UrlComponents.h"

#include <cstring>

#include "zarvo/platform/UrlParts.h"

namespace zarvo {

namespace {

bool isQueryComponentChar(unsigned char c) {
    return url::isUnreserved(c) || (c != 0 && std::strchr("!$'()*,;:@/?", c) != nullptr);
}

bool isUserInfoChar(unsigned char c) {
    return url::isUnreserved(c) || url::isSubDelim(c);
}

bool isPasswordChar(unsigned char c) {
    return isUserInfoChar(c) || c == ':';
}

std::string encodeUser(const std::string& user) {
    return url::percentEncode(user, isUserInfoChar);
}

std::string encodePassword(const std::string& password) {
    return url::percentEncode(password, isPasswordChar);
}

std::string encodeHost(const std::string& host) {
    // An IPv6 address goes between brackets; anything else is a registered name.
    if (host.find(':') != std::string::npos) {
        return "[" + host + "]";
    }
    return url::percentEncode(host, isUserInfoChar);
}

}  // namespace

UrlComponents::UrlComponents(const Url& url) {
    if (auto parsed = parse(url.absoluteString())) {
        *this = std::move(*parsed);
    }
}

std::optional<UrlComponents> UrlComponents::parse(std::string_view text) {
    auto parts = UrlParts::parse(text);
    if (!parts) {
        return std::nullopt;
    }
    UrlComponents components;
    components.scheme = parts->scheme;
    if (parts->authority) {
        auto authority = UrlAuthority::parse(*parts->authority);
        if (!authority) {
            return std::nullopt;
        }
        if (authority->userInfo) {
            const std::string& info = *authority->userInfo;
            auto colon = info.find(':');
            std::string user = info.substr(0, colon);
            components.user = percentDecode(user);
            components.parsedUser_ = ParsedText{*components.user, user};
            if (colon != std::string::npos) {
                std::string password = info.substr(colon + 1);
                components.password = percentDecode(password);
                components.parsedPassword_ = ParsedText{*components.password, password};
            }
        }
        const std::string& host = authority->host;
        if (host.starts_with('[')) {
            components.host = host.substr(1, host.size() - 2);
        } else {
            components.host = percentDecode(host);
        }
        components.parsedHost_ = ParsedText{*components.host, host};
        if (authority->port && !authority->port->empty()) {
            components.port = std::stoi(*authority->port);
        }
    }
    components.path = parts->path;
    components.query_ = parts->query;
    components.fragment = parts->fragment;
    return components;
}

std::optional<std::vector<UrlQueryItem>> UrlComponents::queryItems() const {
    if (!query_) {
        return std::nullopt;
    }
    std::vector<UrlQueryItem> items;
    if (query_->empty()) {
        return items;
    }
    std::string_view query = *query_;
    std::size_t start = 0;
    while (true) {
        auto end = query.find('&', start);
        std::string_view piece =
            query.substr(start, end == std::string_view::npos ? end : end - start);
        auto equals = piece.find('=');
        UrlQueryItem item;
        item.name = percentDecode(piece.substr(0, equals));
        if (equals != std::string_view::npos) {
            item.value = percentDecode(piece.substr(equals + 1));
        }
        items.push_back(std::move(item));
        if (end == std::string_view::npos) {
            break;
        }
        start = end + 1;
    }
    return items;
}

void UrlComponents::setQueryItems(const std::optional<std::vector<UrlQueryItem>>& items) {
    if (!items) {
        query_.reset();
        return;
    }
    std::string query;
    for (const UrlQueryItem& item : *items) {
        if (&item != &items->front()) {
            query += '&';
        }
        query += encodeQueryComponent(item.name);
        if (item.value) {
            query += '=';
            query += encodeQueryComponent(*item.value);
        }
    }
    query_ = std::move(query);
}

std::optional<std::string> UrlComponents::string() const {
    const bool hasAuthority = host || user || password || port;
    if (scheme && !url::isValidScheme(*scheme)) {
        return std::nullopt;
    }
    if (hasAuthority && !path.empty() && !path.starts_with('/')) {
        return std::nullopt;
    }
    if (!hasAuthority && path.starts_with("//")) {
        return std::nullopt;
    }
    if (!scheme && !hasAuthority && path.substr(0, path.find('/')).find(':') != std::string::npos) {
        return std::nullopt;
    }
    if (port && (*port < 0 || *port > 65535)) {
        return std::nullopt;
    }
    UrlParts parts;
    parts.scheme = scheme;
    if (hasAuthority) {
        std::string authority;
        if (user || password) {
            authority += encodedOrOriginal(user.value_or(""), parsedUser_, encodeUser);
            if (password) {
                authority += ':';
                authority += encodedOrOriginal(*password, parsedPassword_, encodePassword);
            }
            authority += '@';
        }
        authority += encodedOrOriginal(host.value_or(""), parsedHost_, encodeHost);
        if (port) {
            authority += ':';
            authority += std::to_string(*port);
        }
        parts.authority = std::move(authority);
    }
    parts.path = path;
    parts.query = query_;
    parts.fragment = fragment;
    std::string text = parts.compose();
    // The path, query and fragment are taken as already encoded: reject them if they are not.
    if (!UrlParts::parse(text)) {
        return std::nullopt;
    }
    return text;
}

std::string UrlComponents::encodedOrOriginal(const std::string& value,
                                             const std::optional<ParsedText>& parsed,
                                             std::string (*encode)(const std::string&)) {
    if (parsed && parsed->decoded == value) {
        return parsed->encoded;
    }
    return encode(value);
}

std::optional<Url> UrlComponents::url() const {
    auto text = string();
    if (!text) {
        return std::nullopt;
    }
    return Url::parse(*text);
}

std::string UrlComponents::encodeQueryComponent(std::string_view text) {
    return url::percentEncode(text, isQueryComponentChar);
}

std::string UrlComponents::percentDecode(std::string_view text) {
    return url::percentDecode(text);
}

}  // namespace zarvo
