#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace zarvo {

// The fixed patterns the playlist parser matches tag lines with. Each is applied as a
// case-insensitive regular-expression replacement over the whole line: every match is
// replaced by one numbered group. "." matches any character except a newline character
// (see utf8::findNewline), "\d" any Unicode decimal digit, and every repetition is greedy,
// so the first group takes the last candidate on the line.
//
// Hand-written matchers that give the same groups as a backtracking regex engine, at a
// fraction of its cost.
class TagPattern {
public:
    enum class Kind {
        equalsDigitsComma,    // (.*)=(\d+),(.*)
        commaEqualsDigits,    // (.*),(.*)=(\d+)(.*)
        colonDigits,          // (.*):(\d+)(.*)
        colonDigitThenComma,  // (.*):(\d.*),(.*)
        colonDigitThenAt,     // (.*):(\d.*)@(.*)
        colonDigitRest,       // (.*):(\d.*)
    };

    // Groups 1 to 4 of a match ($0 is the whole text); unused groups are empty.
    using Groups = std::array<std::string_view, 5>;

    // The regular-expression source of a kind, for messages and comparisons.
    static std::string_view source(Kind kind);

    // Matches a text without newline characters as a whole. Because every pattern begins
    // and ends with "(.*)", a match always covers the whole text.
    static std::optional<Groups> match(Kind kind, std::string_view text);

    // Replaces every match of `kind` in valid UTF-8 `line` by group `group`. Parts of the
    // line between newline characters are matched on their own; parts that do not match
    // and the newline characters themselves stay as they are. The result refers to `line`
    // when the line has no newline characters, otherwise to `storage`.
    static std::string_view replace(Kind kind, std::string_view line, int group,
                                    std::string& storage);
};

}  // namespace zarvo
