#include <algorithm>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"

namespace zarvo {
namespace {

using Rewriter = HlsPlaylistRewriter;
using Kind = Rewriter::ResourceKind;

struct Rewritten {
    Rewriter::Result result;
    std::vector<Rewriter::Reference> seen;
};

// Rewrites `text` read from `base`, replacing every URI with "/r/<n>" except those that
// `keep` names (by resolved URL).
Rewritten rewrite(std::string_view text, std::string_view base, Rewriter::Options options = {},
                  std::vector<std::string> keep = {}) {
    Rewritten run{.result = {}, .seen = {}};
    run.result = Rewriter::rewrite(
        text, *Url::parse(base),
        [&](const Rewriter::Reference& reference) -> std::optional<std::string> {
            run.seen.push_back(reference);
            if (std::find(keep.begin(), keep.end(), reference.url.absoluteString()) != keep.end()) {
                return std::nullopt;
            }
            return "/r/" + std::to_string(run.seen.size() - 1);
        },
        options);
    return run;
}

std::vector<std::pair<Kind, std::string>> kindsAndUrls(const Rewritten& run) {
    std::vector<std::pair<Kind, std::string>> out;
    for (const auto& reference : run.seen) {
        out.emplace_back(reference.kind, reference.url.absoluteString());
    }
    return out;
}

TEST(HlsPlaylistRewriter, MasterPlaylistRenditionsVariantsAndRewrittenText) {
    Rewritten run = rewrite(R"(#EXTM3U
#EXT-X-SESSION-DATA:DATA-ID="com.zarvo.title",URI="session.json"
#EXT-X-SESSION-KEY:METHOD=SAMPLE-AES,URI="skd://title-1",KEYFORMAT="com.apple.streamingkeydelivery"
#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID="aac",NAME="English, stereo",LANGUAGE="en",DEFAULT=YES,AUTOSELECT=YES,CHANNELS="2",URI="audio/en.m3u8"
#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="subs",NAME="English=forced",LANGUAGE="en",FORCED=YES,CHARACTERISTICS="public.easy-to-read,public.accessibility.transcribes-spoken-dialog",URI="https://cdn.example/subs/en.m3u8?t=a,b"
#EXT-X-MEDIA:TYPE=CLOSED-CAPTIONS,GROUP-ID="cc",NAME="CC1",INSTREAM-ID="CC1"
#EXT-X-STREAM-INF:BANDWIDTH=1280000,AVERAGE-BANDWIDTH=1000000,RESOLUTION=640x360,CODECS="avc1.4d401e,mp4a.40.2",AUDIO="aac",SUBTITLES="subs",CLOSED-CAPTIONS="cc"
low/index.m3u8
#EXT-X-STREAM-INF:BANDWIDTH=2560000,CODECS="avc1.4d401f,mp4a.40.2",CLOSED-CAPTIONS=NONE
# a comment between the tag and its URI
../mid.m3u8
#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=86000,URI="low/iframe.m3u8"
)",
                            "https://origin.example/title/master.m3u8?token=t");
    EXPECT_EQ(run.result.text, R"(#EXTM3U
#EXT-X-SESSION-DATA:DATA-ID="com.zarvo.title",URI="/r/0"
#EXT-X-SESSION-KEY:METHOD=SAMPLE-AES,URI="/r/1",KEYFORMAT="com.apple.streamingkeydelivery"
#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID="aac",NAME="English, stereo",LANGUAGE="en",DEFAULT=YES,AUTOSELECT=YES,CHANNELS="2",URI="/r/2"
#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="subs",NAME="English=forced",LANGUAGE="en",FORCED=YES,CHARACTERISTICS="public.easy-to-read,public.accessibility.transcribes-spoken-dialog",URI="/r/3"
#EXT-X-MEDIA:TYPE=CLOSED-CAPTIONS,GROUP-ID="cc",NAME="CC1",INSTREAM-ID="CC1"
#EXT-X-STREAM-INF:BANDWIDTH=1280000,AVERAGE-BANDWIDTH=1000000,RESOLUTION=640x360,CODECS="avc1.4d401e,mp4a.40.2",AUDIO="aac",SUBTITLES="subs",CLOSED-CAPTIONS="cc"
/r/4
#EXT-X-STREAM-INF:BANDWIDTH=2560000,CODECS="avc1.4d401f,mp4a.40.2",CLOSED-CAPTIONS=NONE
# a comment between the tag and its URI
/r/5
#EXT-X-I-FRAME-STREAM-INF:BANDWIDTH=86000,URI="/r/6"
)");
    EXPECT_EQ(kindsAndUrls(run),
              (std::vector<std::pair<Kind, std::string>>{
                  {Kind::other, "https://origin.example/title/session.json"},
                  {Kind::key, "skd://title-1"},
                  {Kind::renditionPlaylist, "https://origin.example/title/audio/en.m3u8"},
                  {Kind::renditionPlaylist, "https://cdn.example/subs/en.m3u8?t=a,b"},
                  {Kind::variantPlaylist, "https://origin.example/title/low/index.m3u8"},
                  {Kind::variantPlaylist, "https://origin.example/mid.m3u8"},
                  {Kind::variantPlaylist, "https://origin.example/title/low/iframe.m3u8"}}));
    const auto& r = run.result;
    EXPECT_TRUE(r.isMasterPlaylist);
    ASSERT_EQ(r.renditions.size(), 3u);
    EXPECT_EQ(std::tie(r.renditions[0].type, r.renditions[0].groupId, r.renditions[0].name),
              std::make_tuple("AUDIO", "aac", "English, stereo"));
    EXPECT_TRUE(r.renditions[0].isDefault && r.renditions[0].autoselect && !r.renditions[0].forced);
    EXPECT_EQ(r.renditions[0].channels, "2");
    EXPECT_EQ(r.renditions[1].name, "English=forced");
    EXPECT_EQ(r.renditions[1].characteristics,
              "public.easy-to-read,public.accessibility.transcribes-spoken-dialog");
    EXPECT_TRUE(r.renditions[1].forced);
    EXPECT_EQ(r.renditions[1].url, run.seen[3].url);
    EXPECT_EQ(r.renditions[2].instreamId, "CC1");
    EXPECT_EQ(r.renditions[2].url, std::nullopt);

