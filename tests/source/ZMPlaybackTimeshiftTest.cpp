#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/source/ZMPlaybackTimeshift.h"
#include "zarvo/source/ZMStreamType.h"

namespace zarvo {
namespace {

TEST(ZMPlaybackTimeshiftTest, RawValuesOutsideTheEnumerationsGiveNothing) {
    EXPECT_EQ(makeZMStreamType(3), ZMStreamType::startTimeLive);
    EXPECT_EQ(makeZMStreamType(4), ZMStreamType::unknown);
    EXPECT_EQ(makeZMStreamType(5), std::nullopt);
    EXPECT_EQ(makeZMStreamType(-1), std::nullopt);
    EXPECT_EQ(makeZMPlaybackTimeshiftType(1), ZMPlaybackTimeshiftType::dvrWindow);
    EXPECT_EQ(makeZMPlaybackTimeshiftType(2), std::nullopt);
}

TEST(ZMPlaybackTimeshiftTest, QueryItemCarriesMillisecondsUnderItsName) {
    const auto item = [](const ZMPlaybackTimeshift& timeshift) {
        const UrlQueryItem query = timeshift.queryItem();
        return query.name + "=" + query.value.value_or("<none>");
    };
    EXPECT_EQ(item(ZMPlaybackTimeshift(7200)), "dvr=7200000");
    EXPECT_EQ(item(ZMPlaybackTimeshift(-5, "back")), "back=-5000");
    EXPECT_EQ(item(ZMPlaybackTimeshift(60, std::nullopt)), "=60000");
    // Dates count whole seconds from 2001-01-01, truncated toward zero.
    EXPECT_EQ(item(ZMPlaybackTimeshift(Date::fromReferenceDate(100.9))), "startTime=100000");
    EXPECT_EQ(item(ZMPlaybackTimeshift(Date::fromReferenceDate(-1.7), "t")), "t=-1000");
    EXPECT_EQ(item(ZMPlaybackTimeshift(std::optional<Date>{})), "startTime=0");
}

TEST(ZMPlaybackTimeshiftTest, ValuesBeyondSixtyFourBitsAreFatal) {
    ScopedFatalErrorHandler handler;
    const auto huge = std::numeric_limits<std::int64_t>::max() / 1000 + 1;
    EXPECT_THROW(ZMPlaybackTimeshift(huge).queryItem(), FatalErrorException);
    EXPECT_EQ(ZMPlaybackTimeshift(huge - 1).queryItem().value, std::to_string((huge - 1) * 1000));
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_THROW(ZMPlaybackTimeshift(Date(infinity)).queryItem(), FatalErrorException);
    EXPECT_THROW(ZMPlaybackTimeshift(Date(1e19)).queryItem(), FatalErrorException);
}

TEST(ZMPlaybackTimeshiftTest, AsSecondsCountsFromTheDateToNow) {
    auto scheduler = ManualScheduler::create(1000.0, Date(1'800'000'000.0));
    ScopedStandardScheduler scoped(scheduler);
    EXPECT_EQ(ZMPlaybackTimeshift(Date(1'800'000'000.0 - 90.6)).asSeconds(), 90);
    EXPECT_EQ(ZMPlaybackTimeshift(Date(1'800'000'000.0 + 30.5)).asSeconds(), -30);
    EXPECT_EQ(ZMPlaybackTimeshift(std::optional<Date>{}).asSeconds(), 0);
    EXPECT_EQ(ZMPlaybackTimeshift(45).asSeconds(), 45);
    scheduler->advance(std::chrono::seconds(10));
    EXPECT_EQ(ZMPlaybackTimeshift(Date(1'800'000'000.0 - 90.6)).asSeconds(), 100);
}

}  // namespace
}  // namespace zarvo
