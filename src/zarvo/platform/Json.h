#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace zarvo {

// JSON values keep the order in which keys were written.
using Json = nlohmann::ordered_json;

namespace json {

// Parses text; nothing when it is not JSON (no exception escapes).
std::optional<Json> parse(std::string_view text);
// Compact text of a value, like the platform's JSON encoder ("/" is not escaped).
std::string dump(const Json& value);

// Typed reads of an object's member: nothing when the key is absent or of another type.
std::optional<std::string> string(const Json& object, const std::string& key);
std::optional<long long> integer(const Json& object, const std::string& key);
std::optional<double> number(const Json& object, const std::string& key);
std::optional<bool> boolean(const Json& object, const std::string& key);

}  // namespace json
}  // namespace zarvo
