#include "zarvo/tracking/TrackingSessionContentInfoJson.h"

#include <cstdint>
#include <string>

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

Json TrackingSessionContentInfoJson::toJson(const ZMTrackingSessionContentInfo& info) {
    Json json = Json::object();
    json["contentId"] = info.contentId;
    json["customerId"] = info.customerId;
    json["duration"] = info.duration;
    json["endpointUrl"] = info.endpointUrl;
    json["productId"] = info.productId;
    if (info.productTitle) {
        json["productTitle"] = *info.productTitle;
    }
    json["productType"] = info.productType;
    json["sessionId"] = info.sessionId;
    if (info.subscriberId) {
        json["subscriberId"] = *info.subscriberId;
    }
    if (info.subscriberProfileId) {
        json["subscriberProfileId"] = *info.subscriberProfileId;
    }
    json["url"] = info.url;
    return json;
}

std::optional<ZMTrackingSessionContentInfo> TrackingSessionContentInfoJson::fromJson(
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