    ASSERT_EQ(r.variants.size(), 3u);
    EXPECT_EQ(r.variants[0], (Rewriter::Variant{.url = run.seen[4].url,
                                                .bandwidth = 1280000,
                                                .averageBandwidth = 1000000,
                                                .resolution = "640x360",
                                                .codecs = "avc1.4d401e,mp4a.40.2",
                                                .audioGroup = "aac",
                                                .subtitlesGroup = "subs",
                                                .closedCaptionsGroup = "cc"}));
    EXPECT_EQ(r.variants[1].bandwidth, 2560000);
    EXPECT_EQ(r.variants[1].closedCaptionsGroup, std::nullopt);
    EXPECT_EQ(r.variants[1].url, run.seen[5].url);
    EXPECT_TRUE(r.variants[2].isIFrameOnly);
    EXPECT_EQ(r.variants[2].bandwidth, 86000);
    ASSERT_EQ(r.keys.size(), 1u);
    EXPECT_EQ(r.keys[0].keyFormat, "com.apple.streamingkeydelivery");
}

TEST(HlsPlaylistRewriter, LiveMediaPlaylistDatesSequencesKeysAndDateRanges) {
    Rewritten run = rewrite(R"(#EXTM3U
#EXT-X-VERSION:3
#EXT-X-TARGETDURATION:2
#EXT-X-MEDIA-SEQUENCE:14074018
#EXT-X-DISCONTINUITY-SEQUENCE:938267
#EXT-X-START:TIME-OFFSET=-4.5,PRECISE=YES
#EXT-X-DATERANGE:ID="zm-cue-938268",START-DATE="2026-11-22T18:54:00.000Z",DURATION=10.000,X-AD-EVENT="eyJ2YXN0Ijp7fX0"
#EXT-X-KEY:METHOD=AES-128,URI="skd://live-1",IV=0x0000000000000000000000000000000A
#EXT-X-PROGRAM-DATE-TIME:2026-11-22T18:53:56.000Z
#EXTINF:2.000000,
seg13.ts
#EXT-X-PROGRAM-DATE-TIME:2026-11-22T18:53:58.000Z
#EXTINF:2.000000,
seg14.ts
#EXT-X-DISCONTINUITY
#EXT-X-KEY:METHOD=AES-128,URI="../keys/k2.bin?v=1"
#EXT-X-PROGRAM-DATE-TIME:2026-11-22T18:54:00.000Z
#EXTINF:2.000000,
seg0.ts
#EXTINF:1.5,title
seg1.ts
#EXT-X-DATERANGE:ID="zm-cue-938268",END-ON-NEXT=YES,CLASS="com.zarvo.ad",END-DATE="2026-11-22T18:54:10Z",X-NOTE="a,b=c"
#EXT-X-MEDIA-SEQUENCE:7
#EXT-X-KEY:METHOD=NONE
#EXT-X-DISCONTINUITY
#EXTINF:2,
seg2.ts
#EXTINF:2,
seg3.ts
)",
                            "http://origin.example/live/chunks/index.m3u8");
    const auto& r = run.result;
    EXPECT_FALSE(r.isMasterPlaylist);
    EXPECT_EQ(std::tie(r.targetDuration, r.mediaSequence, r.discontinuitySequence),
              std::make_tuple(2, 14074018, 938267));
    EXPECT_EQ(r.start, (Rewriter::Result::Start{-4.5, true}));
    // sequence offset, date, discontinuity, key index, URL
    const std::vector<std::tuple<int, const char*, bool, std::optional<std::size_t>, const char*>>
        expected{{0, "2026-11-22T18:53:56.000Z", false, 0, "chunks/seg13.ts"},
                 {1, "2026-11-22T18:53:58.000Z", false, 0, "chunks/seg14.ts"},
                 {2, "2026-11-22T18:54:00.000Z", true, 1, "chunks/seg0.ts"},
                 {3, "2026-11-22T18:54:02.000Z", false, 1, "chunks/seg1.ts"},
                 {4, "", true, std::nullopt, "chunks/seg2.ts"},
                 {5, "", false, std::nullopt, "chunks/seg3.ts"}};
    ASSERT_EQ(r.segments.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto& [offset, date, discontinuity, key, path] = expected[i];
        const auto& segment = r.segments[i];
        EXPECT_EQ(segment.sequence, 14074018 + offset) << i;
        EXPECT_EQ(segment.programDateTime ? segment.programDateTime->iso8601() : "", date) << i;
        EXPECT_EQ(segment.discontinuity, discontinuity) << i;
        EXPECT_EQ(segment.keyIndex, key) << i;
        EXPECT_EQ(segment.url->absoluteString(), std::string("http://origin.example/live/") + path);
    }
    EXPECT_EQ(r.segments[3].duration, 1.5);

