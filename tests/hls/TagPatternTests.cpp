// The hand-written tag patterns against PCRE2 as the reference engine, configured like the
// platform's regular expressions: UTF-8, Unicode digit classes, case-insensitive, and "."
// stopping at every Unicode newline character.
#define PCRE2_CODE_UNIT_WIDTH 8
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pcre2.h>

#include "zarvo/hls/TagPattern.h"

namespace zarvo {
namespace {

using Kind = TagPattern::Kind;

const Kind kAllKinds[] = {Kind::equalsDigitsComma,   Kind::commaEqualsDigits, Kind::colonDigits,
                          Kind::colonDigitThenComma, Kind::colonDigitThenAt,  Kind::colonDigitRest};

int groupCount(Kind kind) {
    return kind == Kind::commaEqualsDigits ? 4 : kind == Kind::colonDigitRest ? 2 : 3;
}

class ReferencePattern {
public:
    explicit ReferencePattern(Kind kind) {
        int error = 0;
        PCRE2_SIZE offset = 0;
        std::string_view source = TagPattern::source(kind);
        pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
        pcre2_set_newline(context, PCRE2_NEWLINE_ANY);
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(source.data()), source.size(),
                              PCRE2_UTF | PCRE2_UCP | PCRE2_CASELESS, &error, &offset, context);
        pcre2_compile_context_free(context);
    }
    ~ReferencePattern() { pcre2_code_free(code_); }

    // Every match replaced by "$<group>".
    std::string replace(const std::string& line, int group) const {
        std::string replacement = "$" + std::to_string(group);
        std::vector<char> out(line.size() * 2 + 64);
        PCRE2_SIZE length = out.size();
        int rc =
            pcre2_substitute(code_, reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), 0,
                             PCRE2_SUBSTITUTE_GLOBAL, nullptr, nullptr,
                             reinterpret_cast<PCRE2_SPTR>(replacement.data()), replacement.size(),
                             reinterpret_cast<PCRE2_UCHAR*>(out.data()), &length);
        EXPECT_GE(rc, 0) << "pcre2_substitute failed on " << line;
        return std::string(out.data(), length);
    }

private:
    pcre2_code* code_ = nullptr;
};

void expectSameAsReference(const std::string& line) {
    for (Kind kind : kAllKinds) {
        ReferencePattern reference(kind);
        for (int group = 1; group <= groupCount(kind); ++group) {
            std::string storage;
            std::string ours(TagPattern::replace(kind, line, group, storage));
            ASSERT_EQ(ours, reference.replace(line, group))
                << "pattern " << TagPattern::source(kind) << " group " << group << " line «" << line
                << "»";
        }
    }
}

TEST(TagPattern, GreedyGroupsTakeTheLastCandidate) {
    std::string storage;
    std::string_view both = "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=1280000";
    EXPECT_EQ(TagPattern::replace(Kind::equalsDigitsComma, both, 2, storage), "1");
    EXPECT_EQ(TagPattern::replace(Kind::commaEqualsDigits, both, 3, storage), "1280000");
    std::string_view resolution = "#EXT-X-STREAM-INF:BANDWIDTH=1280000,RESOLUTION=640x360";
    EXPECT_EQ(TagPattern::replace(Kind::equalsDigitsComma, resolution, 2, storage), "1280000");
    EXPECT_EQ(TagPattern::replace(Kind::commaEqualsDigits, resolution, 3, storage), "640");
    EXPECT_EQ(TagPattern::replace(Kind::colonDigitThenComma, "#EXTINF:9.009,", 2, storage),
              "9.009");
    EXPECT_EQ(TagPattern::replace(Kind::colonDigitThenComma, "#EXTINF:1,a,b", 3, storage), "b");
    // No match leaves the line as it was.
    EXPECT_EQ(TagPattern::replace(Kind::colonDigitThenComma, "#EXTINF:abc,x", 3, storage),
              "#EXTINF:abc,x");
    // Pieces between newline characters are replaced one by one.
    EXPECT_EQ(TagPattern::replace(Kind::colonDigits, "A:12\rB:3", 2, storage), "12\r3");
}

TEST(TagPattern, AgreesWithReferenceOnTypicalAndTrickyLines) {
    // The cases, separated by "|"; among them Arabic-Indic, mathematical and full-width digits.
    const std::string cases =
        "|#EXTINF:10.0,Title: part 2|#EXTINF:10,|#EXTINF:,|#EXTINF:1,|#EXTINF::1,,|"
        "#EXT-X-BYTERANGE:1000@2000|#EXT-X-BYTERANGE:1000|#EXT-X-BYTERANGE:@1|"
        "#EXT-X-BYTERANGE:1@|#EXT-X-BYTERANGE:1@2@3|#EXT-X-VERSION:3|#EXT-X-MEDIA-SEQUENCE:-5|"
        "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=1280000,CODECS=\"avc1.4d401f,mp4a.40.2\"|"
        "#EXT-X-STREAM-INF:BANDWIDTH=1,|=1,=2,=3|,=1|a=1,2=3|x:\u0663\u0664,y|"
        "x:\U0001D7CE5@\U0001D7FF|x:\uFF11\uFF12|a:1\r\nb:2,c|a:1\u2028b:2,c\u2029|"
        "a:1\u0085b=2,c,d=3|a:1\vb:2\fc:3|\r|\n\n|:1,:2,:3@:4|\u00e9:1,\u00e9";

    for (std::size_t start = 0, end; start <= cases.size(); start = end + 1) {
        end = std::min(cases.find('|', start), cases.size());
        expectSameAsReference(cases.substr(start, end - start));
    }
}

TEST(TagPattern, AgreesWithReferenceOnRandomLines) {
    const std::vector<std::string> alphabet = {
        ":",      ":",      ",",          ",",      "=",      "=",      "@",      "1",
        "2",      "0",      "9",          "a",      "X",      "#",      ".",      " ",
        "-",      "\r",     "\n",         "\v",     "\f",     "\u0085", "\u2028", "\u2029",
        "\u0661", "\uFF15", "\U0001D7D8", "\u00e9", "\u00a0", "\u0d6a"};
    std::mt19937 random(20261122);
    for (int round = 0; round < 10000; ++round) {
        std::string line;
        int length = static_cast<int>(random() % 24);
        for (int i = 0; i < length; ++i) {
            line += alphabet[random() % alphabet.size()];
        }
        expectSameAsReference(line);
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
    }
}

}  // namespace
}  // namespace zarvo
