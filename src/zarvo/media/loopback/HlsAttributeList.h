#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zarvo/platform/Date.h"

namespace zarvo {

// The attribute list of an HLS tag (RFC 8216 section 4.2): NAME=VALUE pairs separated by commas,
// where a quoted value may hold commas and '='. Items without '=' are skipped; text between a
// quoted value and the next comma is ignored; a quote left open runs to the end of the line.
// Values are read as the playlist grammar writes them; the rewriter edits lines in place
// through the positions kept for each attribute.
class HlsAttributeList {
public:
    // One attribute; positions are into the line.
    struct Attribute {
        std::string_view name;
        std::string_view value;      // without quotes; trimmed when unquoted
        std::size_t separator = 0;   // the ',' before the attribute, npos for the first one
        std::size_t begin = 0;       // the name
        std::size_t valueBegin = 0;  // the value as written, quotes included
        std::size_t valueEnd = 0;
        std::size_t end = 0;  // the ',' after the attribute or the end of the line
    };
    // A replacement of line[begin, end).
    struct Edit {
        std::size_t begin = 0;
        std::size_t end = 0;
        std::string text;
    };

    // The attributes of `line` from `pos` on.
    HlsAttributeList(std::string_view line, std::size_t pos);

    const std::vector<Attribute>& all() const { return attributes_; }
    // The first attribute of that name.
    const Attribute* find(std::string_view name) const;
    std::optional<std::string> text(std::string_view name) const;
    std::optional<std::int64_t> integer(std::string_view name) const;
    std::optional<double> decimal(std::string_view name) const;
    std::optional<Date> date(std::string_view name) const;
    // The attribute is YES.
    bool yes(std::string_view name) const;

    static bool isBlank(char c) { return c == ' ' || c == '\t'; }
    static std::string_view trim(std::string_view text);
    // A decimal-integer: ASCII digits only, within 63 bits.
    static std::optional<std::int64_t> readInteger(std::string_view text);
    // A decimal-floating-point: ASCII digits with at most one '.', finite.
    static std::optional<double> readDecimal(std::string_view text);
    static std::optional<Date> readDate(std::string_view text);

    // The span that removing `attribute` takes out: with the comma before it, or for the first
    // attribute with the comma after it.
    static Edit removal(const Attribute& attribute, std::size_t lineSize);
    // `line` with `edits` applied; removals of neighbouring attributes may share a comma.
    static std::string edited(std::string_view line, std::vector<Edit>& edits);

private:
    std::vector<Attribute> attributes_;
};

}  // namespace zarvo
