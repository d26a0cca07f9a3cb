#include <atomic>
#include <regex>

#include <gtest/gtest.h>
#include <httplib.h>

#include "zarvo/media/model/ContentKeyRequest.h"
#include "zarvo/platform/Json.h"

#include "origin/SampleOrigin.h"

namespace zarvo::origin {
namespace {

// One origin for the suite (the content is made once), on a clock the tests move.
class SampleOriginTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OriginOptions options;
        options.clock = [] {
            return Date(clockSeconds_.load());
        };
        origin_ = std::make_unique<SampleOrigin>(options);
        auto error = origin_->start();
        ASSERT_FALSE(error) << "origin did not start: " << error->description();
    }
    static void TearDownTestSuite() { origin_.reset(); }
    void SetUp() override {
        ASSERT_TRUE(origin_->isRunning());
        origin_->faults().clear();
        origin_->beacons().clear();
    }
    static httplib::Client client() { return httplib::Client("127.0.0.1", origin_->port()); }
    static inline std::atomic<double> clockSeconds_{1'800'000'000.0};
    static inline std::unique_ptr<SampleOrigin> origin_;
};

std::vector<std::string> uriLines(const std::string& playlist) {
    std::vector<std::string> uris;
    std::istringstream in(playlist);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') {
            uris.push_back(line);
        }
    }
    return uris;
}

long long mediaSequence(const std::string& playlist) {
    std::smatch match;
    std::regex_search(playlist, match, std::regex("#EXT-X-MEDIA-SEQUENCE:(\\d+)"));
    return match.empty() ? -1 : std::stoll(match[1]);
}

TEST_F(SampleOriginTest, VodMasterListsVariantsAndRenditionsWithRelativeUris) {
    auto response = client().Get("/vod/master.m3u8");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 200);
    EXPECT_EQ(response->get_header_value("Content-Type"), "application/vnd.apple.mpegurl");
    const std::string& master = response->body;
    EXPECT_EQ(uriLines(master),
              (std::vector<std::string>{"v0/index.m3u8", "v1/index.m3u8", "v2/index.m3u8"}));
    for (const char* expected :
         {"TYPE=AUDIO,GROUP-ID=\"audio\",NAME=\"Polski\",LANGUAGE=\"pol\"", "LANGUAGE=\"eng\"",
          "URI=\"a_pol/index.m3u8\"", "URI=\"a_eng/index.m3u8\"", "TYPE=SUBTITLES",
          "URI=\"subs/index.m3u8\"", "RESOLUTION=320x180", "RESOLUTION=480x270",
          "RESOLUTION=640x360"}) {
        EXPECT_NE(master.find(expected), std::string::npos) << expected;
    }
    std::smatch b;
    ASSERT_TRUE(std::regex_search(
        master, b,
        std::regex("BANDWIDTH=(\\d+)\n[\\s\\S]*BANDWIDTH=(\\d+)\n[\\s\\S]*BANDWIDTH=(\\d+)\n")));
    EXPECT_LT(std::stoll(b[1]), std::stoll(b[2]));
    EXPECT_LT(std::stoll(b[2]), std::stoll(b[3]));
}

TEST_F(SampleOriginTest, MediaPlaylistsAndSegmentsAreServedWithRanges) {
    auto cli = client();
    auto v0 = cli.Get("/vod/v0/index.m3u8");
    ASSERT_TRUE(v0);
    EXPECT_NE(v0->body.find("#EXT-X-ENDLIST"), std::string::npos);
    const auto segments = uriLines(v0->body);
    ASSERT_GE(segments.size(), 10u);

    auto segment = cli.Get("/vod/v0/" + segments[0]);
    ASSERT_TRUE(segment);
    EXPECT_EQ(segment->status, 200);
    EXPECT_EQ(segment->get_header_value("Content-Type"), "video/mp2t");
    EXPECT_EQ(segment->body[0], 0x47);  // transport stream sync byte

    auto part = cli.Get("/vod/v0/" + segments[0], {{"Range", "bytes=188-375"}});
    ASSERT_TRUE(part);
    EXPECT_EQ(part->status, 206);
    EXPECT_EQ(part->body, segment->body.substr(188, 188));

    // The byte-range variant points into one file.
    auto v1 = cli.Get("/vod/v1/index.m3u8");
    ASSERT_TRUE(v1);
    std::smatch match;
    ASSERT_TRUE(
        std::regex_search(v1->body, match, std::regex("#EXT-X-BYTERANGE:(\\d+)@(\\d+)\n([^\n]+)")));
    auto ranged =
        cli.Get("/vod/v1/" + match[3].str(),
                {{"Range", "bytes=" + match[2].str() + "-" +
                               std::to_string(std::stoll(match[2]) + std::stoll(match[1]) - 1)}});
    ASSERT_TRUE(ranged);
    EXPECT_EQ(ranged->status, 206);
    EXPECT_EQ(ranged->body.size(), std::stoull(match[1]));

    auto subtitles = cli.Get("/vod/subs/subs.vtt");
    ASSERT_TRUE(subtitles);
    EXPECT_EQ(subtitles->get_header_value("Content-Type"), "text/vtt");
    EXPECT_EQ(subtitles->body.rfind("WEBVTT", 0), 0u);

    EXPECT_EQ(cli.Get("/vod/nothing.m3u8")->status, 404);
    EXPECT_EQ(cli.Get("/vod/../recipe.txt")->status, 404);
    EXPECT_EQ(cli.Get("/elsewhere")->status, 404);
}

