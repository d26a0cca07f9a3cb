#include "zarvo/tracking/InternalTrackingEventJson.h"

#include <cstdint>
#include <utility>

#include "zarvo/platform/AsciiText.h"

namespace zarvo {
namespace {

// A JSON string literal; invalid UTF-8 is replaced rather than failing the whole document.
void appendJsonString(std::string& out, const std::string& text) {
    bool plain = true;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F || c == '"' || c == '\\') {
            plain = false;
            break;
        }
    }
    if (!plain) {
        out += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
        return;
    }
    out += '"';
    out += text;
    out += '"';
}

}  // namespace

Json InternalTrackingEventJson::toJson(const ZMInternalTrackingEvent& event) {
    Json json = Json::object();
    json["eventType"] = event.eventType;
    json["sessionOffset"] = event.sessionOffset;
    json["movieOffset"] = event.movieOffset;
    json["value"] = event.value;
    return json;
}

void InternalTrackingEventJson::appendJson(const ZMInternalTrackingEvent& event, std::string& out) {
    out += "{\"eventType\":";
    ascii::appendDecimal(out, event.eventType);
    out += ",\"sessionOffset\":";
    ascii::appendDecimal(out, event.sessionOffset);
    out += ",\"movieOffset\":";
    ascii::appendDecimal(out, event.movieOffset);
    out += ",\"value\":";
    appendJsonString(out, event.value);
    out += '}';
}

std::optional<ZMInternalTrackingEvent> InternalTrackingEventJson::fromJson(const Json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    auto eventType = json::integer(json, "eventType");
    auto sessionOffset = json::integer(json, "sessionOffset");
    auto movieOffset = json::integer(json, "movieOffset");
    auto value = json::string(json, "value");
    if (!eventType || !sessionOffset || !movieOffset || !value) {
        return std::nullopt;
    }
    return ZMInternalTrackingEvent{*eventType, *sessionOffset, *movieOffset, std::move(*value)};
}

}  // namespace zarvo
