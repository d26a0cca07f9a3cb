#include <algorithm>
#include <cctype>
#include <iterator>

#include <gtest/gtest.h>

#include "zarvo/platform/DeviceInfo.h"
#include "zarvo/platform/Json.h"
#include "zarvo/tracking/InternalTrackingEventJson.h"

#include "TrackingTestSupport.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

using Strings = std::vector<std::string>;

Strings names(const std::vector<UrlQueryItem>& items) {
    Strings result;
    std::transform(items.begin(), items.end(), std::back_inserter(result),
                   [](const UrlQueryItem& item) { return item.name; });
    return result;
}

ZMTrackingSessionDeviceInfo minimalDevice() {
    return {std::nullopt, std::nullopt, "dev-1",      std::nullopt, std::nullopt, std::nullopt,
            std::nullopt, std::nullopt, std::nullopt, "AVPLAYER",   std::nullopt, "V1"};
}

TEST(TrackingEventTest, CodesValuesAndEventsTextsRenderAsText) {
    const std::pair<ZMTrackingEvent, std::string> rows[] = {
        {ZMTrackingEvent::playing(10), "0,12,30,10"},
        {ZMTrackingEvent::paused(0), "2,12,30,0"},
        {ZMTrackingEvent::seeking(-42), "3,12,30,-42"},
        {ZMTrackingEvent::error(3), "8,12,30,3"},
        {ZMTrackingEvent::audioTrackChanged("x,y;z"), "9,12,30,x,y;z"},
        {ZMTrackingEvent::subtitleTrackChanged("en"), "10,12,30,en"},
    };
    std::vector<ZMInternalTrackingEvent> events;
    for (const auto& [event, text] : rows) {
        events.push_back(ZMInternalTrackingEvent::make(event, 12, 30));
        EXPECT_EQ(events.back().text(), text);
    }
    EXPECT_EQ(ZMInternalTrackingEvent::eventsText({}), "");
    EXPECT_EQ(ZMInternalTrackingEvent::eventsText({events[4], events[1]}),
              "9,12,30,x,y;z;2,12,30,0");

    EXPECT_EQ(ZMTrackingEvent::fromText("videoTrackChanged", "720"),
              ZMTrackingEvent::videoTrackChanged(720));
    EXPECT_EQ(ZMTrackingEvent::fromText("audioTrackChanged", "12x"),
              ZMTrackingEvent::audioTrackChanged("12x"));
    EXPECT_FALSE(ZMTrackingEvent::fromText("playing", "12x"));
    EXPECT_FALSE(ZMTrackingEvent::fromText("playing", ""));
    EXPECT_FALSE(ZMTrackingEvent::fromText("dancing", "1"));
}

TEST(TrackingQueryItemsTest, KeepFieldOrderDropAbsentFieldsAndNeverNameTheEndpoint) {
    EXPECT_EQ(names(minimalDevice().queryItems()),
              (Strings{"deviceId", "rendererType", "version"}));
    EXPECT_EQ(names(test::sampleDevice().queryItems()),
              (Strings{"agent", "agentVersion", "deviceId", "maker", "mimeType", "os", "osVersion",
                       "platform", "playerVersion", "rendererType", "terminal", "version"}));
    EXPECT_EQ(test::sampleDevice().queryItems()[1], (UrlQueryItem{"agentVersion", "1.0 (7)"}));

    // Optional content items go last.
    ZMTrackingSessionContentInfo plain(7, 8, 3600, "http://collector/t", 9, "VOD", "S-1",
                                       std::nullopt, "http://cdn/x.m3u8");
    auto items = plain.queryItems();
    EXPECT_EQ(names(items), (Strings{"contentId", "customerId", "duration", "productId",
                                     "productType", "sessionId", "url"}));
    EXPECT_EQ(items[2].value, "3600");
    items = ZMTrackingSessionContentInfo(7, 8, 3600, "http://collector/t", 9, "Title", "VOD", "S-1",
                                         11, 12, "http://cdn/x.m3u8")
                .queryItems();
    ASSERT_EQ(items.size(), 10u);
    EXPECT_EQ(
        std::vector<UrlQueryItem>(items.begin() + 7, items.end()),
        (std::vector<UrlQueryItem>{
            {"subscriberId", "11"}, {"subscriberProfileId", "12"}, {"productTitle", "Title"}}));
}

