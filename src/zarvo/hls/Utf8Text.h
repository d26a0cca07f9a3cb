#pragma once

#include <cstddef>
#include <string_view>

#include "zarvo/platform/Utf8.h"

namespace zarvo::utf8 {

// Text helpers for the line readers and the playlist patterns. Texts handed to the
// functions that take "valid" text must be well-formed UTF-8.

struct CodePoint {
    char32_t value;
    std::size_t length;  // bytes
};

// The code point starting at byte `position` of valid text.
CodePoint decodeAt(std::string_view text, std::size_t position);

// Unicode decimal digits (general category Nd), the class "\d" stands for.
bool isDecimalDigit(char32_t c);

// Unicode White_Space characters (spaces, tabs and newlines).
bool isWhitespaceOrNewline(char32_t c);

struct Newline {
    std::size_t position;  // std::string_view::npos when none was found
    std::size_t length;    // bytes of the newline character
};

// The first newline character at or after `from`: LF, VT, FF, CR, NEL, LINE SEPARATOR or
// PARAGRAPH SEPARATOR (each one a newline by itself, so CR LF is two).
Newline findNewline(std::string_view text, std::size_t from = 0);

// Whether the text at byte `position` of valid text starts a decimal digit.
inline bool isDigitAt(std::string_view text, std::size_t position) {
    if (position >= text.size()) {
        return false;
    }
    unsigned char byte = static_cast<unsigned char>(text[position]);
    if (byte < 0x80) {
        return byte >= '0' && byte <= '9';
    }
    return isDecimalDigit(decodeAt(text, position).value);
}

// `text` without leading and trailing White_Space characters.
std::string_view trimmedWhitespace(std::string_view text);

}  // namespace zarvo::utf8