    ASSERT_EQ(r.keys.size(), 3u);
    EXPECT_EQ(r.keys[0], (Rewriter::Key{.method = "AES-128",
                                        .url = Url::parse("skd://live-1"),
                                        .iv = "0x0000000000000000000000000000000A"}));
    EXPECT_EQ(r.keys[1].url->absoluteString(), "http://origin.example/live/keys/k2.bin?v=1");
    EXPECT_EQ(r.keys[2].method, "NONE");
    EXPECT_EQ(r.keys[2].url, std::nullopt);
    EXPECT_EQ(std::tie(run.seen[0].kind, run.seen[3].kind, run.seen[4].kind),
              std::make_tuple(Kind::key, Kind::key, Kind::segment));

    ASSERT_EQ(r.dateRanges.size(), 2u);
    const auto& cue = r.dateRanges[0];
    EXPECT_EQ(cue.id, "zm-cue-938268");
    EXPECT_EQ(cue.startDate->iso8601(), "2026-11-22T18:54:00.000Z");
    EXPECT_EQ(cue.duration, 10.0);
    EXPECT_EQ(cue.attributes.back(),
              (std::pair<std::string, std::string>("X-AD-EVENT", "eyJ2YXN0Ijp7fX0")));
    const auto& end = r.dateRanges[1];
    EXPECT_TRUE(end.endOnNext);
    EXPECT_EQ(end.classAttribute, "com.zarvo.ad");
    EXPECT_EQ(end.endDate->iso8601(), "2026-11-22T18:54:10.000Z");
    EXPECT_EQ(end.attributes.size(), 5u);
    EXPECT_EQ(end.attributes.back().second, "a,b=c");
}

