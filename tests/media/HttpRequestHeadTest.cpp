// The loopback server's reading of request heads: what it accepts, and the status of each
// refusal at the bounds.
#include <gtest/gtest.h>

#include "zarvo/media/loopback/HttpRequestHead.h"

namespace zarvo {
namespace {

using Progress = HttpRequestHead::Progress;

int statusOf(std::string_view head) {
    const auto parsed = HttpRequestHead::parse(head);
    return std::holds_alternative<int>(parsed) ? std::get<int>(parsed) : 0;
}

TEST(HttpRequestHeadTest, ReadsTheRequestLineAndFieldsWithEitherLineEnd) {
    for (const std::string_view text :
         {"GET /a/b?c=d HTTP/1.1\r\nHost: 127.0.0.1\r\nRange:  bytes=0-9 \r\n\r\nextra",
          "GET /a/b?c=d HTTP/1.1\nHost: 127.0.0.1\nRange:  bytes=0-9 \n\nextra"}) {
        EXPECT_EQ(HttpRequestHead::progress(text), Progress::complete);
        const auto parsed = HttpRequestHead::parse(text);
        ASSERT_TRUE(std::holds_alternative<HttpRequestHead>(parsed)) << text;
        const auto& head = std::get<HttpRequestHead>(parsed);
        EXPECT_EQ(head.method, "GET");
        EXPECT_EQ(head.target, "/a/b?c=d");
        EXPECT_EQ(head.path(), "/a/b");
        ASSERT_EQ(head.fields.size(), 2u);
        EXPECT_EQ(head.fields[1], (std::pair<std::string, std::string>{"Range", "bytes=0-9"}));
        EXPECT_EQ(HttpRequestHead::length(text), text.size() - 5);
    }
}

TEST(HttpRequestHeadTest, RefusesMalformedAndOversizedHeadsWithTheirStatus) {
    EXPECT_EQ(HttpRequestHead::progress("GET / HTTP/1.1\r\nHost: x\r\n"), Progress::incomplete);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nHost: x\r\n"), 400) << "cut short";
    EXPECT_EQ(statusOf("GET /\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("G(T / HTTP/1.1\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\nno colon\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/1.1\r\n: empty name\r\n\r\n"), 400);
    EXPECT_EQ(statusOf("GET / HTTP/2.0\r\n\r\n"), 505);

    const std::string longPath = "GET /" + std::string(HttpRequestHead::maxBytes, 'a');
    EXPECT_EQ(HttpRequestHead::progress(longPath), Progress::tooLarge);
    EXPECT_EQ(statusOf(longPath), 414);
    const std::string longField =
        "GET / HTTP/1.1\r\nX: " + std::string(HttpRequestHead::maxBytes, 'a');
    EXPECT_EQ(statusOf(longField), 431);
    std::string fields = "GET / HTTP/1.1\r\n";
    for (std::size_t i = 0; i <= HttpRequestHead::maxFields; ++i) {
        EXPECT_EQ(statusOf(fields + "\r\n"), 0) << i << " fields";
        fields += "X-" + std::to_string(i) + ": 1\r\n";
    }
    EXPECT_EQ(statusOf(fields + "\r\n"), 431);
}

}  // namespace
}  // namespace zarvo
