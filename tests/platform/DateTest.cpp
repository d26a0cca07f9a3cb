#include <ctime>

#include <gtest/gtest.h>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/ProcessInfo.h"

namespace zarvo {
namespace {

TEST(DateTest, ReferenceDateIsTheStartOf2001) {
    EXPECT_EQ(Date::fromReferenceDate(0).iso8601(), "2001-01-01T00:00:00.000Z");
    const Date date(1'800'000'000.5);
    EXPECT_DOUBLE_EQ(date.timeIntervalSinceReferenceDate(), 1'800'000'000.5 - 978'307'200);
    EXPECT_EQ(Date::fromReferenceDate(date.timeIntervalSinceReferenceDate()), date);
    EXPECT_DOUBLE_EQ(date.addingTimeInterval(10).timeIntervalSince(date), 10);
    EXPECT_LT(date, date.addingTimeInterval(0.001));
}

TEST(DateTest, FormatsIso8601InUtcWithMilliseconds) {
    EXPECT_EQ(Date(0).iso8601(), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(Date(1'795'860'000).iso8601(), "2026-11-28T10:00:00.000Z");
    EXPECT_EQ(Date(951'782'400.25).iso8601(), "2000-02-29T00:00:00.250Z");
    // Milliseconds are rounded, carrying into the seconds.
    EXPECT_EQ(Date(59.9996).iso8601(), "1970-01-01T00:01:00.000Z");
    EXPECT_EQ(Date(-0.5).iso8601(), "1969-12-31T23:59:59.500Z");
}

TEST(DateTest, ParsesProgramDateTimes) {
    Date date;
    ASSERT_TRUE(Date::parseIso8601("2010-02-19T14:54:23.031Z", date));
    EXPECT_EQ(date.iso8601(), "2010-02-19T14:54:23.031Z");
    ASSERT_TRUE(Date::parseIso8601("2010-02-19T14:54:23.031+08:00", date));
    EXPECT_EQ(date.iso8601(), "2010-02-19T06:54:23.031Z");
    ASSERT_TRUE(Date::parseIso8601("2010-02-19T01:54:23-0230", date));
    EXPECT_EQ(date.iso8601(), "2010-02-19T04:24:23.000Z");
    ASSERT_TRUE(Date::parseIso8601("2010-02-19T14:54:23+01", date));
    EXPECT_EQ(date.iso8601(), "2010-02-19T13:54:23.000Z");
    // Without a zone the time is taken as UTC; long fractions keep their precision.
    ASSERT_TRUE(Date::parseIso8601("2026-11-22T10:00:00.123456", date));
    EXPECT_NEAR(date.timeIntervalSince1970(), 1'795'860'000 - 6 * 86400 + 0.123456, 1e-6);
    ASSERT_TRUE(Date::parseIso8601("2016-12-31T23:59:60Z", date));
    EXPECT_EQ(date.iso8601(), "2017-01-01T00:00:00.000Z");
}

TEST(DateTest, RejectsMalformedTextAndKeepsTheOldValue) {
    const Date original(12345);
    for (const char* text :
         {"", "2010-02-19", "2010-02-19T14:54", "2010-02-30T00:00:00Z", "2010-13-01T00:00:00Z",
          "2010-02-19T24:00:00Z", "2010-02-19T14:61:00Z", "2010-02-19T14:54:23.Z",
          "2010-02-19T14:54:23+8", "2010-02-19T14:54:23Z trailing", "2010/02/19T14:54:23Z",
          "20100219T145423Z", "2010-02-19T14:54:23+25:00"}) {
        Date date = original;
        EXPECT_FALSE(Date::parseIso8601(text, date)) << text;
        EXPECT_EQ(date, original) << text;
    }
}

TEST(DateTest, SystemNowFollowsTheWallClock) {
    const double wall = static_cast<double>(std::time(nullptr));
    EXPECT_NEAR(Date::systemNow().timeIntervalSince1970(), wall, 2.0);
}

TEST(ProcessInfoTest, SystemUptimeIsPositiveAndMonotonic) {
    const double first = ProcessInfo::systemUptime();
    const double second = ProcessInfo::systemUptime();
    EXPECT_GT(first, 0);
    EXPECT_GE(second, first);
}

}  // namespace
}  // namespace zarvo
