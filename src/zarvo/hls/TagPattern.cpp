#include "zarvo/hls/TagPattern.h"

#include "zarvo/hls/Utf8Text.h"

namespace zarvo {
namespace {

using Groups = TagPattern::Groups;

// End of the run of decimal digits that starts at `from`.
std::size_t digitRunEnd(std::string_view text, std::size_t from) {
    std::size_t i = from;
    while (i < text.size()) {
        unsigned char byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            if (byte < '0' || byte > '9') {
                break;
            }
            ++i;
            continue;
        }
        utf8::CodePoint c = utf8::decodeAt(text, i);
        if (!utf8::isDecimalDigit(c.value)) {
            break;
        }
        i += c.length;
    }
    return i;
}

// Last position before `end` holding `symbol`, or npos.
std::size_t lastBefore(std::string_view text, char symbol, std::size_t end) {
    if (end == 0) {
        return std::string_view::npos;
    }
    return text.substr(0, end).rfind(symbol);
}

Groups groups(std::string_view a, std::string_view b, std::string_view c = {},
              std::string_view d = {}) {
    return Groups{std::string_view{}, a, b, c, d};
}

// (.*)=(\d+),(.*): the last "=" followed by a whole run of digits and a comma.
std::optional<Groups> equalsDigitsComma(std::string_view s) {
    for (std::size_t p = lastBefore(s, '=', s.size()); p != std::string_view::npos;
         p = lastBefore(s, '=', p)) {
        std::size_t end = digitRunEnd(s, p + 1);
        if (end > p + 1 && end < s.size() && s[end] == ',') {
            return groups(s.substr(0, p), s.substr(p + 1, end - p - 1), s.substr(end + 1));
        }
    }
    return std::nullopt;
}

// (.*),(.*)=(\d+)(.*): the last "=" followed by a digit, and the last comma before it.
std::optional<Groups> commaEqualsDigits(std::string_view s) {
    for (std::size_t e = lastBefore(s, '=', s.size()); e != std::string_view::npos;
         e = lastBefore(s, '=', e)) {
        if (!utf8::isDigitAt(s, e + 1)) {
            continue;
        }
        std::size_t c = lastBefore(s, ',', e);
        if (c == std::string_view::npos) {
            return std::nullopt;
        }
        std::size_t end = digitRunEnd(s, e + 1);
        return groups(s.substr(0, c), s.substr(c + 1, e - c - 1), s.substr(e + 1, end - e - 1),
                      s.substr(end));
    }
    return std::nullopt;
}

// (.*):(\d+)(.*): the last ":" followed by a digit.
std::optional<Groups> colonDigits(std::string_view s) {
    for (std::size_t p = lastBefore(s, ':', s.size()); p != std::string_view::npos;
         p = lastBefore(s, ':', p)) {
        if (utf8::isDigitAt(s, p + 1)) {
            std::size_t end = digitRunEnd(s, p + 1);
            return groups(s.substr(0, p), s.substr(p + 1, end - p - 1), s.substr(end));
        }
    }
    return std::nullopt;
}

// (.*):(\d.*)X(.*): the last separator X, and the last ":" followed by a digit that leaves
// at least one character between the digit and X.
std::optional<Groups> colonDigitThen(std::string_view s, char separator) {
    std::size_t last = s.rfind(separator);
    if (last == std::string_view::npos || last < 2) {
        return std::nullopt;
    }
    for (std::size_t p = lastBefore(s, ':', last - 1); p != std::string_view::npos;
         p = lastBefore(s, ':', p)) {
        if (utf8::isDigitAt(s, p + 1)) {
            return groups(s.substr(0, p), s.substr(p + 1, last - p - 1), s.substr(last + 1));
        }
    }
    return std::nullopt;
}

// (.*):(\d.*): the last ":" followed by a digit.
std::optional<Groups> colonDigitRest(std::string_view s) {
    for (std::size_t p = lastBefore(s, ':', s.size()); p != std::string_view::npos;
         p = lastBefore(s, ':', p)) {
        if (utf8::isDigitAt(s, p + 1)) {
            return groups(s.substr(0, p), s.substr(p + 1));
        }
    }
    return std::nullopt;
}

}  // namespace

std::string_view TagPattern::source(Kind kind) {
    switch (kind) {
        case Kind::equalsDigitsComma:
            return R"((.*)=(\d+),(.*))";
        case Kind::commaEqualsDigits:
            return R"((.*),(.*)=(\d+)(.*))";
        case Kind::colonDigits:
            return R"((.*):(\d+)(.*))";
        case Kind::colonDigitThenComma:
            return R"((.*):(\d.*),(.*))";
        case Kind::colonDigitThenAt:
            return R"((.*):(\d.*)@(.*))";
        case Kind::colonDigitRest:
            return R"((.*):(\d.*))";
    }
    return {};
}

std::optional<TagPattern::Groups> TagPattern::match(Kind kind, std::string_view text) {
    std::optional<Groups> result;
    switch (kind) {
        case Kind::equalsDigitsComma:
            result = equalsDigitsComma(text);
            break;
        case Kind::commaEqualsDigits:
            result = commaEqualsDigits(text);
            break;
        case Kind::colonDigits:
            result = colonDigits(text);
            break;
        case Kind::colonDigitThenComma:
            result = colonDigitThen(text, ',');
            break;
        case Kind::colonDigitThenAt:
            result = colonDigitThen(text, '@');
            break;
        case Kind::colonDigitRest:
            result = colonDigitRest(text);
            break;
    }
    if (result) {
        (*result)[0] = text;
    }
    return result;
}

std::string_view TagPattern::replace(Kind kind, std::string_view line, int group,
                                     std::string& storage) {
    utf8::Newline newline = utf8::findNewline(line);
    if (newline.position == std::string_view::npos) {
        auto groups = match(kind, line);
        return groups ? (*groups)[static_cast<std::size_t>(group)] : line;
    }
    storage.clear();
    std::size_t start = 0;
    while (true) {
        std::size_t end =
            newline.position == std::string_view::npos ? line.size() : newline.position;
        std::string_view part = line.substr(start, end - start);
        auto groups = match(kind, part);
        storage.append(groups ? (*groups)[static_cast<std::size_t>(group)] : part);
        if (newline.position == std::string_view::npos) {
            break;
        }
        storage.append(line.substr(newline.position, newline.length));
        start = newline.position + newline.length;
        newline = utf8::findNewline(line, start);
    }
    return storage;
}

}  // namespace zarvo
