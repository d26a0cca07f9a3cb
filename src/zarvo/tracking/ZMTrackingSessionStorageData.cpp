#include "zarvo/tracking/ZMTrackingSessionStorageData.h"

#include "zarvo/platform/Json.h"
#include "zarvo/tracking/InternalTrackingEventJson.h"
#include "zarvo/tracking/TrackingSessionContentInfoJson.h"
#include "zarvo/tracking/TrackingSessionDeviceInfoJson.h"

namespace zarvo {
namespace {

std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string ZMTrackingSessionStorageData::encode() const {
    // The events are written by hand: the file is rewritten on every added event, and
    // building a Json value per event would dominate that cost.
    std::string out;
    out.reserve(512 + events.size() * 64);
    out += "{\"storageFileVersion\":\"v1\",\"deviceInfo\":";
    out += dumped(TrackingSessionDeviceInfoJson::toJson(deviceInfo));
    out += ",\"contentInfo\":";
    out += dumped(TrackingSessionContentInfoJson::toJson(contentInfo));
    out += ",\"sessionState\":\"";
    out += storageStateText(sessionState);
    out += "\",\"events\":[";
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (index > 0) {
            out += ',';
        }
        InternalTrackingEventJson::appendJson(events[index], out);
    }
    out += "]}";
    return out;
}

std::optional<ZMTrackingSessionStorageData> ZMTrackingSessionStorageData::decode(
    std::string_view text) {
    auto json = json::parse(text);
    if (!json || !json->is_object()) {
        return std::nullopt;
    }
    if (json::string(*json, "storageFileVersion") != "v1") {
        return std::nullopt;
    }
    auto device = json->find("deviceInfo");
    auto content = json->find("contentInfo");
    auto events = json->find("events");
    auto state = json::string(*json, "sessionState");
    if (device == json->end() || content == json->end() || events == json->end() ||
        !events->is_array() || !state) {
        return std::nullopt;
    }
    auto deviceInfo = TrackingSessionDeviceInfoJson::fromJson(*device);
    auto contentInfo = TrackingSessionContentInfoJson::fromJson(*content);
    auto sessionState = storageStateNamed(*state);
    if (!deviceInfo || !contentInfo || !sessionState) {
        return std::nullopt;
    }
    ZMTrackingSessionStorageData data(std::move(*deviceInfo), std::move(*contentInfo));
    data.sessionState = *sessionState;
    data.events.reserve(events->size());
    for (const auto& item : *events) {
        auto event = InternalTrackingEventJson::fromJson(item);
        if (!event) {
            return std::nullopt;
        }
        data.events.push_back(std::move(*event));
    }
    return data;
}

}  // namespace zarvo
