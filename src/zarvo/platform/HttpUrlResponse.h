#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// The response to an HTTP request: the final URL (after redirects), status and headers of
// the last response.
struct ZARVO_EXPORT HttpUrlResponse {
    Url url;
    int statusCode = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    // Content-Length of the body; -1 when unknown or when the body came content-encoded.
    long long expectedContentLength = -1;

    // The value of a header, compared case-insensitively (the last one when repeated).
    std::optional<std::string> value(const std::string& headerField) const;
    // The media type of Content-Type without parameters, lower-cased.
    std::optional<std::string> mimeType() const;
};

}  // namespace zarvo
