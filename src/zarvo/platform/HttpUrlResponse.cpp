#include "zarvo/platform/HttpUrlResponse.h"

#include "zarvo/platform/AsciiText.h"

namespace zarvo {

std::optional<std::string> HttpUrlResponse::value(const std::string& headerField) const {
    std::optional<std::string> found;
    for (const auto& [name, value] : headers) {
        if (ascii::equalsIgnoringCase(name, headerField)) {
            found = value;
        }
    }
    return found;
}

std::optional<std::string> HttpUrlResponse::mimeType() const {
    auto contentType = value("Content-Type");
    if (!contentType) {
        return std::nullopt;
    }
    std::string type = contentType->substr(0, contentType->find(';'));
    auto isSpace = [](char c) {
        return c == ' ' || c == '\t';
    };
    while (!type.empty() && isSpace(type.back())) {
        type.pop_back();
    }
    std::size_t start = 0;
    while (start < type.size() && isSpace(type[start])) {
        ++start;
    }
    type.erase(0, start);
    if (type.empty()) {
        return std::nullopt;
    }
    for (char& c : type) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return type;
}

}  // namespace zarvo
