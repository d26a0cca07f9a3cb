#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlRequest.h"

namespace zarvo {

// How a UrlSession makes its requests.
struct ZARVO_EXPORT UrlSessionConfiguration {
    static UrlSessionConfiguration defaultConfiguration() { return {}; }
    static UrlSessionConfiguration background(std::string identifier) {
        UrlSessionConfiguration configuration;
        configuration.identifier = std::move(identifier);
        return configuration;
    }

    std::optional<std::string> identifier;  // set for background configurations
    UrlRequest::CachePolicy requestCachePolicy = UrlRequest::CachePolicy::useProtocolCachePolicy;
    double timeoutIntervalForRequest = 60.0;  // seconds without progress
    double timeoutIntervalForResource = 7 * 24 * 3600.0;
    int httpMaximumConnectionsPerHost = 6;
    // false: no transfers while the network in use is metered (a mobile connection).
    bool allowsCellularAccess = true;
    // Added to every request that does not set the same header itself.
    std::vector<std::pair<std::string, std::string>> httpAdditionalHeaders;
};

}  // namespace zarvo
