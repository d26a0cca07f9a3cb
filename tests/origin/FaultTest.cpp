#include <gtest/gtest.h>

#include "origin/FaultInjector.h"

namespace zarvo::origin {
namespace {

TEST(Fault, ParsesStatusAndDelayArgumentsAndRejectsMalformedOnes) {
    auto status = Fault::parseStatus("/vod/v2/:503:3");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->pathPrefix, "/vod/v2/");
    EXPECT_EQ(status->status, 503);
    EXPECT_EQ(status->count, 3);
    EXPECT_EQ(Fault::parseStatus("/fps/license:500")->count, std::nullopt);

    auto delay = Fault::parseDelay("/track/:1500");
    ASSERT_TRUE(delay);
    EXPECT_EQ(delay->pathPrefix, "/track/");
    EXPECT_DOUBLE_EQ(delay->delaySeconds, 1.5);
    EXPECT_EQ(delay->status, std::nullopt);

    for (const char* text : {"", "/vod", "/vod:", "/vod:abc", "vod:404", "/vod:99", "/vod:600",
                             "/vod:-1", ":404", "/vod:404:x:1"}) {
        EXPECT_FALSE(Fault::parseStatus(text)) << text;
    }
    for (const char* text : {"", "/track", "/track:", "/track:1.5", "track:10", "/t:-5"}) {
        EXPECT_FALSE(Fault::parseDelay(text)) << text;
    }
}

TEST(FaultInjector, FirstMatchingSelectedFaultWinsUntilUsedUpRemovedOrCleared) {
    FaultInjector faults;
    faults.add(*Fault::parseStatus("/vod/v0/:404"));
    faults.add(*Fault::parseStatus("/vod/:503:2"));
    EXPECT_FALSE(faults.take("/live/master.m3u8"));
    EXPECT_EQ(faults.take("/vod/v0/seg0.ts")->status, 404);
    EXPECT_EQ(faults.take("/vod/v1/index.m3u8")->status, 503);
    EXPECT_EQ(faults.take("/vod/master.m3u8")->status, 503);
    EXPECT_FALSE(faults.take("/vod/master.m3u8"));
    EXPECT_EQ(faults.faults().size(), 1u);
    faults.remove("/vod/v0/");
    EXPECT_FALSE(faults.take("/vod/v0/seg0.ts"));
    faults.add(*Fault::parseStatus("/vod/:500"));
    faults.clear();
    EXPECT_FALSE(faults.take("/vod/v0/seg0.ts"));

    faults.add(*Fault::parseStatus("/vod/:500:0"));
    EXPECT_FALSE(faults.take("/vod/master.m3u8"));
    faults.clear();

    // A fraction affects about that share of requests.
    faults.add({.pathPrefix = "/", .dropConnection = true, .fraction = 0.25});
    int hits = 0;
    for (int i = 0; i < 1000; ++i) {
        hits += faults.take("/vod/master.m3u8") ? 1 : 0;
    }
    EXPECT_GT(hits, 180);
    EXPECT_LT(hits, 320);
}

}  // namespace
}  // namespace zarvo::origin
