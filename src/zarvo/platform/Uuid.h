#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A random (version 4) UUID. Its text is upper-case: "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
class ZARVO_EXPORT Uuid {
public:
    Uuid();                                                   // a new random one
    static std::optional<Uuid> parse(std::string_view text);  // either case
    static bool isValid(std::string_view text);

    std::string uuidString() const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    bool operator==(const Uuid&) const = default;
    auto operator<=>(const Uuid&) const = default;

private:
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace zarvo
