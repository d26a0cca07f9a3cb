#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/hls/ManifestBuilder.h"
#include "zarvo/hls/StringBufferedReader.h"
#include "zarvo/platform/FatalError.h"

#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

const ManifestBuilder builder;

std::shared_ptr<MediaPlaylist> media(const std::string& text) {
    return builder.parseMediaPlaylistFromString(text, std::make_shared<MediaPlaylist>());
}

TEST(MasterPlaylistParsing, ProgramIdAndBandwidthComeFromTheGreedyPatterns) {
    std::vector<std::shared_ptr<MediaPlaylist>> announced;
    auto master = builder.parseMasterPlaylistFromString(
        "#EXTM3U\n"
        "orphan.m3u8\n"
        "# a comment\n"
        "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=1280000\n"
        "low/index.m3u8\n"
        "\n"
        "#EXT-X-STREAM-INF:BANDWIDTH=2560000,RESOLUTION=1280x720\n"
        "#EXT-X-INDEPENDENT-SEGMENTS\n"
        "mid/index.m3u8\n"
        "again.m3u8\n",
        [&](const std::shared_ptr<MediaPlaylist>& playlist) { announced.push_back(playlist); });
    ASSERT_EQ(master->getPlaylistCount(), 3);
    auto low = master->getPlaylist(0);
    EXPECT_EQ(low->programId, 1);
    EXPECT_EQ(low->bandwidth, 1280000);
    EXPECT_EQ(low->path, "low/index.m3u8");
    EXPECT_EQ(low->masterPlaylist.lock(), master);
    auto mid = master->getPlaylist(1);
    EXPECT_EQ(mid->programId, 2560000);
    EXPECT_EQ(mid->bandwidth, 1280);
    // A second URI line updates and appends the same playlist again.
    EXPECT_EQ(master->getPlaylist(2), mid);
    EXPECT_EQ(mid->path, "again.m3u8");
    EXPECT_EQ(announced, master->playlists);
    EXPECT_EQ(master->getPlaylist(3), nullptr);
    EXPECT_EQ(master->getPlaylist(-1), nullptr);
    EXPECT_EQ(master->path, std::nullopt);
}

TEST(PlaylistParsing, StreamInfWithoutIntegersAndSegmentWithoutDurationAreFatal) {
    ScopedFatalErrorHandler fatal;
    EXPECT_THAT(
        [] {
            builder.parseMasterPlaylistFromString("#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1280\nx");
        },
        ::testing::ThrowsMessage<FatalErrorException>(
            ::testing::HasSubstr("#EXT-X-STREAM-INF:BANDWIDTH=1280")));
    // Digits that are not ASCII match the pattern but are no integer.
    EXPECT_THROW(
        builder.parseMasterPlaylistFromString("#EXT-X-STREAM-INF:PROGRAM-ID=\u0661,BANDWIDTH=1\nx"),
        FatalErrorException);
    EXPECT_EQ(MediaPlaylist().duration(), 0.0f);
    EXPECT_THROW(media("#EXTINF:x,\na.ts")->duration(), FatalErrorException);
}

