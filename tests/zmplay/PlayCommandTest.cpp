#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/SampleOriginTest.h"
#include "support/XvfbDisplay.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using PlayCommandTest = test::ZmplayTest<test::SampleOriginTest>;

TEST_F(PlayCommandTest, PlaysAVodToItsEndAsJsonAndFailsOnAMissingStream) {
    auto played = run({"play", origin_->url("/vod/master.m3u8"), "--seek", "28", "--json"});
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_THAT(played.out,
                HasSubstr(R"({"event":"didChangePlayerStatus","value":"readyToPlay"})"));
    EXPECT_THAT(played.out, HasSubstr(R"({"event":"didChangePlaybackStatus","value":"playing"})"));
    EXPECT_THAT(played.out, HasSubstr(R"({"event":"didChangeIndicatedBitrate","value":)"));
    EXPECT_THAT(played.out, HasSubstr(R"("duration":30.0})"));

    auto missing = run({"play", origin_->url("/vod/missing.m3u8")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.out, HasSubstr("item status failed"));
    EXPECT_THAT(missing.err, HasSubstr("zmplay play: "));

    auto wrong = run({"play", origin_->url("/vod/master.m3u8"), "--dvr", "soon"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_THAT(wrong.err, HasSubstr("--dvr needs a number of seconds"));

    for (const char* address : {"notaurl", "ftp://127.0.0.1/master.m3u8", "http:///x.m3u8"}) {
        auto refused = run({"play", address});
        EXPECT_EQ(refused.status, 2) << address;
        EXPECT_THAT(refused.err, HasSubstr("is not an absolute http, https or file URL"));
        EXPECT_EQ(refused.out, "");
    }
}

TEST_F(PlayCommandTest, CapsSpeedAndAForcedStallShowInTheStatistics) {
    // One segment of the only variant within the cap comes late: playback at twice the speed
    // runs out of media before it.
    origin::Fault late;
    late.pathPrefix = "/vod/v0/seg5.ts";
    late.delaySeconds = 8;
    origin_->faults().add(late);
    auto played = run({"play", origin_->url("/vod/master.m3u8"), "--json", "--max-bitrate",
                       "450000", "--max-resolution", "640x360", "--speed", "2", "--for", "14"});
    origin_->faults().clear();
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_THAT(played.out, HasSubstr(R"({"event":"stallStarted"})"));
    EXPECT_THAT(played.out, HasSubstr(R"({"event":"stall","duration":)"));
    EXPECT_THAT(played.out, HasSubstr(R"({"event":"stats","startupTime":)"));
    EXPECT_THAT(played.out, HasSubstr(R"("stallCount":1,)"));
    EXPECT_THAT(played.out, HasSubstr(R"("averageBitrate":383324.0,)"));
    EXPECT_THAT(played.out, Not(HasSubstr("610428"))) << "over the cap";

    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--speed", "0"},
                                                  {"--speed", "fast"},
                                                  {"--max-bitrate", "-1"},
                                                  {"--max-resolution", "640"},
                                                  {"--quality", "best"}}) {
        auto arguments = std::vector<std::string>{"play", origin_->url("/vod/master.m3u8")};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        auto refused = run(arguments);
        EXPECT_EQ(refused.status, 2) << wrong[0] << " " << wrong[1];
        EXPECT_THAT(refused.err, HasSubstr(wrong[0] + " needs"));
    }
}

TEST_F(PlayCommandTest, TheTimeLimitEndsAStreamThatHasNoEnd) {
    auto played = run({"play", origin_->url("/live/master.m3u8"), "--live", "--for", "5"});
    EXPECT_EQ(played.status, 0) << played.err;
    EXPECT_THAT(played.out, HasSubstr("playback playing"));
}

TEST_F(PlayCommandTest, AWindowShowsThePlaybackWhereThereIsADisplay) {
    unsetenv("DISPLAY");
    auto headless = run({"play", origin_->url("/vod/master.m3u8"), "--window", "--for", "1"});
    EXPECT_EQ(headless.status, 2);
    EXPECT_THAT(headless.err, HasSubstr("--window needs an X display"));

    test::XvfbDisplay display;
    if (!display.name()) {
        GTEST_SKIP() << "Xvfb is not installed";
    }
    // Long enough to reach playing under a sanitizer on a busy machine.
    auto shown =
        run({"play", origin_->url("/vod/master.m3u8"), "--window", "--for", "5", "--json"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_THAT(shown.out, HasSubstr(R"({"event":"didChangePlaybackStatus","value":"playing"})"));
    EXPECT_THAT(shown.err, Not(HasSubstr("X11 error")));
}

}  // namespace
}  // namespace zarvo
