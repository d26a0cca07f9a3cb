// What a download puts into its package, planned from playlists alone: no network, no disk.
#include <algorithm>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "zarvo/media/download/HlsPackagePlan.h"
#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/ResponseLimits.h"

namespace zarvo {
namespace {

using Plan = HlsPackagePlan;

// Plans from playlists served out of a map by URL.
std::variant<Plan, Error> plan(const std::map<std::string, std::string>& playlists,
                               const std::string& url,
                               const std::vector<Plan::Rendition>& wanted = {}) {
    return Plan::make(*Url::parse(url), wanted, std::nullopt,
                      [&](const Url& at) -> std::variant<std::string, Error> {
                          auto found = playlists.find(at.absoluteString());
                          if (found == playlists.end()) {
                              return makeStatusError(at, 404);
                          }
                          return found->second;
                      });
}

const std::string* playlistText(const Plan& plan, const std::string& path) {
    for (const auto& playlist : plan.playlists) {
        if (playlist.path == path) {
            return &playlist.text;
        }
    }
    return nullptr;
}

TEST(HlsPackagePlanTest, AMediaPlaylistIsAStreamOfOneVariantWithItsKeyMapAndRanges) {
    const std::string live =
        "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:40\n"
        "#EXT-X-KEY:METHOD=AES-128,URI=\"https://keys.example/k1\",IV=0x01\n"
        "#EXT-X-MAP:URI=\"init.mp4\",BYTERANGE=\"700@0\"\n"
        "#EXTINF:2.0,\n#EXT-X-BYTERANGE:1000@700\nmedia.mp4\n"
        "#EXTINF:2.0,\n#EXT-X-BYTERANGE:1200\nmedia.mp4\n"
        "#EXTINF:1.5,\nhttps://other.example/tail.m4s\n";
    auto made = plan({{"https://cdn.example/live/index.m3u8", live}},
                     "https://cdn.example/live/index.m3u8");
    ASSERT_TRUE(std::holds_alternative<Plan>(made)) << std::get<Error>(made).description();
    const auto& result = std::get<Plan>(made);

    EXPECT_DOUBLE_EQ(result.duration, 5.5);
    EXPECT_TRUE(result.renditions.empty());
    ASSERT_TRUE(playlistText(result, "master.m3u8"));
    EXPECT_EQ(*playlistText(result, "master.m3u8"),
              "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=0\nvideo/index.m3u8\n");
    const std::string* local = playlistText(result, "video/index.m3u8");
    ASSERT_TRUE(local);
    EXPECT_NE(local->find("URI=\"../keys/key0.key\",IV=0x01"), std::string::npos) << *local;
    EXPECT_EQ(local->find("BYTERANGE"), std::string::npos) << *local;
    EXPECT_TRUE(local->ends_with("#EXT-X-ENDLIST\n")) << "a live window is kept as a VOD";

    // The key and the map first, then each range a file of its own, in playing order.
    ASSERT_EQ(result.files.size(), 5u);
    EXPECT_EQ(result.files[0].path, "keys/key0.key");
    EXPECT_EQ(result.files[0].url.absoluteString(), "https://keys.example/k1");
    EXPECT_EQ(result.files[0].maximumLength, ResponseLimits::keyAnswer);
    EXPECT_EQ(result.files[1].path, "video/init0.mp4");
    EXPECT_EQ(result.files[1].range, (HlsPlaylistRewriter::ByteRange{0, 700}));
    EXPECT_EQ(result.files[2].range, (HlsPlaylistRewriter::ByteRange{700, 1000}));
    EXPECT_EQ(result.files[3].range, (HlsPlaylistRewriter::ByteRange{1700, 1200}));
    EXPECT_EQ(result.files[4].url.absoluteString(), "https://other.example/tail.m4s");
    EXPECT_DOUBLE_EQ(result.files[4].startSeconds, 4.0);
    EXPECT_EQ(result.files[2].maximumLength, ResponseLimits::segment(2.0));
}

TEST(HlsPackagePlanTest, AKeySharedByRenditionsIsOneFileAndALoaderKeyKeepsItsUri) {
    const std::string master =
        "#EXTM3U\n"
        "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"English\",LANGUAGE=\"eng\",DEFAULT=YES,"
        "URI=\"audio.m3u8\"\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=500000,AUDIO=\"a\"\nvideo.m3u8\n"
        "#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=90000,URI=\"iframes.m3u8\"\n";
    const std::string clear =
        "#EXTM3U\n#EXT-X-KEY:METHOD=AES-128,URI=\"/k\"\n#EXTINF:2,\ns0.ts\n#EXT-X-ENDLIST\n";
    const std::string secured =
        "#EXTM3U\n#EXT-X-KEY:METHOD=SAMPLE-AES,URI=\"skd://content-1\"\n#EXTINF:2,\n"
        "a0.ts\n#EXT-X-KEY:METHOD=AES-128,URI=\"/k\"\n#EXTINF:2,\na1.ts\n#EXT-X-ENDLIST\n";
    auto made = plan({{"http://o.example/m/master.m3u8", master},
                      {"http://o.example/m/video.m3u8", clear},
                      {"http://o.example/m/audio.m3u8", secured}},
                     "http://o.example/m/master.m3u8");
    ASSERT_TRUE(std::holds_alternative<Plan>(made)) << std::get<Error>(made).description();
    const auto& result = std::get<Plan>(made);
    EXPECT_EQ(std::count_if(result.files.begin(), result.files.end(),
                            [](const Plan::File& file) { return file.path.starts_with("keys/"); }),
              1);
    ASSERT_EQ(result.loaderKeys.size(), 1u);
    EXPECT_EQ(result.loaderKeys[0].absoluteString(), "skd://content-1");
    const std::string* audio = playlistText(result, "audio1/index.m3u8");
    ASSERT_TRUE(audio);
    EXPECT_NE(audio->find("URI=\"skd://content-1\""), std::string::npos) << *audio;
    EXPECT_NE(audio->find("URI=\"../keys/key0.key\""), std::string::npos) << *audio;
    EXPECT_EQ(playlistText(result, "master.m3u8")->find("iframes"), std::string::npos)
        << "the I-frame variant is left out";
}

TEST(HlsPackagePlanTest, WhatCannotBeDownloadedSaysWhy) {
    auto html =
        plan({{"http://o.example/index.m3u8", "<html></html>"}}, "http://o.example/index.m3u8");
    ASSERT_TRUE(std::holds_alternative<Error>(html));
    EXPECT_TRUE(isMediaError(std::get<Error>(html), MediaError::invalidPlaylist));
    EXPECT_NE(std::get<Error>(html).localizedDescription().find("is not an HLS playlist"),
              std::string::npos);

    auto iframesOnly = plan({{"http://o.example/master.m3u8",
                              "#EXTM3U\n#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=1,URI=\"i.m3u8\"\n"}},
                            "http://o.example/master.m3u8");
    ASSERT_TRUE(std::holds_alternative<Error>(iframesOnly));
    EXPECT_NE(std::get<Error>(iframesOnly).localizedDescription().find("lists no variants"),
              std::string::npos);

    auto missing = plan(
        {{"http://o.example/master.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\ngone.m3u8\n"}},
        "http://o.example/master.m3u8");
    ASSERT_TRUE(std::holds_alternative<Error>(missing));
    EXPECT_TRUE(isMediaError(std::get<Error>(missing), MediaError::resourceUnavailable));
}

}  // namespace
}  // namespace zarvo
