// The hand-written tag patterns against PCRE2 (UTF-8, Unicode digits, any Unicode newline)
// on every valid UTF-8 input: the replacement by each group must be the same text.
#define PCRE2_CODE_UNIT_WIDTH 8
#include <string>
#include <vector>

#include <pcre2.h>

#include "zarvo/hls/TagPattern.h"
#include "zarvo/hls/Utf8Text.h"

#include "FuzzSupport.h"

namespace {

using zarvo::TagPattern;
using Kind = TagPattern::Kind;

pcre2_code* compile(Kind kind) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    std::string_view source = TagPattern::source(kind);
    pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
    pcre2_set_newline(context, PCRE2_NEWLINE_ANY);
    pcre2_code* code =
        pcre2_compile(reinterpret_cast<PCRE2_SPTR>(source.data()), source.size(),
                      PCRE2_UTF | PCRE2_UCP | PCRE2_CASELESS, &error, &offset, context);
    pcre2_compile_context_free(context);
    return code;
}

std::string reference(pcre2_code* code, std::string_view line, int group) {
    std::string replacement = "$" + std::to_string(group);
    std::vector<char> out(line.size() * 2 + 64);
    PCRE2_SIZE length = out.size();
    int rc = pcre2_substitute(code, reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), 0,
                              PCRE2_SUBSTITUTE_GLOBAL, nullptr, nullptr,
                              reinterpret_cast<PCRE2_SPTR>(replacement.data()), replacement.size(),
                              reinterpret_cast<PCRE2_UCHAR*>(out.data()), &length);
    zarvo::fuzz::check(rc >= 0);
    return std::string(out.data(), length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view line = zarvo::fuzz::text(data, size);
    if (!zarvo::utf8::isValid(line)) {
        return 0;
    }
    static const std::vector<std::pair<Kind, int>> kinds = {
        {Kind::equalsDigitsComma, 3},   {Kind::commaEqualsDigits, 4}, {Kind::colonDigits, 3},
        {Kind::colonDigitThenComma, 3}, {Kind::colonDigitThenAt, 3},  {Kind::colonDigitRest, 2}};
    // Compiled once and kept for the whole run.
    static const std::vector<pcre2_code*>& codes = *[] {
        auto* all = new std::vector<pcre2_code*>();
        for (const auto& [kind, groups] : kinds) {
            all->push_back(compile(kind));
        }
        return all;
    }();
    for (std::size_t k = 0; k < kinds.size(); ++k) {
        for (int group = 1; group <= kinds[k].second; ++group) {
            std::string storage;
            std::string ours(TagPattern::replace(kinds[k].first, line, group, storage));
            zarvo::fuzz::check(ours == reference(codes[k], line, group));
        }
    }
    return 0;
}
