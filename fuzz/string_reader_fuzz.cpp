// The string line reader: lines are valid UTF-8 without newline characters, and there is one
// line more than there are newline characters (counted here by a plain decoder).
#include <string>

#include "zarvo/hls/StringBufferedReader.h"
#include "zarvo/hls/Utf8Text.h"

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace zarvo;
    std::string repaired = utf8::repaired(fuzz::text(data, size));
    fuzz::check(utf8::isValid(repaired));
    std::size_t newlines = 0;
    for (std::size_t i = 0; i < repaired.size();) {
        utf8::CodePoint c = utf8::decodeAt(repaired, i);
        bool newline = (c.value >= 0x0A && c.value <= 0x0D) || c.value == 0x85 ||
                       c.value == 0x2028 || c.value == 0x2029;
        newlines += newline ? 1 : 0;
        i += c.length;
    }
    StringBufferedReader reader{std::string(fuzz::text(data, size))};
    std::size_t lines = 0, bytes = 0;
    while (auto line = reader.readLine()) {
        ++lines;
        bytes += line->size();
        fuzz::check(utf8::isValid(*line));
        fuzz::check(utf8::findNewline(*line).position == std::string::npos);
    }
    fuzz::check(!reader.readLine().has_value());
    fuzz::check(lines == newlines + 1);
    fuzz::check(bytes <= repaired.size());
    return 0;
}
