// zmplay playlist and zmplay info against the sample origin and local files.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/SampleOriginTest.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;
using Json = nlohmann::json;

class PlaylistAndInfoCommands : public test::ZmplayTest<test::SampleOriginTest> {
protected:
    std::string write(const std::string& name, const std::string& contents) {
        auto path = home.path() / name;
        std::ofstream(path, std::ios::binary) << contents;
        return path.string();
    }
};

TEST_F(PlaylistAndInfoCommands, MasterAndMediaPlaylistsFromTheOrigin) {
    auto result = run({"playlist", origin_->url("/vod/master.m3u8"), "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    Json model = Json::parse(result.lastLine());
    ASSERT_GE(model["playlists"].size(), 2u);
    for (const auto& playlist : model["playlists"]) {
        EXPECT_EQ(playlist["programId"], 1);
        EXPECT_GT(playlist["bandwidth"].get<long long>(), 0);
        EXPECT_THAT(playlist["path"].get<std::string>(), HasSubstr("/index.m3u8"));
    }
    auto summary = run({"playlist", origin_->url("/vod/master.m3u8"), "--summary"});
    EXPECT_EQ(summary.out, "playlists: " + std::to_string(model["playlists"].size()) + "\n");

    std::string path = model["playlists"][0]["path"];
    result = run({"playlist", origin_->url("/vod/" + path), "--media", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    model = Json::parse(result.lastLine());
    ASSERT_FALSE(model["segments"].empty());
    EXPECT_GT(model["targetDuration"].get<int>(), 0);
    double sum = 0;
    long long sequence = model["segments"][0]["sequence"];
    for (const auto& segment : model["segments"]) {
        EXPECT_EQ(segment["sequence"], sequence++);
        sum += segment["duration"].get<double>();
        EXPECT_TRUE(segment["path"].is_string());
    }
    EXPECT_NEAR(model["duration"].get<double>(), sum, 0.01);
}

TEST_F(PlaylistAndInfoCommands, LocalFilesAndMissingDurations) {
    auto path = write("media.m3u8", "#EXTINF:9.009,\na.ts\n#EXTINF:x,\nb.ts\n");
    auto result = run({"playlist", path, "--media", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    Json model = Json::parse(result.lastLine());
    EXPECT_TRUE(model["duration"].is_null()) << "a segment without duration";
    EXPECT_EQ(model["segments"][0]["duration"], 9.009);
    EXPECT_EQ(model["segments"][1]["title"], "#EXTINF:x,");
    EXPECT_TRUE(model["version"].is_null());
    auto summary = run({"playlist", path, "--media", "--summary"});
    EXPECT_EQ(summary.out, "segments: 2\nduration: unknown\n");

    auto missing = run({"playlist", (home.path() / "none.m3u8").string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.err, HasSubstr("cannot read"));
    EXPECT_EQ(run({"playlist"}).status, 2);

    auto malformed = run(
        {"playlist", write("master.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1000\nx.m3u8\n")});
    EXPECT_NE(malformed.status, 0);
    EXPECT_THAT(malformed.err, HasSubstr("#EXT-X-STREAM-INF:BANDWIDTH=1000"));
}

TEST_F(PlaylistAndInfoCommands, StreamInfoFromTheOrigin) {
    auto result = run({"info", origin_->url("/vod/master.m3u8?token=abc"), "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    Json info = Json::parse(result.lastLine());
    EXPECT_EQ(info.begin().key(), "availableDownloadQualities");
    EXPECT_TRUE(info["hasPolishVersion"].get<bool>());
    ASSERT_GE(info["availableDownloadQualities"].size(), 2u);
    for (const auto& quality : info["availableDownloadQualities"]) {
        EXPECT_GT(quality["width"].get<int>(), 0);
        EXPECT_GT(quality["bitrate"].get<int>(), 0);
        EXPECT_GT(quality["size"].get<double>(), quality["sizeWithBasicAudio"].get<double>());
    }
    EXPECT_EQ(info["headerLines"][0], "#EXTM3U");
    EXPECT_EQ(info["mediaLines"].size(), 3u);
    for (const auto& line : info["streamLines"]) {
        if (line.get<std::string>()[0] != '#') {
            EXPECT_THAT(line.get<std::string>(), HasSubstr(origin_->url("/vod/")))
                << "relative URIs are made absolute";
        }
    }
    EXPECT_TRUE(info["subtitlesHlsLines"].empty());

    auto text = run({"info", origin_->url("/vod/master.m3u8")});
    EXPECT_THAT(text.out, HasSubstr("Polish version: yes"));
    auto failed = run({"info", origin_->url("/vod/nothing.m3u8"), "--json"});
    EXPECT_EQ(failed.exit(), (test::Exit{1, ""}));
    EXPECT_THAT(failed.err, HasSubstr("could not load the stream info"));
}

}  // namespace
}  // namespace zarvo
