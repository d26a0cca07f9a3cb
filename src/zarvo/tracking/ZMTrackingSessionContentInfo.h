#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

// The content a tracking session reports on, and where the tracking service lives.
struct ZMTrackingSessionContentInfo {
    std::int64_t contentId = 0;
    std::int64_t customerId = 0;
    std::int64_t duration = 0;
    std::string endpointUrl;  // base address of the tracking service; never sent as an item
    std::int64_t productId = 0;
    std::optional<std::string> productTitle;
    std::string productType;
    std::string sessionId;  // the service's own session identifier
    std::optional<std::int64_t> subscriberId;
    std::optional<std::int64_t> subscriberProfileId;
    std::string url;  // address of the played stream

    ZMTrackingSessionContentInfo(std::int64_t contentId, std::int64_t customerId,
                                 std::int64_t duration, std::string endpointUrl,
                                 std::int64_t productId, std::string productType,
                                 std::string sessionId, std::optional<std::int64_t> subscriberId,
                                 std::string url);
    ZMTrackingSessionContentInfo(std::int64_t contentId, std::int64_t customerId,
                                 std::int64_t duration, std::string endpointUrl,
                                 std::int64_t productId, std::optional<std::string> productTitle,
                                 std::string productType, std::string sessionId,
                                 std::optional<std::int64_t> subscriberId,
                                 std::optional<std::int64_t> subscriberProfileId, std::string url);

    // The seven fixed items, then subscriberId, subscriberProfileId and productTitle when set.
    std::vector<UrlQueryItem> queryItems() const;

    bool operator==(const ZMTrackingSessionContentInfo&) const = default;
};

}  // namespace zarvo
