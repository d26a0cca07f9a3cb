#include "zarvo/hls/StringBufferedReader.h"

#include "zarvo/hls/Utf8Text.h"

namespace zarvo {

StringBufferedReader::StringBufferedReader(std::string text)
    : owned_(utf8::isValid(text) ? std::move(text) : utf8::repaired(text)), text_(owned_) {}

StringBufferedReader::StringBufferedReader(ViewTag, std::string_view text) {
    if (utf8::isValid(text)) {
        text_ = text;
    } else {
        owned_ = utf8::repaired(text);
        text_ = owned_;
    }
}

StringBufferedReader StringBufferedReader::viewing(std::string_view text) {
    return StringBufferedReader(ViewTag{}, text);
}

std::optional<std::string_view> StringBufferedReader::readLineView() {
    if (finished_) {
        return std::nullopt;
    }
    utf8::Newline newline = utf8::findNewline(text_, position_);
    std::string_view line;
    if (newline.position == std::string_view::npos) {
        line = text_.substr(position_);
        finished_ = true;
    } else {
        line = text_.substr(position_, newline.position - position_);
        position_ = newline.position + newline.length;
    }
    return line;
}

std::optional<std::string> StringBufferedReader::readLine() {
    auto line = readLineView();
    if (!line) {
        return std::nullopt;
    }
    return std::string(*line);
}

}  // namespace zarvo
