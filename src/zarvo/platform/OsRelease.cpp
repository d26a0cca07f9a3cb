#include "zarvo/platform/OsRelease.h"

#include <cctype>
#include <fstream>
#include <sstream>

#include "zarvo/platform/AsciiText.h"

namespace zarvo {

namespace {

bool isValidKey(std::string_view key) {
    if (key.empty() || std::isdigit(static_cast<unsigned char>(key.front())) != 0) {
        return false;
    }
    for (char c : key) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_') {
            return false;
        }
    }
    return true;
}

// Shell-style value: double quotes allow \" \\ \$ \` escapes, single quotes are literal,
// unquoted text may escape any character. Nothing when a quote is left open.
std::optional<std::string> unquoted(std::string_view raw) {
    std::string value;
    char quote = 0;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (quote == '\'') {
            if (c == '\'') {
                quote = 0;
            } else {
                value += c;
            }
        } else if (c == '\\' && i + 1 < raw.size()) {
            const char next = raw[i + 1];
            if (quote == '"' && next != '"' && next != '\\' && next != '$' && next != '`') {
                value += c;
            } else {
                value += next;
                ++i;
            }
        } else if (quote == '"') {
            if (c == '"') {
                quote = 0;
            } else {
                value += c;
            }
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else {
            value += c;
        }
    }
    if (quote != 0) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

OsRelease OsRelease::parse(std::string_view text) {
    OsRelease release;
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = ascii::trimmed(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);

        if (line.empty() || line.front() == '#') {
            continue;
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        const std::string_view key = ascii::trimmed(line.substr(0, equals));
        if (!isValidKey(key)) {
            continue;
        }
        if (auto value = unquoted(ascii::trimmed(line.substr(equals + 1)))) {
            release.values_[std::string(key)] = std::move(*value);
        }
    }
    return release;
}

std::optional<OsRelease> OsRelease::read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    return parse(contents.str());
}

std::optional<OsRelease> OsRelease::system() {
    if (auto release = read("/etc/os-release")) {
        return release;
    }
    return read("/usr/lib/os-release");
}

std::optional<std::string> OsRelease::value(const std::string& key) const {
    auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    return found->second;
}

}  // namespace zarvo
