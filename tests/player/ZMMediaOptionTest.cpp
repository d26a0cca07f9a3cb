#include <gtest/gtest.h>

#include "zarvo/platform/Uuid.h"
#include "zarvo/player/ZMMediaOption.h"

namespace zarvo {
namespace {

using Type = MediaSelectionOption::MediaType;

MediaSelectionOption rendition(Type type, std::string name, std::optional<std::string> lang = {}) {
    MediaSelectionOption::Rendition r;
    r.mediaType = type;
    r.name = std::move(name);
    r.language = std::move(lang);
    return MediaSelectionOption(r);
}

std::vector<std::string> titles(const std::vector<ZMMediaOption>& options) {
    std::vector<std::string> result;
    for (const auto& option : options) {
        result.push_back(option.title());
    }
    return result;
}

TEST(ZMMediaOptionTest, IdentifiersAreFreshUuidsExceptTheSharedNoSubtitlesOne) {
    auto english = rendition(Type::subtitle, "English", "en");
    ZMMediaOption first(english, MediaCharacteristic::legible());
    EXPECT_TRUE(Uuid::isValid(first.uid()));
    EXPECT_NE(first.uid(), ZMMediaOption(english, MediaCharacteristic::legible()).uid());
    EXPECT_EQ(first.title(), "English");

    ZMMediaOption off("Off", ZMMediaOptionType::noSubtitles());
    EXPECT_EQ(off.uid(), "no-subtitles");
    EXPECT_TRUE(off.type().isNoSubtitles());
    EXPECT_EQ(off.locale(), std::nullopt);

    ZMMediaOption speed("1.5x", ZMMediaOptionType::speedRate(1.5f));
    EXPECT_TRUE(Uuid::isValid(speed.uid()));
    EXPECT_NE(ZMMediaOption("1.5x", ZMMediaOptionType::speedRate(1.5f)).uid(), speed.uid());
}

TEST(ZMMediaOptionTest, DerivedPropertiesFollowTheTypeAndCharacteristic) {
    auto polish = rendition(Type::audio, "Polski", "pl");
    ZMMediaOption audible(polish, MediaCharacteristic::audible());
    EXPECT_EQ(audible.audioSelectionOption(), polish);
    EXPECT_EQ(audible.internalSubtitleSelectionOption(), std::nullopt);
    EXPECT_EQ(audible.speedRate(), std::nullopt);
    EXPECT_EQ(audible.locale()->lang(), "pl");

    auto english = rendition(Type::subtitle, "English", "en-US");
    ZMMediaOption legible(english, MediaCharacteristic::legible());
    EXPECT_EQ(legible.internalSubtitleSelectionOption(), english);
    EXPECT_EQ(legible.audioSelectionOption(), std::nullopt);
    EXPECT_EQ(legible.locale()->lang(), "en");
    EXPECT_EQ(
        ZMMediaOption(rendition(Type::subtitle, "?"), MediaCharacteristic::legible()).locale(),
        std::nullopt);

    ZMSubtitles file("https://cdn.example/pl.vtt", "Polski", Locale("pl_PL"),
                     ZMSubtitleMimeType::webVTT);
    ZMMediaOption external("Polski", ZMMediaOptionType::external(file));
    EXPECT_EQ(external.locale()->lang(), "pl");
    EXPECT_EQ(external.audioSelectionOption(), std::nullopt);

    ZMMediaOption speed("1.5x", ZMMediaOptionType::speedRate(1.5f));
    EXPECT_EQ(speed.speedRate(), 1.5f);
    EXPECT_EQ(speed.locale(), std::nullopt);
}

TEST(ZMMediaOptionTest, ListMapsTheGroupOrTakesTheMappingAndDropsClosedCaptions) {
    auto legible = MediaCharacteristic::legible();
    MediaSelectionGroup group(legible, {rendition(Type::subtitle, "English", "en"),
                                        rendition(Type::closedCaption, "English CC", "en"),
                                        rendition(Type::subtitle, "Polski", "pl"),
                                        rendition(Type::subtitle, "cc lower")});
    auto options = ZMMediaOption::list(group, legible);
    EXPECT_EQ(titles(options), (std::vector<std::string>{"English", "Polski", "cc lower"}));
    EXPECT_EQ(options[1].internalSubtitleSelectionOption(), group.options()[2]);
    EXPECT_TRUE(ZMMediaOption::list(std::nullopt, legible).empty());

    using List = std::optional<std::vector<ZMMediaOption>>;
    std::vector<MediaSelectionOption> seen;
    auto mapped = ZMMediaOption::list(group, legible, [&](const auto& groupOptions) -> List {
        seen = groupOptions;
        return std::vector{ZMMediaOption("Off", ZMMediaOptionType::noSubtitles()),
                           ZMMediaOption("Mine CC", ZMMediaOptionType::noSubtitles())};
    });
    EXPECT_EQ(seen, group.options());
    EXPECT_EQ(titles(mapped), std::vector<std::string>{"Off"});

    auto none = [](const auto&) {
        return List();
    };
    EXPECT_EQ(titles(ZMMediaOption::list(group, legible, none)), titles(options));
    auto empty = [](const auto&) {
        return List(std::in_place);
    };
    EXPECT_TRUE(ZMMediaOption::list(group, legible, empty).empty());
}

}  // namespace
}  // namespace zarvo
