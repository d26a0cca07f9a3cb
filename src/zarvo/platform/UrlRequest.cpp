#include "zarvo/platform/UrlRequest.h"

#include <algorithm>

#include "zarvo/platform/AsciiText.h"

namespace zarvo {

void UrlRequest::setValue(const std::string& value, const std::string& headerField) {
    auto sameName = [&](const auto& header) {
        return ascii::equalsIgnoringCase(header.first, headerField);
    };
    auto first = std::find_if(headers_.begin(), headers_.end(), sameName);
    if (first == headers_.end()) {
        headers_.emplace_back(headerField, value);
        return;
    }
    // The first line of that name takes the new value; any lines added after it go.
    first->second = value;
    headers_.erase(std::remove_if(std::next(first), headers_.end(), sameName), headers_.end());
}

void UrlRequest::addValue(const std::string& value, const std::string& headerField) {
    headers_.emplace_back(headerField, value);
}

std::optional<std::string> UrlRequest::value(const std::string& headerField) const {
    std::optional<std::string> joined;
    for (const auto& [name, value] : headers_) {
        if (!ascii::equalsIgnoringCase(name, headerField)) {
            continue;
        }
        // Repeated lines read as one comma-separated value, as HTTP allows.
        joined = joined ? *joined + "," + value : value;
    }
    return joined;
}

}  // namespace zarvo
