#include "zarvo/player/PlayerMetadataJson.h"

namespace zarvo {
namespace {

// Unset for a missing key or null; a value of another type throws.
void readText(const Json& json, const char* key, std::optional<std::string>& out) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        out.reset();
        return;
    }
    out = found->get<std::string>();
}

void readWholeNumber(const Json& json, const char* key, std::optional<long long>& out) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        out.reset();
        return;
    }
    out = json::integer(json, key);
    if (!out) {
        throw Json::type_error::create(302, std::string(key) + " is not a whole number", &*found);
    }
}

template <class T>
void writeIfSet(Json& json, const char* key, const std::optional<T>& value) {
    if (value) {
        json[key] = *value;
    }
}

}  // namespace

void to_json(Json& json, const ZMPlayerMetadataEvent& event) {
    json = Json::object();
    writeIfSet(json, "advert-id", event.advertIdentifier);
    writeIfSet(json, "advert-sequence", event.advertSequence);
    writeIfSet(json, "break-id", event.breakIdentifier);
    writeIfSet(json, "duration", event.duration);
    writeIfSet(json, "event", event.event);
    writeIfSet(json, "id", event.identifier);
    writeIfSet(json, "offset", event.offset);
    writeIfSet(json, "type", event.type);
    writeIfSet(json, "url", event.url);
}

void from_json(const Json& json, ZMPlayerMetadataEvent& event) {
    if (!json.is_object()) {
        throw Json::type_error::create(302, "an event is not an object", &json);
    }
    readText(json, "advert-id", event.advertIdentifier);
    readText(json, "advert-sequence", event.advertSequence);
    readText(json, "break-id", event.breakIdentifier);
    readText(json, "duration", event.duration);
    readText(json, "event", event.event);
    readText(json, "id", event.identifier);
    readWholeNumber(json, "offset", event.offset);
    readText(json, "type", event.type);
    readText(json, "url", event.url);
}

void from_json(const Json& json, ZMPlayerMetadataVast& vast) {
    json.at("event").get_to(vast.event);
}

void from_json(const Json& json, ZMPlayerMetadataValue& value) {
    json.at("vast").get_to(value.vast);
}

}  // namespace zarvo
