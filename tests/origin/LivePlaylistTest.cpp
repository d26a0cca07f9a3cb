#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "zarvo/platform/Base64.h"

#include "origin/AdCue.h"
#include "origin/LivePlaylist.h"

namespace zarvo::origin {
namespace {

// A 3-segment rendition of 2 s segments (6 s loop), one segment as a byte range.
const char* const vodPlaylist =
    "#EXTM3U\n#EXT-X-VERSION:4\n#EXT-X-TARGETDURATION:2\n#EXT-X-MEDIA-SEQUENCE:0\n"
    "#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:2.000000,\nseg0.ts\n#EXTINF:2.000000,\n"
    "#EXT-X-BYTERANGE:100@0\nall.ts\n#EXTINF:2.000000,\nseg2.ts\n#EXT-X-ENDLIST\n";

const Date epoch = Date(1'767'225'600.0);

struct Parsed {
    long long mediaSequence = -1;
    long long discontinuitySequence = -1;
    std::vector<std::string> uris;
    std::vector<std::string> dates;
    std::vector<std::string> dateRanges;
    int discontinuities = 0;
    bool endList = false;
    bool startTag = false;
};

Parsed parse(const std::string& text) {
    Parsed parsed;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::string value = line.substr(line.find(':') + 1);
        if (line.starts_with("#EXT-X-MEDIA-SEQUENCE:")) {
            parsed.mediaSequence = std::stoll(value);
        } else if (line.starts_with("#EXT-X-DISCONTINUITY-SEQUENCE:")) {
            parsed.discontinuitySequence = std::stoll(value);
        } else if (line.starts_with("#EXT-X-PROGRAM-DATE-TIME:")) {
            parsed.dates.push_back(value);
        } else if (line.starts_with("#EXT-X-DATERANGE:")) {
            parsed.dateRanges.push_back(line);
        } else if (!line.empty() && line[0] != '#') {
            parsed.uris.push_back(line);
        }
        parsed.discontinuities += line == "#EXT-X-DISCONTINUITY" ? 1 : 0;
        parsed.endList = parsed.endList || line == "#EXT-X-ENDLIST";
        parsed.startTag = parsed.startTag || line.starts_with("#EXT-X-START:");
    }
    return parsed;
}

class LivePlaylistTest : public ::testing::Test {
protected:
    SegmentList rendition = *SegmentList::parse(vodPlaylist);
    // The default 5-segment window and 10 s breaks every 30 s, with 60 s of DVR depth.
    LivePlaylist live{{.epoch = epoch, .dvrDepthSeconds = 60}, {2.0, 2.0, 2.0}};
};

TEST_F(LivePlaylistTest, TheWindowSlidesWithTheClockAndMarksLoops) {
    // 21 s after the epoch: segments 0..9 have ended; the window holds 5..9, loops start at 6, 9.
    const std::string text = live.live(rendition, epoch.addingTimeInterval(21));
    auto at21 = parse(text);
    EXPECT_EQ(at21.mediaSequence, 5);
    EXPECT_EQ(at21.uris,
              (std::vector<std::string>{"seg2.ts", "seg0.ts", "all.ts", "seg2.ts", "seg0.ts"}));
    EXPECT_FALSE(at21.endList);
    ASSERT_EQ(at21.dates.size(), 5u);
    EXPECT_EQ(at21.dates.front(), epoch.addingTimeInterval(10).iso8601());
    EXPECT_EQ(at21.dates.back(), epoch.addingTimeInterval(18).iso8601());
    EXPECT_EQ(at21.discontinuities, 2);
    EXPECT_EQ(at21.discontinuitySequence, 1);
    EXPECT_NE(text.find("#EXT-X-BYTERANGE:100@0\nall.ts"), std::string::npos);

    // Exactly at a segment's end it is published; a moment before, not yet.
    EXPECT_EQ(parse(live.live(rendition, epoch.addingTimeInterval(22))).mediaSequence, 6);
    EXPECT_EQ(parse(live.live(rendition, epoch.addingTimeInterval(21.999))).mediaSequence, 5);
    // A window starting on a loop boundary counts that boundary as already passed.
    auto boundary = parse(live.live(rendition, epoch.addingTimeInterval(29)));
    EXPECT_EQ(boundary.mediaSequence, 9);
    EXPECT_EQ(boundary.discontinuitySequence, 3);
    EXPECT_EQ(boundary.discontinuities, 1);
    // Before the epoch the first segment is offered.
    auto early = parse(live.live(rendition, epoch.addingTimeInterval(-100)));
    EXPECT_EQ(early.mediaSequence, 0);
    EXPECT_EQ(early.uris.size(), 1u);
}

TEST_F(LivePlaylistTest, DvrServesFromTheRequestedPointToTheLiveEdge) {
    const Date now = epoch.addingTimeInterval(300);  // segments 0..149 have ended
    auto whole = parse(live.dvr(rendition, now, std::nullopt));
    EXPECT_EQ(whole.mediaSequence, 120);  // 60 s of depth
    EXPECT_EQ(whole.uris.size(), 30u);
    EXPECT_FALSE(whole.startTag);

    auto tenBehind = parse(live.dvr(rendition, now, now.addingTimeInterval(-10)));
    EXPECT_EQ(tenBehind.mediaSequence, 145);
    EXPECT_EQ(tenBehind.uris.size(), 5u);
    EXPECT_TRUE(tenBehind.startTag);

    // A point inside a segment starts with that segment; points outside the depth are clamped.
    EXPECT_EQ(parse(live.dvr(rendition, now, now.addingTimeInterval(-9))).mediaSequence, 145);
    EXPECT_EQ(parse(live.dvr(rendition, now, now.addingTimeInterval(-3600))).mediaSequence, 120);
    EXPECT_EQ(parse(live.dvr(rendition, now, now.addingTimeInterval(50))).mediaSequence, 149);
}

TEST_F(LivePlaylistTest, AdvertisingCuesAppearAsDateRangesEveryInterval) {
    // Window 5..9 covers 10 s to 20 s: only the break at 0 s (0..10 s) ends before; none start.
    EXPECT_TRUE(parse(live.live(rendition, epoch.addingTimeInterval(21))).dateRanges.empty());
    // Window 13..17 covers 26 s to 36 s: the break at 30 s.
    auto parsed = parse(live.live(rendition, epoch.addingTimeInterval(36)));
    ASSERT_EQ(parsed.dateRanges.size(), 1u);
    const std::string& tag = parsed.dateRanges[0];
    EXPECT_NE(tag.find("ID=\"zm-cue-1\""), std::string::npos);
    EXPECT_NE(tag.find("START-DATE=\"" + epoch.addingTimeInterval(30).iso8601() + "\""),
              std::string::npos);
    EXPECT_NE(tag.find("DURATION=10.000"), std::string::npos);

    auto indexes = [](double from, double to) {
        std::vector<long long> found;
        for (const auto& cue : AdCue::overlapping(epoch, 30, 10, epoch.addingTimeInterval(from),
                                                  epoch.addingTimeInterval(to))) {
            found.push_back(cue.index);
        }
        return found;
    };
    EXPECT_EQ(indexes(5, 65), (std::vector<long long>{0, 1, 2}));
    EXPECT_EQ(indexes(10, 30), (std::vector<long long>{}));
    EXPECT_EQ(indexes(-50, 1), (std::vector<long long>{0}));
}

TEST(AdCue, TheClientAttributeDecodesToTheVastEvent) {
    const AdCue cue{4, Date::fromReferenceDate(1.5), 15};
    std::smatch match;
    const std::string tag = cue.dateRangeTag();
    ASSERT_TRUE(std::regex_search(tag, match, std::regex("X-AD-EVENT=\"([A-Za-z0-9_-]+)\"")));
    // URL-safe without padding: restore the standard alphabet and padding to decode.
    std::string text = match[1];
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    text.append((4 - text.size() % 4) % 4, '=');
    auto json = Base64::decode(text);
    ASSERT_TRUE(json);
    const Json value = Json::parse(*json);
    const Json& event = value.at("vast").at("event");
    std::vector<std::string> keys;
    for (const auto& [key, member] : event.items()) {
        keys.push_back(key);
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"advert-id", "advert-sequence", "break-id",
                                              "duration", "event", "id", "offset", "type", "url"}));
    EXPECT_EQ(event.at("offset"), 1500);
    EXPECT_EQ(event.at("duration"), "15");
    EXPECT_EQ(event.at("id"), "zm-cue-4");
    EXPECT_EQ(event.at("break-id"), "zm-break-4");
}

}  // namespace
}  // namespace zarvo::origin
