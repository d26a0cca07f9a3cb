#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/offline/FPDownloadsStore.h"

#include "support/SampleOriginTest.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;
using DownloadCommandTest = test::ZmplayTest<test::SampleOriginTest>;

TEST_F(DownloadCommandTest, EachRunAddsItsDownloadToThoseOfEarlierRuns) {
    for (const char* title : {"First", "Second"}) {
        auto result =
            run({"download", origin_->url("/vod/master.m3u8"), "--title", title, "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, HasSubstr(R"("event":"didFinish")"));
    }
    auto downloads = FPDownloadsStore().getAllDownloads();
    ASSERT_EQ(downloads.size(), 2u);
    EXPECT_EQ(downloads[0]->title(), "First");
    EXPECT_EQ(downloads[1]->title(), "Second");
    for (const auto& download : downloads) {
        EXPECT_EQ(download->state(), ZMOfflineDownloadState::completed) << download->title();
    }

    auto relative = run({"download", "vod/master.m3u8"});
    EXPECT_EQ(relative.status, 2);
    EXPECT_THAT(relative.err, HasSubstr("is not an absolute http, https or file URL"));
}

}  // namespace
}  // namespace zarvo
