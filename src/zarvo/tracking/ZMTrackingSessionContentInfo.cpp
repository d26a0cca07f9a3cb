#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"

#include <utility>

namespace zarvo {
ZMTrackingSessionContentInfo::ZMTrackingSessionContentInfo(
    std::int64_t contentId, std::int64_t customerId, std::int64_t duration, std::string endpointUrl,
    std::int64_t productId, std::string productType, std::string sessionId,
    std::optional<std::int64_t> subscriberId, std::string url)
    : ZMTrackingSessionContentInfo(contentId, customerId, duration, std::move(endpointUrl),
                                   productId, std::nullopt, std::move(productType),
                                   std::move(sessionId), subscriberId, std::nullopt,
                                   std::move(url)) {}

ZMTrackingSessionContentInfo::ZMTrackingSessionContentInfo(
    std::int64_t contentId, std::int64_t customerId, std::int64_t duration, std::string endpointUrl,
    std::int64_t productId, std::optional<std::string> productTitle, std::string productType,
    std::string sessionId, std::optional<std::int64_t> subscriberId,
    std::optional<std::int64_t> subscriberProfileId, std::string url)
    : contentId(contentId),
      customerId(customerId),
      duration(duration),
      endpointUrl(std::move(endpointUrl)),
      productId(productId),
      productTitle(std::move(productTitle)),
      productType(std::move(productType)),
      sessionId(std::move(sessionId)),
      subscriberId(subscriberId),
      subscriberProfileId(subscriberProfileId),
      url(std::move(url)) {}

std::vector<UrlQueryItem> ZMTrackingSessionContentInfo::queryItems() const {
    std::vector<UrlQueryItem> items = {
        {"contentId", std::to_string(contentId)},
        {"customerId", std::to_string(customerId)},
        {"duration", std::to_string(duration)},
        {"productId", std::to_string(productId)},
        {"productType", productType},
        {"sessionId", sessionId},
        {"url", url},
    };
    if (subscriberId) {
        items.push_back({"subscriberId", std::to_string(*subscriberId)});
    }
    if (subscriberProfileId) {
        items.push_back({"subscriberProfileId", std::to_string(*subscriberProfileId)});
    }
    if (productTitle) {
        items.push_back({"productTitle", *productTitle});
    }
    return items;
}

}  // namespace zarvo