TEST_F(SampleOriginTest, ProtectedContentUsesTheSkdKeyAndTheLicenceAnswersIt) {
    auto cli = client();
    auto master = cli.Get("/protected/master.m3u8");
    ASSERT_TRUE(master);
    EXPECT_EQ(uriLines(master->body).size(), 3u);
    for (const char* rendition : {"v0", "v1", "v2", "a_pol", "a_eng"}) {
        auto media = cli.Get(std::string("/protected/") + rendition + "/index.m3u8");
        ASSERT_TRUE(media);
        EXPECT_NE(media->body.find("#EXT-X-KEY:METHOD=AES-128,URI=\"skd://zm-sample-1\""),
                  std::string::npos)
            << rendition;
    }

    const Data certificate = cli.Get("/fps/cert")->body;
    auto encode = [&](const std::string& contentId, const Data& cert) {
        return std::get<ContentKeyRequest>(ContentKeyRequest::make(cert, contentId, false))
            .encode();
    };
    auto license =
        cli.Post("/fps/license", encode("zm-sample-1", certificate), "application/octet-stream");
    ASSERT_TRUE(license);
    EXPECT_EQ(license->status, 200);
    EXPECT_EQ(ContentKeyRequest::contentKey(license->body), origin_->content().contentKey());

    // Bad requests are refused with a text body naming the problem.
    const std::pair<std::string, std::string> cases[] = {
        {"", "Empty"},
        {"garbage", "not a JSON object"},
        {encode("zm-other", certificate), "Unknown content identifier"},
        {encode("zm-sample-1", ContentKeyRequest::makeCertificate("someone-else")),
         "unknown certificate"},
    };
    for (const auto& [body, text] : cases) {
        auto response = cli.Post("/fps/license", body, "application/octet-stream");
        ASSERT_TRUE(response);
        EXPECT_EQ(response->status, 400) << body;
        EXPECT_EQ(response->get_header_value("Content-Type"), "text/plain");
        EXPECT_NE(response->body.find(text), std::string::npos) << response->body;
    }
}

TEST_F(SampleOriginTest, BeaconsAreRecordedAndRedirectsStayOnTheOrigin) {
    auto cli = client();
    ASSERT_EQ(cli.Get("/track/abc/init.gif?version=1.0&name=J%C3%B3zef%20K&flag")->status, 200);
    auto gif = cli.Get("/track/x/y/events.gif?events=a%2Cb%3Bc&plus=1%2B2");
    ASSERT_TRUE(gif);
    EXPECT_EQ(gif->get_header_value("Content-Type"), "image/gif");
    EXPECT_EQ(gif->body.substr(0, 6), "GIF89a");
    EXPECT_EQ(cli.Get("/track/abc/other.gif")->status, 404);

    auto received = cli.Get("/track/received");
    ASSERT_TRUE(received);
    EXPECT_EQ(received->get_header_value("Content-Type"), "application/json");
    EXPECT_EQ(received->body,
              R"([{"path":"/track/abc/init.gif","query":[{"name":"version","value":"1.0"},)"
              R"({"name":"name","value":"Józef K"},{"name":"flag","value":null}],)"
              R"("rawQuery":"version=1.0&name=J%C3%B3zef%20K&flag"},)"
              R"({"path":"/track/x/y/events.gif","query":[{"name":"events","value":"a,b;c"},)"
              R"({"name":"plus","value":"1+2"}],"rawQuery":"events=a%2Cb%3Bc&plus=1%2B2"}])");

    EXPECT_EQ(cli.Delete("/track/received")->status, 204);
    EXPECT_EQ(cli.Get("/track/received")->body, "[]");

    auto response = cli.Get("/redirect?to=/vod/master.m3u8");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 302);
    EXPECT_EQ(response->get_header_value("Location"), origin_->url("/vod/master.m3u8"));
    EXPECT_EQ(cli.Get("/redirect?to=http://example.com/")->status, 400);
    EXPECT_EQ(cli.Get("/redirect?to=//example.com/")->status, 400);
    EXPECT_EQ(cli.Get("/redirect")->status, 400);
}

