#include <ctime>

#include <gtest/gtest.h>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/ProcessInfo.h"

namespace zarvo {
namespace {

TEST(DateTest, FormatsAndParsesIso8601InUtcWithMilliseconds) {
    EXPECT_EQ(Date::fromReferenceDate(0).iso8601(), "2001-01-01T00:00:00.000Z");
    EXPECT_EQ(Date(1'795'860'000).iso8601(), "2026-11-28T10:00:00.000Z");
    EXPECT_EQ(Date(951'782'400.25).iso8601(), "2000-02-29T00:00:00.250Z");
    EXPECT_EQ(Date(59.9996).iso8601(), "1970-01-01T00:01:00.000Z");  // rounding carries
    EXPECT_EQ(Date(-0.5).iso8601(), "1969-12-31T23:59:59.500Z");

    Date date;
    const auto parsed = [&](const char* text) {
        return Date::parseIso8601(text, date) ? date.iso8601() : "rejected";
    };
    EXPECT_EQ(parsed("2010-02-19T14:54:23.031Z"), "2010-02-19T14:54:23.031Z");
    EXPECT_EQ(parsed("2010-02-19T14:54:23.031+08:00"), "2010-02-19T06:54:23.031Z");
    EXPECT_EQ(parsed("2010-02-19T01:54:23-0230"), "2010-02-19T04:24:23.000Z");
    EXPECT_EQ(parsed("2010-02-19T14:54:23+01"), "2010-02-19T13:54:23.000Z");
    EXPECT_EQ(parsed("2016-12-31T23:59:60Z"), "2017-01-01T00:00:00.000Z");
    // Without a zone the time is UTC; long fractions keep their precision.
    ASSERT_TRUE(Date::parseIso8601("2026-11-22T10:00:00.123456", date));
    EXPECT_NEAR(date.timeIntervalSince1970(), 1'795'341'600.123456, 1e-6);
}

TEST(DateTest, RejectsMalformedTextAndKeepsTheOldValue) {
    for (const char* text :
         {"", "2010-02-19", "2010-02-19T14:54", "2010-02-30T00:00:00Z", "2010-13-01T00:00:00Z",
          "2010-02-19T24:00:00Z", "2010-02-19T14:61:00Z", "2010-02-19T14:54:23.Z",
          "2010-02-19T14:54:23+8", "2010-02-19T14:54:23Z trailing", "20100219T145423Z",
          "2010-02-19T14:54:23+25:00"}) {
        Date date(12345);
        EXPECT_FALSE(Date::parseIso8601(text, date)) << text;
        EXPECT_EQ(date, Date(12345)) << text;
    }
}

TEST(DateTest, SystemClocks) {
    EXPECT_NEAR(Date::systemNow().timeIntervalSince1970(), static_cast<double>(std::time(nullptr)),
                2.0);
    const double first = ProcessInfo::systemUptime();
    EXPECT_GT(first, 0);
    EXPECT_GE(ProcessInfo::systemUptime(), first);
}

}  // namespace
}  // namespace zarvo