TEST(HlsPlaylistRewriter, ByteRangesGetExplicitOffsetsAndLeaveWithTheirMappedUri) {
    const std::string text = R"(#EXTM3U
#EXT-X-MAP:BYTERANGE="720",URI="main.mp4"
#EXTINF:4,
#EXT-X-BYTERANGE:1000
main.mp4
#EXT-X-BYTERANGE:2000@5000
#EXTINF:4,
main.mp4
#EXT-X-BYTERANGE:99
#EXT-X-BYTERANGE:300
#EXTINF:4,
main.mp4
#EXT-X-PART:DURATION=1,URI="main.mp4",BYTERANGE="50"
#EXTINF:4,
#EXT-X-BYTERANGE:400
other.mp4
#EXT-X-BYTERANGE:10
)";
    const std::vector<std::pair<std::int64_t, std::int64_t>> ranges{
        {0, 720}, {720, 1000}, {5000, 2000}, {7000, 300}, {0, 50}, {0, 400}};
    const std::string main = "http://h/main.mp4", other = "http://h/other.mp4";
    struct Case {
        bool keepByteRanges;
        std::vector<std::string> keep;
        std::string expected;
    } cases[] = {
        {false, {}, R"(#EXTM3U
#EXT-X-MAP:URI="/r/0"
#EXTINF:4,
/r/1
#EXTINF:4,
/r/2
#EXTINF:4,
/r/3
#EXT-X-PART:DURATION=1,URI="/r/4"
#EXTINF:4,
/r/5
#EXT-X-BYTERANGE:10
)"},
        {true, {}, R"(#EXTM3U
#EXT-X-MAP:BYTERANGE="720@0",URI="/r/0"
#EXTINF:4,
#EXT-X-BYTERANGE:1000@720
/r/1
#EXT-X-BYTERANGE:2000@5000
#EXTINF:4,
/r/2
#EXT-X-BYTERANGE:300@7000
#EXTINF:4,
/r/3
#EXT-X-PART:DURATION=1,URI="/r/4",BYTERANGE="50@0"
#EXTINF:4,
#EXT-X-BYTERANGE:400@0
/r/5
#EXT-X-BYTERANGE:10
)"},
        // A range stays with a URI the mapper keeps.
        {false, {other}, R"(#EXTM3U
#EXT-X-MAP:URI="/r/0"
#EXTINF:4,
/r/1
#EXTINF:4,
/r/2
#EXTINF:4,
/r/3
#EXT-X-PART:DURATION=1,URI="/r/4"
#EXTINF:4,
#EXT-X-BYTERANGE:400@0
other.mp4
#EXT-X-BYTERANGE:10
)"},
    };
    for (const Case& c : cases) {
        Rewritten run =
            rewrite(text, "http://h/index.m3u8", {.keepByteRanges = c.keepByteRanges}, c.keep);
        EXPECT_EQ(run.result.text, c.expected);
        ASSERT_EQ(run.seen.size(), ranges.size());
        for (std::size_t i = 0; i < ranges.size(); ++i) {
            EXPECT_EQ(run.seen[i].url.absoluteString(), i == 5 ? other : main);
            EXPECT_EQ(run.seen[i].byteRange,
                      (Rewriter::ByteRange{ranges[i].first, ranges[i].second}))
                << i;
        }
        EXPECT_EQ(run.seen[0].kind, Kind::initializationSection);
        EXPECT_EQ(run.result.segments[2].byteRange, run.seen[3].byteRange);
    }
}

