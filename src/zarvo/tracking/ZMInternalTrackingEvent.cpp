#include "zarvo/tracking/ZMInternalTrackingEvent.h"

#include <charconv>

namespace zarvo {
namespace {

void appendInteger(std::string& out, std::int64_t number) {
    char buffer[24];
    auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, number);
    (void)status;
    out.append(buffer, end);
}

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

ZMInternalTrackingEvent ZMInternalTrackingEvent::make(const ZMTrackingEvent& event,
                                                      std::int64_t sessionOffset,
                                                      std::int64_t movieOffset) {
    return {event.code(), sessionOffset, movieOffset, event.valueText()};
}

std::string ZMInternalTrackingEvent::text() const {
    std::string out;
    appendInteger(out, eventType);
    out += ',';
    appendInteger(out, sessionOffset);
    out += ',';
    appendInteger(out, movieOffset);
    out += ',';
    out += value;
    return out;
}

std::string ZMInternalTrackingEvent::eventsText(
    const std::vector<ZMInternalTrackingEvent>& events) {
    std::string out;
    for (std::size_t index = 0; index < events.size(); ++index) {
        if (index > 0) {
            out += ';';
        }
        out += events[index].text();
    }
    return out;
}

Json ZMInternalTrackingEvent::toJson() const {
    Json json = Json::object();
    json["eventType"] = eventType;
    json["sessionOffset"] = sessionOffset;
    json["movieOffset"] = movieOffset;
    json["value"] = value;
    return json;
}

void ZMInternalTrackingEvent::appendJson(std::string& out) const {
    out += "{\"eventType\":";
    appendInteger(out, eventType);
    out += ",\"sessionOffset\":";
    appendInteger(out, sessionOffset);
    out += ",\"movieOffset\":";
    appendInteger(out, movieOffset);
    out += ",\"value\":";
    appendJsonString(out, value);
    out += '}';
}

std::optional<ZMInternalTrackingEvent> ZMInternalTrackingEvent::fromJson(const Json& json) {
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
