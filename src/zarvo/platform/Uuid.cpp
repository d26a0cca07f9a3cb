#include "zarvo/platform/Uuid.h"

#include <cstring>
#include <uuid/uuid.h>

namespace zarvo {

Uuid::Uuid() {
    uuid_t value;
    uuid_generate_random(value);
    std::memcpy(bytes_.data(), value, bytes_.size());
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    // The copy ends at its first NUL, so a text with one inside is too short to pass.
    const std::string terminated(text);
    uuid_t value;
    if (uuid_parse(terminated.c_str(), value) != 0) {
        return std::nullopt;
    }
    std::array<std::uint8_t, 16> bytes{};
    std::memcpy(bytes.data(), value, bytes.size());
    return Uuid(bytes);
}

bool Uuid::isValid(std::string_view text) {
    return parse(text).has_value();
}

std::string Uuid::uuidString() const {
    char text[37];
    uuid_unparse_upper(bytes_.data(), text);
    return text;
}

}  // namespace zarvo
