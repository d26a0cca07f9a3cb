#include "zarvo/platform/Url.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "zarvo/platform/UrlParts.h"

namespace zarvo {

namespace {

// A Url's text always parses (every constructor checks or builds it), so this never gives
// empty parts for a real Url.
UrlParts partsOf(const std::string& text) {
    auto parts = UrlParts::parse(text);
    return parts ? std::move(*parts) : UrlParts{};
}

std::optional<UrlAuthority> authorityOf(const UrlParts& parts) {
    if (!parts.authority) {
        return std::nullopt;
    }
    return UrlAuthority::parse(*parts.authority);
}

bool isPathOrSlash(unsigned char c) {
    return url::isPathChar(c) || c == '/';
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    if (text.empty() || !UrlParts::parse(text)) {
        return std::nullopt;
    }
    return Url(std::string(text));
}

std::optional<Url> Url::parse(std::string_view text, const Url& base) {
    // An empty reference is the base itself (without its fragment).
    auto reference = UrlParts::parse(text);
    if (!reference) {
        return std::nullopt;
    }
    return Url(reference->resolvedAgainst(partsOf(base.text_)).compose());
}

Url Url::fileUrl(std::string_view path, bool isDirectory) {
    std::string absolute(path);
    if (!absolute.starts_with('/')) {
        std::error_code error;
        std::string cwd = std::filesystem::current_path(error).string();
        if (error || cwd.empty()) {
            cwd = "/";
        }
        if (!cwd.ends_with('/')) {
            cwd += '/';
        }
        absolute = cwd + absolute;
    }
    if (isDirectory && !absolute.ends_with('/')) {
        absolute += '/';
    }
    return Url("file://" + url::percentEncode(absolute, isPathOrSlash));
}

bool Url::isAbsolute() const {
    return partsOf(text_).scheme.has_value();
}

bool Url::isFileUrl() const {
    return scheme() == "file";
}

bool Url::isHttp() const {
    const std::string name = scheme();
    return name == "http" || name == "https";
}

std::string Url::scheme() const {
    std::string scheme = partsOf(text_).scheme.value_or("");
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return scheme;
}

std::optional<std::string> Url::host() const {
    auto authority = authorityOf(partsOf(text_));
    if (!authority || authority->host.empty()) {
        return std::nullopt;
    }
    std::string_view host = authority->host;
    if (host.starts_with('[')) {
        host = host.substr(1, host.size() - 2);
    }
    return url::percentDecode(host);
}

std::optional<int> Url::port() const {
    auto authority = authorityOf(partsOf(text_));
    if (!authority || !authority->port || authority->port->empty()) {
        return std::nullopt;
    }
    return std::stoi(*authority->port);
}

std::optional<std::string> Url::user() const {
    auto authority = authorityOf(partsOf(text_));
    if (!authority || !authority->userInfo) {
        return std::nullopt;
    }
    const std::string& info = *authority->userInfo;
    return url::percentDecode(std::string_view(info).substr(0, info.find(':')));
}

std::optional<std::string> Url::password() const {
    auto authority = authorityOf(partsOf(text_));
    if (!authority || !authority->userInfo) {
        return std::nullopt;
    }
    const std::string& info = *authority->userInfo;
    auto colon = info.find(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    return url::percentDecode(std::string_view(info).substr(colon + 1));
}

std::string Url::path() const {
    return partsOf(text_).path;
}

std::string Url::decodedPath() const {
    std::string decoded = url::percentDecode(partsOf(text_).path);
    // A directory's path reads without its trailing "/", as filesystem paths do.
    if (decoded.size() > 1 && decoded.ends_with('/')) {
        decoded.pop_back();
    }
    return decoded;
}

std::optional<std::string> Url::query() const {
    return partsOf(text_).query;
}

std::optional<std::string> Url::fragment() const {
    return partsOf(text_).fragment;
}

std::vector<std::string> Url::pathComponents() const {
    const std::string path = partsOf(text_).path;
    std::vector<std::string> components;
    if (path.starts_with('/')) {
        components.emplace_back("/");
    }
    std::size_t start = 0;
    while (start < path.size()) {
        auto end = path.find('/', start);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        if (end > start) {
            components.push_back(url::percentDecode(path.substr(start, end - start)));
        }
        start = end + 1;
    }
    return components;
}

std::string Url::lastPathComponent() const {
    auto components = pathComponents();
    return components.empty() ? std::string() : components.back();
}

std::string Url::pathExtension() const {
    std::string last = lastPathComponent();
    auto dot = last.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == last.size()) {
        return {};
    }
    return last.substr(dot + 1);
}

Url Url::deletingLastPathComponent() const {
    UrlParts parts = partsOf(text_);
    std::string path = parts.path;
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.ends_with('/')) {
        trimmed.pop_back();
    }
    auto slash = trimmed.rfind('/');
    std::string_view lastSegment = slash == std::string::npos
                                       ? std::string_view(trimmed)
                                       : std::string_view(trimmed).substr(slash + 1);
    if (trimmed.empty()) {
        path = parts.authority ? "/" : "../";
    } else if (trimmed == "/") {
        path = "/";
    } else if (lastSegment == "..") {
        // Removing ".." means going one level further up.
        path = trimmed + "/../";
    } else if (slash == std::string::npos) {
        path = "./";
    } else {
        path = trimmed.substr(0, slash + 1);
    }
    parts.path = std::move(path);
    return Url(parts.compose());
}

Url Url::appendingPathComponent(std::string_view component, bool isDirectory) const {
    UrlParts parts = partsOf(text_);
    std::string encoded = url::percentEncode(component, isPathOrSlash);
    if (encoded.empty() && !isDirectory) {
        return *this;
    }
    std::string& path = parts.path;
    if ((!path.empty() || parts.authority) && !path.ends_with('/')) {
        path += '/';
    }
    // Never produce "//" inside the path, nor an authority from a bare relative path.
    std::size_t leadingSlashes = encoded.find_first_not_of('/');
    if (leadingSlashes == std::string::npos) {
        leadingSlashes = encoded.size();
    }
    if (path.ends_with('/')) {
        encoded.erase(0, leadingSlashes);
    } else if (leadingSlashes > 1) {
        encoded.erase(0, leadingSlashes - 1);
    }
    // In a relative reference a ":" in the first segment would read as a scheme.
    if (path.empty() && !parts.scheme && !parts.authority) {
        auto firstSlash = encoded.find('/');
        std::string first = encoded.substr(0, firstSlash);
        std::string escaped;
        for (char c : first) {
            escaped += c == ':' ? std::string("%3A") : std::string(1, c);
        }
        encoded = escaped + (firstSlash == std::string::npos ? "" : encoded.substr(firstSlash));
    }
    path += encoded;
    if (isDirectory && !path.ends_with('/')) {
        path += '/';
    }
    return Url(parts.compose());
}

Url Url::resolvedAgainst(const Url& base) const {
    return Url(partsOf(text_).resolvedAgainst(partsOf(base.text_)).compose());
}

}  // namespace zarvo
