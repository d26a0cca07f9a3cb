#include <future>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "zarvo/player/ZMPlayerError.h"
#include "zarvo/source/MainHLSInfo.h"
#include "zarvo/source/URLByReplacingLastPathComponent.h"

#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using Lines = std::vector<std::string>;

const char* kAbsoluteMaster =
    "#EXTM3U\n"
    "#EXT-X-VERSION:4\n"
    "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"aud\",LANGUAGE=\"pl\",NAME=\"Polski\","
    "URI=\"https://cdn.example/a/pl.m3u8\"\n"
    "#EXT-X-STREAM-INF:BANDWIDTH=800000,RESOLUTION=640x360,CODECS=\"avc1.4d401e,mp4a.40.2\"\n"
    "https://cdn.example/v/low.m3u8\n"
    "#EXT-X-STREAM-INF:AVERAGE-BANDWIDTH=1,BANDWIDTH=2400000,RESOLUTION=1280x720\n"
    "https://cdn.example/v/high.m3u8?sig=1&\n"
    "#EXT-X-ENDLIST";

std::optional<std::string> errorMessage(const MainHLSInfo::Result& result) {
    if (!result.error) {
        return std::nullopt;
    }
    EXPECT_EQ(result.error->domain(), "ZMPlayerErrorDomain");
    EXPECT_EQ(result.error->code(), 13);
    return result.error->localizedDescription();
}

TEST(MainHLSInfoSplit, AbsoluteMasterSortsLinesAndCarriesTheQuery) {
    auto result = MainHLSInfo::split(kAbsoluteMaster, "https://origin.example/vod/", "token=abc");
    ASSERT_FALSE(result.error) << result.error->description();
    const MainHLSInfo& info = *result.info;
    EXPECT_EQ(info.headerLines, (Lines{"#EXTM3U", "#EXT-X-VERSION:4"}));
    ASSERT_EQ(info.mediaLines.size(), 1u);
    EXPECT_EQ(info.streamsLines.size(), 5u) << "the rendition line names an m3u8 too";
    ASSERT_EQ(info.media.size(), 1u);
    EXPECT_EQ(info.media[0].index, 0);
    EXPECT_EQ(info.media[0].originalLine, info.mediaLines[0]);
    EXPECT_EQ(info.media[0].playlistUrl.absoluteString(),
              "https://cdn.example/a/pl.m3u8?token=abc");
    std::vector<std::string> streams;
    for (const auto& stream : info.streams) {
        streams.push_back(std::to_string(stream.index) + " " + std::to_string(stream.bandwidth) +
                          " " + stream.resolution + " " + std::to_string(stream.width) + "x" +
                          std::to_string(stream.height) + " " +
                          stream.playlistUrl.absoluteString());
    }
    EXPECT_EQ(streams, (Lines{"0 800000 640x360 640x360 https://cdn.example/v/low.m3u8?token=abc",
                              "1 2400000 1280x720 1280x720 "
                              "https://cdn.example/v/high.m3u8?sig=1&token=abc"}));
    EXPECT_EQ(info.currentVideoRepresentationIndex, -1);
    EXPECT_TRUE(info.subtitlesLines.empty());
}

TEST(MainHLSInfoSplit, RelativeUrisGetTheBase) {
    auto result = MainHLSInfo::split(
        "#EXTM3U\n"
        "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"en\",URI=\"subs/en.m3u8\"\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=500,RESOLUTION=320x180\n"
        "low.m3u8\n",
        "http://127.0.0.1:8080/vod/", "");
    ASSERT_FALSE(result.error) << result.error->description();
    EXPECT_EQ(result.info->mediaLines[0],
              "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"s\",NAME=\"en\","
              "URI=\"http://127.0.0.1:8080/vod/subs/en.m3u8\"");
    EXPECT_EQ(result.info->streamsLines.back(), "http://127.0.0.1:8080/vod/low.m3u8");
    EXPECT_EQ(result.info->headerLines, (Lines{"#EXTM3U", ""}));
}

TEST(MainHLSInfoSplit, FailuresNameTheirCause) {
    const std::pair<const char*, const char*> cases[] = {
        {"#EXTM3U", "No lines."},
        {"", "No lines."},
        {"x\n#EXTM3U", "No header."},
        {"low.m3u8\nhigh.m3u8", "No header."},
        {"#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1\nhttp://h/a.m3u8", "Incorrect stream info."},
        {"#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=x,RESOLUTION=1x1\nhttp://h/a.m3u8",
         "Incorrect stream info."},
        {"#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1,RESOLUTION=1x1", "Incorrect stream info."}};
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(errorMessage(MainHLSInfo::split(text, "http://h/", "")), message) << text;
    }
}

