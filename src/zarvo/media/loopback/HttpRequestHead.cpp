#include "zarvo/media/loopback/HttpRequestHead.h"

#include <algorithm>

namespace zarvo {

namespace {

// A line without its terminator, and what follows it; nothing when no terminator is left.
bool nextLine(std::string_view& rest, std::string_view& line) {
    const auto end = rest.find('\n');
    if (end == std::string_view::npos) {
        return false;
    }
    line = rest.substr(0, end);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    rest.remove_prefix(end + 1);
    return true;
}

bool isTokenChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

}  // namespace

std::string_view HttpRequestHead::path() const {
    const std::string_view all(target);
    return all.substr(0, all.find('?'));
}

std::size_t HttpRequestHead::length(std::string_view bytes) {
    // The empty line: "\n\n" or "\n\r\n" after the request line.
    for (std::size_t at = bytes.find('\n'); at != std::string_view::npos;
         at = bytes.find('\n', at + 1)) {
        if (at + 1 < bytes.size() && bytes[at + 1] == '\n') {
            return at + 2;
        }
        if (at + 2 < bytes.size() && bytes[at + 1] == '\r' && bytes[at + 2] == '\n') {
            return at + 3;
        }
    }
    return 0;
}

HttpRequestHead::Progress HttpRequestHead::progress(std::string_view bytes) {
    const std::size_t head = length(bytes.substr(0, std::min(bytes.size(), maxBytes)));
    if (head != 0) {
        return Progress::complete;
    }
    return bytes.size() >= maxBytes ? Progress::tooLarge : Progress::incomplete;
}

std::variant<HttpRequestHead, int> HttpRequestHead::parse(std::string_view bytes) {
    const std::size_t size = length(bytes.substr(0, std::min(bytes.size(), maxBytes)));
    if (size == 0) {
        if (bytes.size() < maxBytes) {
            return 400;
        }
        return bytes.substr(0, maxBytes).find('\n') == std::string_view::npos ? 414 : 431;
    }
    std::string_view rest = bytes.substr(0, size);
    std::string_view line;
    nextLine(rest, line);
    HttpRequestHead head;
    const auto firstSpace = line.find(' ');
    const auto lastSpace = line.rfind(' ');
    if (firstSpace == std::string_view::npos || firstSpace == 0 || lastSpace == firstSpace) {
        return 400;
    }
    const std::string_view method = line.substr(0, firstSpace);
    const std::string_view target = line.substr(firstSpace + 1, lastSpace - firstSpace - 1);
    const std::string_view version = line.substr(lastSpace + 1);
    if (!std::all_of(method.begin(), method.end(), isTokenChar) || target.empty() ||
        target.find(' ') != std::string_view::npos) {
        return 400;
    }
    if (version.size() != 8 || version.substr(0, 7) != "HTTP/1." || version[7] < '0' ||
        version[7] > '9') {
        return 505;
    }
    head.method = method;
    head.target = target;
    while (nextLine(rest, line) && !line.empty()) {
        const auto colon = line.find(':');
        const std::string_view name = line.substr(0, colon);
        if (colon == std::string_view::npos || name.empty() ||
            !std::all_of(name.begin(), name.end(), isTokenChar)) {
            return 400;
        }
        if (head.fields.size() == maxFields) {
            return 431;
        }
        head.fields.emplace_back(name, trimmed(line.substr(colon + 1)));
    }
    return head;
}

}  // namespace zarvo
