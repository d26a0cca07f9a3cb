#include "zarvo/tracking/ZMTrackingSessionContentInfo.h"

#include <utility>

namespace zarvo {
namespace {

std::optional<std::int64_t> optionalInteger(const Json& json, const char* key, bool& valid) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        return std::nullopt;
    }
    if (!found->is_number_integer()) {
        valid = false;
        return std::nullopt;
    }
    return found->get<std::int64_t>();
}

std::optional<std::string> optionalString(const Json& json, const char* key, bool& valid) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        return std::nullopt;
    }
    if (!found->is_string()) {
        valid = false;
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::int64_t requiredInteger(const Json& json, const char* key, bool& valid) {
    auto value = optionalInteger(json, key, valid);
    valid = valid && value.has_value();
    return value.value_or(0);
}

std::string requiredString(const Json& json, const char* key, bool& valid) {
    auto value = optionalString(json, key, valid);
    valid = valid && value.has_value();
    return value.value_or(std::string());
}

}  // namespace

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

Json ZMTrackingSessionContentInfo::toJson() const {
    Json json = Json::object();
    json["contentId"] = contentId;
    json["customerId"] = customerId;
    json["duration"] = duration;
    json["endpointUrl"] = endpointUrl;
    json["productId"] = productId;
    if (productTitle) {
        json["productTitle"] = *productTitle;
    }
    json["productType"] = productType;
    json["sessionId"] = sessionId;
    if (subscriberId) {
        json["subscriberId"] = *subscriberId;
    }
    if (subscriberProfileId) {
        json["subscriberProfileId"] = *subscriberProfileId;
    }
    json["url"] = url;
    return json;
}

std::optional<ZMTrackingSessionContentInfo> ZMTrackingSessionContentInfo::fromJson(
    const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    bool valid = true;
    ZMTrackingSessionContentInfo info(
        requiredInteger(json, "contentId", valid), requiredInteger(json, "customerId", valid),
        requiredInteger(json, "duration", valid), requiredString(json, "endpointUrl", valid),
        requiredInteger(json, "productId", valid), optionalString(json, "productTitle", valid),
        requiredString(json, "productType", valid), requiredString(json, "sessionId", valid),
        optionalInteger(json, "subscriberId", valid),
        optionalInteger(json, "subscriberProfileId", valid), requiredString(json, "url", valid));
    if (!valid) {
        return std::nullopt;
    }
    return info;
}

}  // namespace zarvo