TEST(MainHLSInfoSplit, RenditionProblemsArePrinted) {
    const std::pair<const char*, const char*> cases[] = {
        {"#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,URI=\"a.m3u8\"\nhttp://h/v.m3u8",
         "No http prefix in media URI"},
        {"#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,NAME=x\nhttps://h/v.m3u8", "No URI="}};
    for (const auto& [text, problem] : cases) {
        testing::internal::CaptureStdout();
        auto result = MainHLSInfo::split(text, "http://h/", "");
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  std::string("[HLSMediaInfo] problem with parsing (") + problem + ")\n");
        EXPECT_EQ(errorMessage(result), "Incorrect media info.");
    }
}

TEST(MainHLSInfoSplit, SubtitleRenditionsForSideLoadedFiles) {
    auto result = MainHLSInfo::split(kAbsoluteMaster, "https://h/", "");
    ASSERT_TRUE(result.info);
    result.info->subtitles = {{"Polski", "pl", *Url::parse("https://s/pl.vtt")},
                              {"English", "en", *Url::parse("https://s/en.vtt")}};
    result.info->rebuildSubtitlesLines();
    EXPECT_EQ(
        result.info->subtitlesLines,
        (Lines{"#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"sub1\",LANGUAGE=\"pl\",NAME=\"Polski\","
               "AUTOSELECT=NO,DEFAULT=NO,FORCED=NO,URI=\"subtitles0.m3u8\"",
               "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"sub1\",LANGUAGE=\"en\",NAME=\"English\","
               "AUTOSELECT=NO,DEFAULT=NO,FORCED=NO,URI=\"subtitles1.m3u8\""}));
}

TEST(MainHLSInfoUrls, RootPathAndLastComponent) {
    auto root = MainHLSInfo::rootPath(*Url::parse("https://h/vod/master.m3u8?token=abc"));
    ASSERT_TRUE(root);
    EXPECT_EQ(root->base, "https://h/vod/");
    EXPECT_EQ(root->query, "token=abc");
    EXPECT_EQ(MainHLSInfo::rootPath(*Url::parse("https://h/master.m3u8"))->query, "");
    EXPECT_EQ(URLByReplacingLastPathComponent(*Url::parse("https://h/a/b.m3u8"), "c.m3u8")
                  .absoluteString(),
              "https://h/a/c.m3u8");
}

struct LoadOutcome {
    std::shared_ptr<MainHLSInfo> info;
    std::optional<Error> error;
};

LoadOutcome loadAndWait(const Url& url) {
    auto done = std::make_shared<std::promise<LoadOutcome>>();
    MainHLSInfo::load(url, [done](std::shared_ptr<MainHLSInfo> info, std::optional<Error> error) {
        done->set_value(LoadOutcome{std::move(info), std::move(error)});
    });
    auto outcome = done->get_future();
    if (outcome.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        ADD_FAILURE() << "the load never finished";
        return LoadOutcome{};
    }
    return outcome.get();
}

TEST(MainHLSInfoLoad, DownloadsAndSplitsWithTheMasterQuery) {
    test::TestHttpServer server;
    server.on("/vod/master.m3u8",
              test::TestHttpServer::Response::text(
                  "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=900,RESOLUTION=2x1\nv/a.m3u8?x=1\n"));
    server.on("/vod/broken.m3u8", test::TestHttpServer::Response::text("#EXTM3U", 500));
    auto ok = loadAndWait(*Url::parse(server.url("/vod/master.m3u8?token=abc")));
    ASSERT_TRUE(ok.info);
    EXPECT_EQ(ok.info->streams.at(0).playlistUrl.absoluteString(),
              server.url("/vod/v/a.m3u8?x=1&token=abc"));
    EXPECT_EQ(server.requests().at(0).method, "GET");

    auto failed = loadAndWait(*Url::parse(server.url("/vod/broken.m3u8")));
    ASSERT_TRUE(failed.error);
    EXPECT_EQ(failed.error->code(), 12);
    EXPECT_EQ(failed.error->localizedDescription(), "Could not download HLS playlist.");
    EXPECT_EQ(failed.error->innerError(), nullptr);

    auto refused = loadAndWait(*Url::parse("http://127.0.0.1:1/master.m3u8"));
    ASSERT_TRUE(refused.error);
    EXPECT_EQ(refused.error->code(), 12);
    EXPECT_NE(refused.error->innerError(), nullptr) << "the transport error is kept";
}

TEST(ZMPlayerErrorDomain, FairPlayErrorNamesItsCode) {
    Error fairPlay = ZMPlayerError::fairPlayInitialization(-42);
    EXPECT_EQ(fairPlay.code(), 10);
    EXPECT_EQ(fairPlay.localizedDescription(), "FairPlay initialization error with code -42");
}

}  // namespace
}  // namespace zarvo