TEST(MediaPlaylistParsing, HeaderValuesAndSequences) {
    auto playlist = media(
        "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:10\n#EXT-X-MEDIA-SEQUENCE:100\n"
        "#EXTINF:9.009,\na.ts\n#EXTINF:10,Second part\nb.ts\n");
    EXPECT_EQ(playlist->version, 3);
    EXPECT_EQ(playlist->targetDuration, 10);
    EXPECT_EQ(playlist->mediaSequence, 100);
    ASSERT_EQ(playlist->getSegmentCount(), 2);
    EXPECT_EQ(playlist->getSegment(0)->sequence, 100);
    EXPECT_EQ(playlist->getSegment(1)->sequence, 101);
    EXPECT_EQ(playlist->getSegment(0)->duration, 9.009f);
    EXPECT_EQ(playlist->getSegment(0)->title, "");
    EXPECT_EQ(playlist->getSegment(1)->title, "Second part");
    EXPECT_EQ(playlist->getSegment(1)->path, "b.ts");
    EXPECT_EQ(playlist->getSegment(1)->mediaPlaylist.lock(), playlist);
    EXPECT_EQ(playlist->duration(), 9.009f + 10.0f);

    // Values that are no integer stay empty; without digits the whole line is the title.
    auto unnumbered = media(
        "#EXT-X-VERSION:x\n#EXT-X-MEDIA-SEQUENCE:abc\n#EXTINF:abc,x\na.ts\n#EXTINF:12.5,a,b\nb.ts\n"
        "#EXTINF:1e1,\nc.ts");
    EXPECT_EQ(unnumbered->version, std::nullopt);
    EXPECT_EQ(unnumbered->mediaSequence, std::nullopt);
    auto first = unnumbered->getSegment(0), second = unnumbered->getSegment(1);
    EXPECT_EQ(first->sequence, 0);
    EXPECT_EQ(second->sequence, 1);
    EXPECT_EQ(first->duration, std::nullopt);
    EXPECT_EQ(first->title, "#EXTINF:abc,x");
    EXPECT_EQ(second->duration, std::nullopt) << "\"12.5,a\" is no number";
    EXPECT_EQ(second->title, "b");
    EXPECT_EQ(unnumbered->getSegment(2)->duration, 10.0f);
}

TEST(MediaPlaylistParsing, ByteRangesAndDiscontinuities) {
    auto playlist = media(
        "#EXT-X-BYTERANGE:5@5\n"  // no segment yet: ignored
        "#EXTINF:4,\n#EXT-X-BYTERANGE:1000@2000\na.ts\n"
        "#EXT-X-DISCONTINUITY\n"
        "#EXTINF:4,\n#EXT-X-BYTERANGE:1000\nb.ts\n"
        "#EXTINF:4,\n#EXT-X-DISCONTINUITY-SEQUENCE:3\n#EXT-X-BYTERANGE:x@y\nc.ts\n");
    // "length@start", "-" for an absent value and "|" for a discontinuity flag, which lands on
    // the segment before the break; a tag that begins with the name counts as the tag.
    std::vector<std::string> ranges;
    for (const auto& segment : playlist->segments) {
        auto text = [](std::optional<std::int64_t> value) {
            return value ? std::to_string(*value) : "-";
        };
        ranges.push_back(text(segment->subrangeLength) + "@" + text(segment->subrangeStart) +
                         (segment->discontinuity ? "|" : ""));
    }
    EXPECT_EQ(ranges, (std::vector<std::string>{"1000@2000|", "1000@-", "-@-|"}));
}

TEST(MediaPlaylistParsing, UriLinesAndComments) {
    std::vector<std::string> announced;
    auto playlist = builder.parseMediaPlaylistFromString(
        "#EXTM3U\r\nbefore.ts\r\n#EXTINF:2,\r\n# comment\r\nfirst.ts\r\nsecond.ts\r\n", nullptr,
        [&](const std::shared_ptr<MediaSegment>& segment) { announced.push_back(*segment->path); });
    EXPECT_EQ(announced, (std::vector<std::string>{"first.ts", "second.ts"}));
    ASSERT_EQ(playlist->getSegmentCount(), 2);
    EXPECT_EQ(playlist->getSegment(0), playlist->getSegment(1)) << "the segment stays current";
    EXPECT_EQ(playlist->getSegment(1)->sequence, 1);
}

// Segments share their storage with the other segments of their parse: one kept alone, after
// its playlist and the rest are gone, still holds its values.
TEST(MediaPlaylistParsing, SegmentsOutliveTheirPlaylist) {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "#EXTINF:2.5,t" + std::to_string(i) + "\n#EXT-X-BYTERANGE:10@" + std::to_string(i) +
                "\nsegment-with-a-long-name-" + std::to_string(i) + ".ts\n";
    }
    std::shared_ptr<MediaSegment> kept;
    {
        auto playlist = media(text);
        ASSERT_EQ(playlist->getSegmentCount(), 5000);
        kept = playlist->getSegment(4321);
    }
    EXPECT_TRUE(kept->mediaPlaylist.expired());
    EXPECT_EQ(kept->sequence, 4321);
    EXPECT_EQ(kept->duration, 2.5f);
    EXPECT_EQ(kept->title, "t4321");
    EXPECT_EQ(kept->subrangeStart, 4321);
    EXPECT_EQ(kept->path, "segment-with-a-long-name-4321.ts");
}