TEST(TrackingDeviceInfoTest, DescribesThisMachineWithTheFixedTexts) {
    test::TempHome home;  // the vendor identifier is kept in this home's user defaults
    ZMTrackingSessionDeviceInfo device;
    using Texts = std::vector<std::optional<std::string>>;
    EXPECT_EQ((Texts{device.agent, device.maker, device.mimeType, device.rendererType,
                     device.terminal, device.version, device.os, device.osVersion}),
              (Texts{DeviceInfo::machine(), "Apple", "HLS", "AVPLAYER", "PC", "V1",
                     DeviceInfo::systemName(), DeviceInfo::systemVersion()}));
    ASSERT_TRUE(device.platform && device.os);
    std::string upper = *device.os;
    std::transform(upper.begin(), upper.end(), upper.begin(), ::toupper);
    EXPECT_EQ(device.platform, upper);
    EXPECT_EQ(device.deviceId.size(), 36u);
    EXPECT_TRUE(std::none_of(device.deviceId.begin(), device.deviceId.end(), ::isupper));
    EXPECT_EQ(ZMTrackingSessionDeviceInfo().deviceId, device.deviceId);
}

TEST(TrackingStorageDataTest, EncodesKeysInOrderDecodesBackAndRejectsOtherDocuments) {
    ZMTrackingSessionStorageData data(
        minimalDevice(), ZMTrackingSessionContentInfo(7, 8, 60, "http://c/t", 9, std::nullopt,
                                                      "VOD", "S-1", 11, std::nullopt, "u"));
    data.sessionState = ZMTrackingSessionStorageState::initialized;
    data.events.push_back(
        ZMInternalTrackingEvent::make(ZMTrackingEvent::audioTrackChanged("\"pl\"\n\\"), 3, 4));
    data.events.push_back(ZMInternalTrackingEvent::make(ZMTrackingEvent::playing(5), 6, 7));

    std::string text = data.encode();
    auto json = Json::parse(text);
    Strings keys;
    for (const auto& [key, value] : json.items()) {
        keys.push_back(key);
    }
    EXPECT_EQ(keys, (Strings{"storageFileVersion", "deviceInfo", "contentInfo", "sessionState",
                             "events"}));
    EXPECT_EQ(json["storageFileVersion"], "v1");
    EXPECT_EQ(json["sessionState"], "initialized");
    EXPECT_FALSE(json["deviceInfo"].contains("agent"));
    EXPECT_FALSE(json["contentInfo"].contains("productTitle"));
    EXPECT_EQ(json["events"][0], InternalTrackingEventJson::toJson(data.events[0]));

    EXPECT_EQ(ZMTrackingSessionStorageData::decode(text), data);
    auto without = [&](auto edit) {
        Json copy = json;
        edit(copy);
        return ZMTrackingSessionStorageData::decode(copy.dump()).has_value();
    };
    EXPECT_FALSE(ZMTrackingSessionStorageData::decode("{\"storageFileVersion\":"));
    EXPECT_FALSE(ZMTrackingSessionStorageData::decode("[]"));
    EXPECT_FALSE(without([](Json& j) { j["storageFileVersion"] = "v2"; }));
    EXPECT_FALSE(without([](Json& j) { j["sessionState"] = "paused"; }));
    EXPECT_FALSE(without([](Json& j) { j["deviceInfo"].erase("deviceId"); }));
    EXPECT_FALSE(without([](Json& j) { j["contentInfo"]["contentId"] = "7"; }));
    EXPECT_FALSE(without([](Json& j) { j["events"] = Json::array({{{"eventType", 1}}}); }));
}

}  // namespace
}  // namespace zarvo