TEST(HlsPlaylistRewriter, GarbageIsKeptAndOnlyUrlReferencesAreMapped) {
    const struct {
        std::string text;
        std::string expected;
        std::size_t references;
    } cases[] = {
        {"", "", 0},
        {"\xEF\xBB\xBF\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:1,\r\r\na.ts\r\n",
         "#EXTM3U\n#EXTINF:1,\n/r/0\n", 1},
        {"#EXTINF:x\nseg 1.ts\n#EXT-X-KEY:METHOD=AES-128,URI=\"k y\"\n\n\n",
         "#EXTINF:x\nseg 1.ts\n#EXT-X-KEY:METHOD=AES-128,URI=\"k y\"\n\n\n", 0},
        {"#EXT-X-MEDIA:TYPE=AUDIO,URI=\"a,b=c.m3u8", "#EXT-X-MEDIA:TYPE=AUDIO,URI=\"/r/0\"\n", 1},
        {"#EXT-X-KEY:junk,,METHOD=AES-128 ,URI = k.bin trailing,=,IV",
         "#EXT-X-KEY:junk,,METHOD=AES-128 ,URI = k.bin trailing,=,IV\n", 0},
        {"#EXT-X-KEY:junk,,METHOD=AES-128 ,URI = \"k\"trailing,=,IV",
         "#EXT-X-KEY:junk,,METHOD=AES-128 ,URI = \"/r/0\"trailing,=,IV\n", 1},
        {"#EXT-X-FOO:A=\"URI=x\",URI=x.json\n# URI=\"c\"\n #EXTINF:1\norphan\n\x01\xff",
         "#EXT-X-FOO:A=\"URI=x\",URI=\"/r/0\"\n# URI=\"c\"\n #EXTINF:1\n/r/1\n\x01\xff\n", 2},
        {"#EXT-X-BYTERANGE:abc\n#EXT-X-BYTERANGE:9223372036854775807@1\n#EXTINF:1,\na.ts\n",
         "#EXT-X-BYTERANGE:abc\n#EXTINF:1,\n/r/0\n", 1},
        {"#EXT-X-MAP:URI=\"i.mp4\"\r,BYTERANGE=\"1@9223372036854775807\",BYTERANGE=\"2\"",
         "#EXT-X-MAP:URI=\"/r/0\"\n", 1},
    };
    for (const auto& c : cases) {
        Rewritten run = rewrite(c.text, "http://h/a/index.m3u8");
        EXPECT_EQ(run.result.text, c.expected) << c.text;
        EXPECT_EQ(run.seen.size(), c.references) << c.text;
        for (const auto& reference : run.seen) {
            EXPECT_TRUE(reference.url.absoluteString().starts_with("http://h/a/")) << c.text;
            EXPECT_EQ(reference.byteRange, std::nullopt) << c.text;
        }
        auto again = Rewriter::rewrite(run.result.text, *Url::parse("http://h/a/index.m3u8"),
                                       [](const auto&) { return std::nullopt; });
        EXPECT_EQ(again.text, run.result.text) << c.text;
    }
    // Invalid segment URIs still take their place in the timeline.
    Rewritten invalid =
        rewrite("#EXTINF:1,\nseg 1.ts\n#EXTINF:1,\nb.ts\n", "http://h/a/index.m3u8");
    ASSERT_EQ(invalid.result.segments.size(), 2u);
    EXPECT_EQ(invalid.result.segments[0].url, std::nullopt);
    EXPECT_EQ(invalid.result.segments[1].sequence, 1);
    // The mapper's text cannot end a quoted string or a line.
    auto quoted =
        Rewriter::rewrite("#EXT-X-MAP:URI=\"i.mp4\"\n#EXTINF:1,\na.ts\n", *Url::parse("http://h/"),
                          [](const auto&) { return std::string("x\"y\r\nz"); });
    EXPECT_EQ(quoted.text, "#EXT-X-MAP:URI=\"x%22y%0D%0Az\"\n#EXTINF:1,\nx%22y%0D%0Az\n");
}

}  // namespace
}  // namespace zarvo
