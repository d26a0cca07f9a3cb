#include <algorithm>

#include <gtest/gtest.h>

#include "zarvo/platform/Base64.h"
#include "zarvo/player/PlayerMetadataJson.h"
#include "zarvo/player/ZMMetadataHolder.h"

namespace zarvo {
namespace {

// The URL-safe, unpadded Base64 of {"vast": {"event": ...}} that a date-range item carries.
std::string item(const Json& event, bool urlSafe = true) {
    std::string text = Base64::encode(json::dump(Json{{"vast", Json{{"event", event}}}}));
    if (urlSafe) {
        std::replace(text.begin(), text.end(), '+', '-');
        std::replace(text.begin(), text.end(), '/', '_');
        text.erase(text.find_last_not_of('=') + 1);
    }
    return text;
}

DateRangeMetadataGroup group(std::vector<std::optional<std::string>> values) {
    DateRangeMetadataGroup result{"ad", std::nullopt, Date(), std::nullopt, {}};
    for (auto& value : values) {
        result.items.push_back({"lsdr/X-AD", "X-AD", std::move(value)});
    }
    return result;
}

ZMPlayerMetadataEvent ad(std::string id, long long offset, std::string duration) {
    ZMPlayerMetadataEvent result;
    result.identifier = std::move(id);
    result.offset = offset;
    result.duration = std::move(duration);
    return result;
}

Date at(double secondsSince2001) {
    return Date::fromReferenceDate(secondsSince2001);
}

TEST(ZMPlayerMetadataEventTest, JsonKeysRoundTripAndMistypedMembersThrow) {
    ZMPlayerMetadataEvent full{"a", "2", "b", "15.5", "start", "e", 1000, "linear", "https://t"};
    Json written = full;
    EXPECT_EQ(json::dump(written),
              R"({"advert-id":"a","advert-sequence":"2","break-id":"b","duration":"15.5",)"
              R"("event":"start","id":"e","offset":1000,"type":"linear","url":"https://t"})");
    EXPECT_EQ(written.get<ZMPlayerMetadataEvent>(), full);
    auto partial =
        Json::parse(R"({"id":"x","offset":null,"extra":1})").get<ZMPlayerMetadataEvent>();
    EXPECT_EQ(json::dump(Json(partial)), R"({"id":"x"})");

    for (const char* wrong : {R"({"id":5})", R"({"offset":"1000"})", R"({"offset":1.5})", "[]"}) {
        EXPECT_THROW(Json::parse(wrong).get<ZMPlayerMetadataEvent>(), Json::exception) << wrong;
    }
}

TEST(ZMPlayerMetadataEventTest, SpanRunsFromOffsetForDurationBothEndsIncluded) {
    auto event = ad("a", 1000, "15");
    EXPECT_TRUE(event.contains(at(1)));
    EXPECT_TRUE(event.contains(at(16)));
    EXPECT_FALSE(event.contains(at(0.999)));
    EXPECT_FALSE(event.contains(at(16.001)));
    EXPECT_EQ(ad("b", 1000, "1.5e1").endDate(), at(16));
    for (const char* notANumber : {"", "fifteen", "15s", " 15", "--1"}) {
        EXPECT_EQ(ad("c", 1000, notANumber).endDate(), at(1)) << notANumber;
    }
    EXPECT_EQ(ZMPlayerMetadataEvent().endDate(), at(0));
}

TEST(ZMMetadataHolderTest, DecodingAcceptsUrlSafeUnpaddedTextAndSkipsBadItems) {
    // "???" and ">>>" encode with "/" and "+"; three lengths need 0, 1 and 2 pad characters.
    for (std::string id : {">>>???", ">>>???1", ">>>???12"}) {
        auto event = ad(id, 5000, "10");
        ASSERT_NE(item(Json(event), false).find_first_of("+/"), std::string::npos);
        EXPECT_EQ(ZMMetadataHolder::decode(item(Json(event))), event);
        EXPECT_EQ(ZMMetadataHolder::decode(item(Json(event), false)), event);
    }

    std::vector<std::optional<std::string>> bad = {
        "!!!!",
        "A",
        Base64::encode("not json"),
        Base64::encode("{\"vast\":{\"event\":{\"id\":\"\xff\"}}}"),
        Base64::encode(R"({"event":{"id":"x"}})"),
        item(Json::parse(R"({"offset":"1"})")),
        std::nullopt};
    ZMMetadataHolder holder;
    bad.push_back(item(Json(ad("good", 0, "1"))));
    holder.collect({group(bad)});
    EXPECT_EQ(holder.size(), 1u);
}

TEST(ZMMetadataHolderTest, EventsAreReportedOnceWhileTheirSpanContainsTheDate) {
    auto first = ad("first", 1000, "15");
    auto second = ad("second", 10000, "5");
    auto later = ad("later", 60000, "30");
    ZMMetadataHolder holder;
    holder.collect({group({item(Json(second)), item(Json(first))}), group({item(Json(later))})});
    holder.collect({group({item(Json(first))})});
    EXPECT_EQ(holder.size(), 3u);

    EXPECT_TRUE(holder.dueEvents(std::nullopt).empty());
    EXPECT_TRUE(holder.dueEvents(at(0.5)).empty());
    EXPECT_EQ(holder.dueEvents(at(12)), (std::vector{second, first}));  // collecting order
    EXPECT_TRUE(holder.dueEvents(at(12.5)).empty());

    // Delivered again after reporting: still reported.
    holder.collect({group({item(Json(first)), item(Json(later))})});
    EXPECT_TRUE(holder.dueEvents(at(14)).empty());
    EXPECT_EQ(holder.dueEvents(at(70)), std::vector{later});

    // A new item starts over.
    holder.clear();
    EXPECT_TRUE(holder.dueEvents(at(70)).empty());
    holder.collect({group({item(Json(first))})});
    EXPECT_EQ(holder.dueEvents(at(14)), std::vector{first});
}

}  // namespace
}  // namespace zarvo
