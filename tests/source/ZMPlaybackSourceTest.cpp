#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/source/ZMPlaybackSource.h"

#include "support/ScriptedMediaEngine.h"

namespace zarvo {
namespace {

Url url(const char* text) {
    return *Url::parse(text);
}

std::string playbackAddress(const char* address, const ZMPlaybackSourceOptions& options) {
    const auto playback = ZMPlaybackSource(url(address), options).playbackURL();
    return playback ? playback->absoluteString() : "<none>";
}

TEST(ZMPlaybackSourceTest, StreamTypeFollowsLivenessAndTimeshiftType) {
    const auto type = [](const ZMPlaybackSourceOptions& options) {
        return ZMPlaybackSource(url("https://cdn/a.m3u8"), options).streamType();
    };
    EXPECT_EQ(type(ZMPlaybackSourceOptions(false)), ZMStreamType::vod);
    EXPECT_EQ(type(ZMPlaybackSourceOptions(true)), ZMStreamType::live);
    EXPECT_EQ(type(ZMPlaybackSourceOptions(std::nullopt, true)), ZMStreamType::live);
    EXPECT_EQ(type(ZMPlaybackSourceOptions(ZMPlaybackTimeshift(60), false)),
              ZMStreamType::dvrWindowLive);
    EXPECT_EQ(type(ZMPlaybackSourceOptions(ZMPlaybackTimeshift(Date(1)), true)),
              ZMStreamType::startTimeLive);
}

TEST(ZMPlaybackSourceTest, TimeshiftIsAppendedToTheAddressTextOnlyWhenAsked) {
    const ZMPlaybackTimeshift dvr(60);
    const ZMPlaybackTimeshift unnamed(60, std::nullopt);
    const ZMPlaybackTimeshift dated(Date::fromReferenceDate(100));
    const struct {
        const char* address;
        const ZMPlaybackTimeshift& timeshift;
        const char* expected;
    } cases[] = {
        {"https://cdn/a.m3u8", dvr, "https://cdn/a.m3u8?dvr=60000"},
        {"https://cdn/live.m3u8?token=a", dvr, "https://cdn/live.m3u8?token=a&dvr=60000"},
        // A parameter of the same name stays; an empty query still counts as a query.
        {"https://cdn/a.m3u8?dvr=5", dvr, "https://cdn/a.m3u8?dvr=5&dvr=60000"},
        {"https://cdn/a.m3u8?", dvr, "https://cdn/a.m3u8?&dvr=60000"},
        {"https://cdn/a.m3u8", unnamed, "https://cdn/a.m3u8?=60000"},
        {"https://cdn/a.m3u8", dated, "https://cdn/a.m3u8?startTime=100000"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(playbackAddress(c.address, ZMPlaybackSourceOptions(c.timeshift, true)),
                  c.expected);
    }

    const ZMPlaybackSource unchanged(url("https://cdn/a.m3u8?t=1"),
                                     ZMPlaybackSourceOptions(dvr, false));
    EXPECT_EQ(unchanged.playbackURL(), url("https://cdn/a.m3u8?t=1"));
    EXPECT_EQ(unchanged.maxAllowedTimeshift(), dvr);
    EXPECT_EQ(playbackAddress("https://cdn/a.m3u8", ZMPlaybackSourceOptions(true)),
              "https://cdn/a.m3u8");
}

TEST(ZMPlaybackSourceTest, CopiesTheOptionsWhenMade) {
    ZMPlaybackSourceOptions options(false);
    options.setAssetName("movie");
    options.setExternalSubtitles(
        {ZMSubtitles("https://s/pl.vtt", "Polski", Locale("pl"), ZMSubtitleMimeType::webVTT)});
    options.setPreferredMultimediaLanguages({{Locale("en")}, {Locale("pl")}});
    const ZMPlaybackSource source(url("https://cdn/a.m3u8"), options);
    options.setAssetName("changed");

    EXPECT_EQ(source.assetName(), "movie");
    EXPECT_EQ(source.externalSubtitles(), options.externalSubtitles());
    EXPECT_EQ(source.preferredMultimediaLanguages(), options.preferredMultimediaLanguages());
    EXPECT_EQ(source.speedOptions(), (std::vector<float>{0.25F, 0.5F, 1.0F, 1.5F, 2.0F}));
    EXPECT_FALSE(source.isInitialized());
}

// Records what the key-loader hook is given and hands back a fresh delegate each time.
class RecordingSource : public ZMPlaybackSource {
public:
    using ZMPlaybackSource::ZMPlaybackSource;
    std::vector<std::string> names;

protected:
    std::shared_ptr<AssetResourceLoaderDelegate> makeAssetDelegate(
        const std::shared_ptr<UrlAsset>& asset, const ZMFairPlayUrls& drm,
        const std::string& assetName) override {
        names.push_back(assetName + " " + drm.serverCertUrl().absoluteString());
        auto delegate = std::make_shared<AssetResourceLoaderDelegate>();
        asset->resourceLoader()->setDelegate(delegate, DispatchQueue::main());
        return delegate;
    }
};

TEST(ZMPlaybackSourceTest, PlayerItemIsBuiltOnThePlaybackAddressAndKeepsTheKeyLoader) {
    auto engine = std::make_shared<test::ScriptedMediaEngine>();
    ScopedMediaEngine scopedEngine{engine};

    ZMPlaybackSourceOptions options(ZMPlaybackTimeshift(30), true);
    options.setAvAssetOptions(UrlAsset::Options{{{"X-Token", "t"}}});
    RecordingSource plain(url("https://cdn/a.m3u8"), options);
    const auto item = plain.createPlayerItem();
    ASSERT_TRUE(item);
    EXPECT_EQ(item->asset()->url(), url("https://cdn/a.m3u8?dvr=30000"));
    EXPECT_EQ(item->asset()->options().httpHeaderFields.at("X-Token"), "t");
    EXPECT_TRUE(plain.names.empty());
    EXPECT_FALSE(plain.assetDelegate());

    options.setDrm(ZMFairPlayUrls(url("https://keys/cert"), url("https://keys/lic")));
    RecordingSource protectedSource(url("https://cdn/b.m3u8"), options);
    const auto first = protectedSource.createPlayerItem();
    const auto kept = protectedSource.assetDelegate();
    ASSERT_TRUE(kept);
    EXPECT_EQ(first->asset()->resourceLoader()->delegate(), kept);
    EXPECT_EQ(protectedSource.createPlayerItem()->asset()->resourceLoader()->delegate(),
              protectedSource.assetDelegate());
    EXPECT_NE(protectedSource.assetDelegate(), kept);
    EXPECT_EQ(protectedSource.names,
              std::vector<std::string>(2, "https://cdn/b.m3u8?dvr=30000 https://keys/cert"));

    options.setAssetName("named");
    RecordingSource named(url("https://cdn/c.m3u8"), options);
    named.createPlayerItem();
    EXPECT_EQ(named.names, std::vector<std::string>{"named https://keys/cert"});
    named.setPlaybackURL(std::nullopt);
    EXPECT_FALSE(named.createPlayerItem());
}

}  // namespace
}  // namespace zarvo
