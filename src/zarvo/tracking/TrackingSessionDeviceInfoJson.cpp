#include "zarvo/tracking/TrackingSessionDeviceInfoJson.h"

#include <string>
#include <type_traits>

#include "zarvo/tracking/TrackingSessionDeviceInfoFields.h"

namespace zarvo {

Json TrackingSessionDeviceInfoJson::toJson(const ZMTrackingSessionDeviceInfo& info) {
    Json json = Json::object();
    auto visit = [&](const char* name, const auto& field) {
        if constexpr (std::is_same_v<std::decay_t<decltype(field)>, std::string>) {
            json[name] = field;
        } else if (field) {
            json[name] = *field;
        }
    };
    forEachDeviceInfoField(info, visit);
    return json;
}

std::optional<ZMTrackingSessionDeviceInfo> TrackingSessionDeviceInfoJson::fromJson(
    const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    ZMTrackingSessionDeviceInfo info({}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {});
    bool valid = true;
    auto visit = [&](const char* name, auto& field) {
        auto found = json.find(name);
        bool present = found != json.end() && !found->is_null();
        if (present && !found->is_string()) {
            valid = false;
            return;
        }
        if constexpr (std::is_same_v<std::decay_t<decltype(field)>, std::string>) {
            if (!present) {
                valid = false;
                return;
            }
            field = found->template get<std::string>();
        } else if (present) {
            field = found->template get<std::string>();
        }
    };
    forEachDeviceInfoField(info, visit);
    if (!valid) {
        return std::nullopt;
    }
    return info;
}

}  // namespace zarvo