class PlaylistSources : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& contents) {
        auto path = home_.path() / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contents;
        return path.string();
    }
    test::TempHome home_;
};

TEST_F(PlaylistSources, FilesKeepCarriageReturnsInTheirLines) {
    auto path = write("media.m3u8", "#EXT-X-TARGETDURATION:6\r\n#EXTINF:6.0,t\r\nseg.ts\r\n");
    auto playlist = builder.parseMediaPlaylistFromFile(path, nullptr);
    EXPECT_EQ(playlist->targetDuration, std::nullopt) << "\"6\\r\" is no integer";
    ASSERT_EQ(playlist->getSegmentCount(), 1);
    EXPECT_EQ(playlist->getSegment(0)->title, "t\r");
    EXPECT_EQ(playlist->getSegment(0)->path, "seg.ts\r");
    auto masterPath = write("master.m3u8", "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=5\nv.m3u8\n");
    EXPECT_EQ(builder.parseMasterPlaylistFromFile(masterPath)->getPlaylist(0)->bandwidth, 5);
}

TEST_F(PlaylistSources, ParseFollowsRelativeAndAbsolutePaths) {
    write("vod/low.m3u8", "#EXTINF:4,\nl0.ts\n#EXTINF:4,\nl1.ts\n");
    auto absolute = Url::fileUrl(write("other/high.m3u8", "#EXTINF:2,\nh0.ts\n"));
    auto masterUrl = Url::fileUrl(write("vod/master.m3u8",
                                        "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=100\nlow.m3u8\n"
                                        "#EXT-X-STREAM-INF:PROGRAM-ID=2,BANDWIDTH=200\n" +
                                            absolute.absoluteString() + "\n"));
    int playlists = 0;
    std::vector<std::string> segments;
    auto master = builder.parse(
        masterUrl, [&](const std::shared_ptr<MediaPlaylist>&) { ++playlists; },
        [&](const std::shared_ptr<MediaSegment>& segment) { segments.push_back(*segment->path); });
    EXPECT_EQ(playlists, 2);
    EXPECT_EQ(segments, (std::vector<std::string>{"l0.ts", "l1.ts", "h0.ts"}));
    EXPECT_EQ(master->getPlaylist(0)->duration(), 8.0f);
}

TEST(PlaylistOverHttp, ParseReadsMasterAndMediaPlaylists) {
    test::TestHttpServer server;
    server.on("/vod/master.m3u8",
              test::TestHttpServer::Response::text(
                  "#EXTM3U\n#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=800000\nlow/index.m3u8\n"
                  "#EXT-X-STREAM-INF:PROGRAM-ID=1,BANDWIDTH=1600000\nmissing.m3u8\n"));
    server.on("/vod/low/index.m3u8", test::TestHttpServer::Response::text(
                                         "#EXTM3U\n#EXT-X-MEDIA-SEQUENCE:7\n#EXTINF:6,\na.ts\n"));
    auto master = builder.parse(*Url::parse(server.url("/vod/master.m3u8?token=abc")));
    ASSERT_EQ(master->getPlaylistCount(), 2);
    auto low = master->getPlaylist(0);
    ASSERT_EQ(low->getSegmentCount(), 1);
    EXPECT_EQ(low->getSegment(0)->sequence, 7);
    auto requests = server.requests();
    EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), [](const auto& request) {
        return request.path == "/vod/low/index.m3u8" && request.rawQuery == "token=abc";
    })) << "relative media playlists keep the master's query";
    EXPECT_EQ(master->getPlaylist(1)->getSegmentCount(), 0) << "an error page has no segments";

    auto unreachable = builder.parseMasterPlaylistFromURL(*Url::parse("http://127.0.0.1:1/m.m3u8"));
    EXPECT_EQ(unreachable->getPlaylistCount(), 0);
}

}  // namespace
}  // namespace zarvo
