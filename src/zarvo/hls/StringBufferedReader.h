#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zarvo/hls/BufferedReader.h"

namespace zarvo {

// Lines of a text held in memory. Every Unicode newline character (LF, VT, FF, CR, NEL,
// LINE SEPARATOR, PARAGRAPH SEPARATOR) ends a line by itself, so CR LF gives an empty line
// and a text of n newlines has n + 1 lines. Ill-formed UTF-8 is read as U+FFFD.
class StringBufferedReader : public BufferedReader {
public:
    explicit StringBufferedReader(std::string text);
    StringBufferedReader(const StringBufferedReader&) = delete;
    StringBufferedReader& operator=(const StringBufferedReader&) = delete;

    // A reader over text that the caller keeps alive and unchanged while reading.
    static StringBufferedReader viewing(std::string_view text);

    void close() override {}
    std::optional<std::string> readLine() override;

    // The next line as a view into the text (valid while the reader lives).
    std::optional<std::string_view> readLineView();

private:
    struct ViewTag {};
    StringBufferedReader(ViewTag, std::string_view text);

    std::string owned_;
    std::string_view text_;
    std::size_t position_ = 0;
    bool finished_ = false;
};

}  // namespace zarvo
