#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zarvo/platform/Data.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Url.h"

namespace zarvo {

// An HTTP request. Header names keep the case they were given; setValue replaces a header
// of the same name (compared case-insensitively), addValue appends another line.
class ZARVO_EXPORT UrlRequest {
public:
    enum class CachePolicy {
        useProtocolCachePolicy,
        reloadIgnoringLocalCacheData,
        returnCacheDataElseLoad,
        reloadIgnoringLocalAndRemoteCacheData,
    };

    explicit UrlRequest(Url url, CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy,
                        double timeoutInterval = 60.0)
        : url(std::move(url)), cachePolicy(cachePolicy), timeoutInterval(timeoutInterval) {}

    Url url;
    std::string httpMethod = "GET";  // GET, HEAD or POST
    std::optional<Data> httpBody;
    CachePolicy cachePolicy;
    double timeoutInterval;  // seconds without progress before the request fails as timed out
    // A body longer than this fails the request with UrlError::dataLengthExceedsMaximum (as soon
    // as it is announced or received); none: any length.
    std::optional<std::size_t> maximumBodyLength;

    void setValue(const std::string& value, const std::string& headerField);
    void addValue(const std::string& value, const std::string& headerField);
    std::optional<std::string> value(const std::string& headerField) const;
    const std::vector<std::pair<std::string, std::string>>& allHttpHeaderFields() const {
        return headers_;
    }

private:
    std::vector<std::pair<std::string, std::string>> headers_;
};

}  // namespace zarvo
