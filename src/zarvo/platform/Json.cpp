#include "zarvo/platform/Json.h"

#include <limits>

namespace zarvo::json {

std::optional<Json> parse(std::string_view text) {
    Json value = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (value.is_discarded()) {
        return std::nullopt;
    }
    return value;
}

std::string dump(const Json& value) {
    // Invalid UTF-8 in a string is replaced rather than thrown on.
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<std::string> string(const Json& object, const std::string& key) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::optional<long long> integer(const Json& object, const std::string& key) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto found = object.find(key);
    if (found == object.end()) {
        return std::nullopt;
    }
    if (found->is_number_unsigned()) {
        auto value = found->get<unsigned long long>();
        if (value > static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
            return std::nullopt;
        }
        return static_cast<long long>(value);
    }
    if (found->is_number_integer()) {
        return found->get<long long>();
    }
    // A whole number written with a fraction part ("3.0") still reads as an integer.
    if (found->is_number_float()) {
        double value = found->get<double>();
        if (value >= -9.2e18 && value <= 9.2e18 &&
            value == static_cast<double>(static_cast<long long>(value))) {
            return static_cast<long long>(value);
        }
    }
    return std::nullopt;
}

std::optional<double> number(const Json& object, const std::string& key) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto found = object.find(key);
    if (found == object.end() || !found->is_number()) {
        return std::nullopt;
    }
    return found->get<double>();
}

std::optional<bool> boolean(const Json& object, const std::string& key) {
    if (!object.is_object()) {
        return std::nullopt;
    }
    auto found = object.find(key);
    if (found == object.end() || !found->is_boolean()) {
        return std::nullopt;
    }
    return found->get<bool>();
}

}  // namespace zarvo::json
