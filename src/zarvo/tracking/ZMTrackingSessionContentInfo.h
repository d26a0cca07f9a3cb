#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/UrlQueryItem.h"

namespace zarvo {

/// The content a tracking session reports on, and where the tracking service lives. Every
/// field but endpointUrl goes into the initialisation beacon as a query item of its name.
struct ZARVO_EXPORT ZMTrackingSessionContentInfo {
    /// The content's identifier ("contentId").
    std::int64_t contentId = 0;
    /// The customer's identifier ("customerId"; also in every events beacon).
    std::int64_t customerId = 0;
    /// The content's duration ("duration"), as the application gives it.
    std::int64_t duration = 0;
    std::string endpointUrl;  ///< base address of the tracking service; never sent as an item
    /// The product's identifier ("productId").
    std::int64_t productId = 0;
    /// The product's title ("productTitle", only when set).
    std::optional<std::string> productTitle;
    /// The product's type ("productType").
    std::string productType;
    std::string sessionId;  ///< the service's own session identifier
    /// The subscriber ("subscriberId", only when set).
    std::optional<std::int64_t> subscriberId;
    /// The subscriber's profile ("subscriberProfileId", only when set).
    std::optional<std::int64_t> subscriberProfileId;
    std::string url;  ///< address of the played stream

    /// Content without a product title or subscriber profile.
    ZMTrackingSessionContentInfo(std::int64_t contentId, std::int64_t customerId,
                                 std::int64_t duration, std::string endpointUrl,
                                 std::int64_t productId, std::string productType,
                                 std::string sessionId, std::optional<std::int64_t> subscriberId,
                                 std::string url);
    /// Content with every field.
    ZMTrackingSessionContentInfo(std::int64_t contentId, std::int64_t customerId,
                                 std::int64_t duration, std::string endpointUrl,
                                 std::int64_t productId, std::optional<std::string> productTitle,
                                 std::string productType, std::string sessionId,
                                 std::optional<std::int64_t> subscriberId,
                                 std::optional<std::int64_t> subscriberProfileId, std::string url);

    /// The seven fixed items (contentId, customerId, duration, productId, productType,
    /// sessionId, url), then subscriberId, subscriberProfileId and productTitle when set.
    std::vector<UrlQueryItem> queryItems() const;

    /// Equal in every field.
    bool operator==(const ZMTrackingSessionContentInfo&) const = default;
};

}  // namespace zarvo