TEST_F(SampleOriginTest, LiveAndDvrPlaylistsFollowTheClock) {
    auto cli = client();
    auto master = cli.Get("/live/master.m3u8");
    ASSERT_TRUE(master);
    EXPECT_EQ(uriLines(master->body).size(), 3u);

    auto before = cli.Get("/live/v0/index.m3u8");
    ASSERT_TRUE(before);
    EXPECT_EQ(before->body.find("#EXT-X-ENDLIST"), std::string::npos);
    EXPECT_EQ(uriLines(before->body).size(), 5u);
    clockSeconds_ += 10;
    auto after = cli.Get("/live/v0/index.m3u8");
    EXPECT_EQ(mediaSequence(after->body), mediaSequence(before->body) + 5);
    // Audio follows the same timeline, and the segments it names are served.
    auto audio = cli.Get("/live/a_eng/index.m3u8");
    EXPECT_EQ(mediaSequence(audio->body), mediaSequence(after->body));
    EXPECT_EQ(cli.Get("/live/a_eng/" + uriLines(audio->body).back())->status, 200);

    // DVR playlists honour the timeshift parameters.
    auto dvrMaster = cli.Get("/dvr/master.m3u8?dvr=60000");
    ASSERT_TRUE(dvrMaster);
    EXPECT_EQ(uriLines(dvrMaster->body)[0], "v0/index.m3u8?dvr=60000");
    EXPECT_NE(dvrMaster->body.find("URI=\"a_pol/index.m3u8?dvr=60000\""), std::string::npos);

    const long long liveEdge = mediaSequence(cli.Get("/live/v0/index.m3u8")->body) + 4;
    auto behind = cli.Get("/dvr/v0/index.m3u8?dvr=60000");
    EXPECT_EQ(mediaSequence(behind->body), liveEdge - 29);
    EXPECT_NE(behind->body.find("#EXT-X-START:TIME-OFFSET=0"), std::string::npos);

    const long long startMs =
        static_cast<long long>(Date(clockSeconds_.load()).timeIntervalSinceReferenceDate() * 1000) -
        20000;
    auto fromDate = cli.Get("/dvr/v0/index.m3u8?startTime=" + std::to_string(startMs));
    EXPECT_EQ(mediaSequence(fromDate->body), liveEdge - 9);

    // Without a usable parameter the whole DVR depth is offered.
    auto whole = cli.Get("/dvr/v0/index.m3u8?dvr=soon");
    EXPECT_EQ(uriLines(whole->body).size(), 300u);
}

TEST_F(SampleOriginTest, FaultsAreAppliedThenCleared) {
    auto cli = client();
    origin_->faults().add(*Fault::parseStatus("/vod/v2/:503:2"));
    EXPECT_EQ(cli.Get("/vod/master.m3u8")->status, 200);
    EXPECT_EQ(cli.Get("/vod/v2/index.m3u8")->status, 503);
    EXPECT_EQ(cli.Get("/vod/v2/index.m3u8")->status, 503);
    EXPECT_EQ(cli.Get("/vod/v2/index.m3u8")->status, 200);

    origin_->faults().add(*Fault::parseStatus("/fps/license:500"));
    EXPECT_EQ(cli.Post("/fps/license", "", "text/plain")->status, 500);
    EXPECT_EQ(cli.Post("/fps/license", "", "text/plain")->status, 500);
    origin_->faults().clear();
    EXPECT_EQ(cli.Post("/fps/license", "", "text/plain")->status, 400);

    // A truncated or dropped answer fails the transfer; a slow one arrives complete.
    origin_->faults().add({.pathPrefix = "/vod/v0/", .truncateAfterBytes = 1000, .count = 1});
    origin_->faults().add({.pathPrefix = "/vod/master", .dropConnection = true, .count = 1});
    origin_->faults().add(
        {.pathPrefix = "/vod/subs/", .delaySeconds = 0.05, .bytesPerSecond = 20000, .count = 1});
    auto cut = client().Get("/vod/v0/seg0.ts");
    EXPECT_FALSE(cut && cut->status == 200 && cut->body.size() > 1000);
    EXPECT_FALSE(client().Get("/vod/master.m3u8"));
    EXPECT_EQ(client().Get("/vod/master.m3u8")->status, 200);
    auto paced = client().Get("/vod/subs/subs.vtt");
    ASSERT_TRUE(paced);
    EXPECT_EQ(paced->status, 200);
    EXPECT_EQ(paced->body, client().Get("/vod/subs/subs.vtt")->body);
}

}  // namespace
}  // namespace zarvo::origin
