#include <future>

#include <gtest/gtest.h>

#include "zarvo/offline/DownloadQualityJson.h"
#include "zarvo/offline/ZMOfflineStreamInfoReader.h"

#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

bool loadAndWait(const std::shared_ptr<ZMOfflineStreamInfoReader>& reader) {
    auto done = std::make_shared<std::promise<bool>>();
    reader->loadPlaylist([done](bool success) { done->set_value(success); });
    auto outcome = done->get_future();
    if (outcome.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
        ADD_FAILURE() << "the load never finished";
        return false;
    }
    return outcome.get();
}

using Response = test::TestHttpServer::Response;

class StreamInfo : public ::testing::Test {
protected:
    void SetUp() override {
        // Both variants last 600 s.
        std::string media = "#EXTM3U\n#EXT-X-TARGETDURATION:10\n";
        for (int i = 0; i < 60; ++i) {
            media += "#EXTINF:10.0,\nseg" + std::to_string(i) + ".ts\n";
        }
        server_.on("/vod/master.m3u8",
                   Response::text(
                       "#EXTM3U\n"
                       "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"POLSKI\",URI=\"pl.m3u8\"\n"
                       "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"English\",URI=\"en.m3u8\"\n"
                       "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=2000000,RESOLUTION=1280x720\n"
                       "hd.m3u8\n"
                       "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=500000,RESOLUTION=640x360\n"
                       "sd.m3u8\n"));
        server_.on("/vod/hd.m3u8", Response::text(media + "#EXT-X-ENDLIST\n"));
        server_.on("/vod/sd.m3u8", Response::text(media + "#EXT-X-ENDLIST\n"));
        server_.on(
            "/single/master.m3u8",
            Response::text("#EXTM3U\n"
                           "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"POL\",URI=\"pl.m3u8\"\n"
                           "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=1,RESOLUTION=1x1\nv.m3u8\n"));
    }
    test::TestHttpServer server_;
};

TEST_F(StreamInfo, QualitiesWithSizeEstimates) {
    auto reader = ZMOfflineStreamInfoReader::make(*Url::parse(server_.url("/vod/master.m3u8")));
    EXPECT_TRUE(reader->availableDownloadQualities().empty()) << "nothing before loading";
    EXPECT_FALSE(reader->hasPolishVersion());
    EXPECT_EQ(reader->mediaLines(), std::nullopt);
    EXPECT_EQ(reader->estimatedOfflineSize(1000).size, 0.0);
    ASSERT_TRUE(loadAndWait(reader));
    EXPECT_TRUE(reader->hasPolishVersion());
    ASSERT_EQ(reader->hlsMasterPlaylist()->getPlaylistCount(), 2);
    auto qualities = reader->availableDownloadQualities();
    ASSERT_EQ(qualities.size(), 2u);
    // 600 s at 2 Mbit/s: video 600 * 2e6 / 7.95, audio 600 * 256000 / 7.5 or 600 * 128000 / 7.5.
    EXPECT_EQ(qualities[0].width, 1280u);
    EXPECT_EQ(qualities[0].height, 720u);
    EXPECT_EQ(qualities[0].bitrate, 2000000u);
    EXPECT_DOUBLE_EQ(qualities[0].size, 20480000.0 + 600.0 * 2000000.0 / 7.95);
    EXPECT_DOUBLE_EQ(qualities[0].sizeWithBasicAudio, 10240000.0 + 600.0 * 2000000.0 / 7.95);
    EXPECT_EQ(qualities[1].bitrate, 500000u);
    EXPECT_EQ(reader->mediaLines()->size(), 2u);
    EXPECT_EQ(reader->headerLines(), (std::vector<std::string>{"#EXTM3U", ""}));
    EXPECT_EQ(reader->subtitlesHlsLines(), std::vector<std::string>{});

    nlohmann::json json = qualities[1];
    EXPECT_EQ(json.dump(),
              R"({"bitrate":500000,"height":360,"size":)" +
                  nlohmann::json(qualities[1].size).dump() + R"(,"sizeWithBasicAudio":)" +
                  nlohmann::json(qualities[1].sizeWithBasicAudio).dump() + R"(,"width":640})");
    EXPECT_EQ(json.get<ZMDownloadQuality>(), qualities[1]);

    // A failed reload keeps the earlier results.
    server_.on("/vod/master.m3u8", Response::text("", 503));
    EXPECT_FALSE(loadAndWait(reader));
    EXPECT_EQ(reader->availableDownloadQualities().size(), 2u);
}

TEST_F(StreamInfo, PolishNeedsTwoRenditionLines) {
    auto reader = ZMOfflineStreamInfoReader::make(*Url::parse(server_.url("/single/master.m3u8")));
    ASSERT_TRUE(loadAndWait(reader));
    EXPECT_FALSE(reader->hasPolishVersion());
    EXPECT_EQ(reader->estimatedOfflineSize(8).size, 0.0) << "no media playlist: no duration";
}

}  // namespace
}  // namespace zarvo
