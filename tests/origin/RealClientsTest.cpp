#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

#include <gtest/gtest.h>
#include <httplib.h>

#include "support/CommandOutput.h"
#include "support/SampleOriginTest.h"
#include "support/TempHome.h"

namespace zarvo::origin {
namespace {

namespace fs = std::filesystem;

using test::commandOutput;

#define REQUIRE_TOOL(tool)                                                          \
    if (std::system("command -v " tool " >/dev/null 2>&1") != 0) {                  \
        GTEST_SKIP() << tool " is not installed (./zm deps installs it); skipping"; \
    }

// Real players against an origin on the real wall clock.
class RealClientsTest : public test::SampleOriginTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(origin_->isRunning());
        origin_->clearRequests();
    }

    // Live never ends: interrupt after `seconds` (and kill if that is ignored).
    static std::string gstPlay(const std::string& path, int seconds) {
        const std::string sync = seconds > 0 ? "true" : "false";
        return commandOutput((seconds > 0 ? "timeout -k 10 -s INT " + std::to_string(seconds)
                                          : "timeout -k 10 120") +
                             " gst-launch-1.0 playbin3 uri='" + origin_->url(path) +
                             "' video-sink='fakesink sync=" + sync +
                             "' audio-sink='fakesink sync=" + sync + "'");
    }
};

TEST_F(RealClientsTest, FfprobeListsTheVideoAndAudioStreams) {
    REQUIRE_TOOL("ffprobe");
    const std::string output = commandOutput(
        "timeout 60 ffprobe -v error -show_entries stream=codec_type,codec_name:"
        "stream_tags=language -of compact '" +
        origin_->url("/vod/master.m3u8") + "'");
    const std::regex video("codec_name=h264\\|codec_type=video");
    EXPECT_GE(std::distance(std::sregex_iterator(output.begin(), output.end(), video),
                            std::sregex_iterator()),
              3)
        << output;
    EXPECT_NE(output.find("codec_type=audio|tag:language=pol"), std::string::npos) << output;
    EXPECT_NE(output.find("codec_type=audio|tag:language=eng"), std::string::npos) << output;
}

TEST_F(RealClientsTest, TheProtectedCopyDecryptsWithTheLicensedKey) {
    REQUIRE_TOOL("ffprobe");
    // Point the key URI at a file holding the licence server's key, keep the segments remote.
    const test::TempHome temp;
    const fs::path& folder = temp.path();
    std::ofstream(folder / "content.key", std::ios::binary) << origin_->content().contentKey();
    httplib::Client client("127.0.0.1", origin_->port());
    auto media = client.Get("/protected/v0/index.m3u8");
    ASSERT_TRUE(media);
    std::string playlist = media->body;
    playlist = std::regex_replace(playlist, std::regex("skd://zm-sample-1"),
                                  "file://" + (folder / "content.key").string());
    playlist = std::regex_replace(playlist, std::regex("\n(seg[0-9]+\\.ts)"),
                                  "\n" + origin_->url("/protected/v0/") + "$1");
    std::ofstream(folder / "index.m3u8") << playlist;
    const std::string output = commandOutput(
        "timeout 60 ffprobe -v error -allowed_extensions ALL -protocol_whitelist "
        "file,http,tcp,crypto -show_entries stream=codec_name,width -of compact '" +
        (folder / "index.m3u8").string() + "'");
    EXPECT_NE(output.find("codec_name=h264|width=320"), std::string::npos) << output;
}

TEST_F(RealClientsTest, GstreamerPlaysTheVodToTheEnd) {
    REQUIRE_TOOL("gst-launch-1.0");
    const std::string output = gstPlay("/vod/master.m3u8", 0);
    EXPECT_NE(output.find("Got EOS"), std::string::npos) << output;
    EXPECT_EQ(output.find("ERROR"), std::string::npos) << output;
    EXPECT_GE(origin_->requestCount("/vod/v"), 10u);
}

TEST_F(RealClientsTest, GstreamerPlaysLiveForAFewSeconds) {
    REQUIRE_TOOL("gst-launch-1.0");
    const std::string output = gstPlay("/live/master.m3u8", 6);
    EXPECT_NE(output.find("Setting pipeline to PLAYING"), std::string::npos) << output;
    EXPECT_EQ(output.find("ERROR"), std::string::npos) << output;
    // It kept refreshing the sliding window.
    EXPECT_GE(origin_->requestCount("/live/v"), 3u);
}

}  // namespace
}  // namespace zarvo::origin
