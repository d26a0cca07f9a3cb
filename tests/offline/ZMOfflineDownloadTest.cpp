#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "zarvo/offline/OfflineDownloadJson.h"
#include "zarvo/offline/ZMOfflineDownload.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/Json.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;
using State = ZMOfflineDownloadState;

Url url(const char* text) {
    return *Url::parse(text);
}

std::shared_ptr<ZMOfflineDownload> makeDownload(std::optional<Url> offlineUrl = std::nullopt,
                                                State state = State::waiting,
                                                std::string id = "0A1B") {
    return std::make_shared<ZMOfflineDownload>(
        std::move(id), "Big Buck Bunny", state, url("https://cdn.example/v/master.m3u8"),
        std::move(offlineUrl), url("https://keys.example/license?c=1"),
        std::vector<UrlQueryItem>{{"persistent", "true"}}, url("https://keys.example/cert.der"),
        std::vector<std::string>{"en", "de"}, std::vector<std::string>{"fr"}, 800000,
        std::map<std::string, std::string>{{"Authorization", "Bearer t"}}, 0.25);
}

// A download with only the required fields.
std::shared_ptr<ZMOfflineDownload> bareDownload(std::string title) {
    return std::make_shared<ZMOfflineDownload>(
        "B", std::move(title), State::waiting, url("https://h/m.m3u8"), std::nullopt, std::nullopt,
        std::nullopt, std::nullopt, std::nullopt, std::nullopt, 0,
        std::map<std::string, std::string>{}, 0.0);
}

class ZMOfflineDownloadTest : public ::testing::Test {
protected:
    std::string inHome(const char* relative) { return (home.path() / relative).string(); }
    test::TempHome home;
};

TEST_F(ZMOfflineDownloadTest, OfflineUrlKeepsThePathFromTheFirstLibrary) {
    auto download = makeDownload();
    download->setOfflineUrl("/var/mobile/Containers/Data/Application/X/Library/media/a.movpkg");
    EXPECT_EQ(download->offlineUrl()->absoluteString(), "Library/media/a.movpkg");
    EXPECT_EQ(download->offlineUrlAsset()->url().decodedPath(), inHome("Library/media/a.movpkg"));

    download->setOfflineUrl("/old/Library/x/Library/b.movpkg");
    EXPECT_EQ(download->offlineUrl()->absoluteString(), "Library/x/Library/b.movpkg");
    download->setOfflineUrl("media/a.movpkg");
    EXPECT_EQ(download->offlineUrl()->absoluteString(), "media/a.movpkg");
    EXPECT_EQ(download->offlineUrlAsset()->url().decodedPath(), inHome("media/a.movpkg"));
    // Characters a URL cannot hold still name the file, also after a JSON round trip.
    download->setOfflineUrl("/somewhere/Library/media/My Movie 100%.movpkg");
    EXPECT_EQ(download->offlineUrl()->decodedPath(), "Library/media/My Movie 100%.movpkg");
    EXPECT_EQ(download->offlineUrlAsset()->url().decodedPath(),
              inHome("Library/media/My Movie 100%.movpkg"));
    EXPECT_EQ(OfflineDownloadJson::fromJson(OfflineDownloadJson::toJson(*download))
                  ->offlineUrlAsset()
                  ->url(),
              download->offlineUrlAsset()->url());

    // Assigning the URL alone keeps the asset; setting nothing clears both.
    auto asset = download->offlineUrlAsset();
    download->assignOfflineUrl(std::nullopt);
    EXPECT_EQ(download->offlineUrlAsset(), asset);
    download->setOfflineUrl("Library/c.movpkg");
    download->setOfflineUrl(std::nullopt);
    EXPECT_FALSE(download->offlineUrl());
    EXPECT_EQ(download->offlineUrlAsset(), nullptr);
}

TEST_F(ZMOfflineDownloadTest, ConstructionStatesAndDescription) {
    auto download = makeDownload(url("file:///data/app/Library/media/a.movpkg"));
    EXPECT_EQ(download->offlineUrl()->absoluteString(), "Library/media/a.movpkg");
    EXPECT_EQ(download->urlAsset()->url().absoluteString(), "https://cdn.example/v/master.m3u8");
    EXPECT_EQ(makeDownload()->offlineUrlAsset(), nullptr);
    EXPECT_EQ(download->description(), "Download(ID = 0A1B, TITLE = Big Buck Bunny)");

    for (std::int64_t raw = 0; raw <= 4; ++raw) {
        auto state = offlineDownloadStateFromRawValue(raw);
        ASSERT_TRUE(state);
        EXPECT_EQ(rawValue(*state), raw);
        EXPECT_EQ(makeDownload(std::nullopt, *state)->isCompleted(), raw == 2);
    }
    EXPECT_FALSE(offlineDownloadStateFromRawValue(-1));
    EXPECT_FALSE(offlineDownloadStateFromRawValue(5));
}

TEST_F(ZMOfflineDownloadTest, ContentKeysDirectoryIsMadeOnceInsideKeys) {
    auto download = makeDownload();
    fs::path expected = home.path() / "Documents" / ".keys" / "0A1B";
    Url first = download->contentKeysDirPath();
    EXPECT_TRUE(fs::is_directory(expected));
    std::ofstream(expected / "asset-Key") << "key";
    EXPECT_EQ(download->contentKeysDirPath(), first);
    EXPECT_TRUE(fs::exists(expected / "asset-Key"));
    EXPECT_TRUE(fs::equivalent(first.decodedPath(), expected));

    // An id that reads as a path still gets one directory inside ".keys".
    auto strange = makeDownload(std::nullopt, State::waiting, "../..");
    EXPECT_EQ(fs::canonical(strange->contentKeysDirPath().decodedPath()).parent_path(),
              fs::canonical(home.path() / "Documents" / ".keys"));
}

TEST_F(ZMOfflineDownloadTest, ContentKeysDirectoryThatCannotBeMadeIsFatal) {
    fs::create_directories(home.path() / "Documents");
    std::ofstream(home.path() / "Documents" / ".keys") << "a file in the way";
    ScopedFatalErrorHandler handler;
    EXPECT_THROW(makeDownload()->contentKeysDirPath(), FatalErrorException);
}

TEST_F(ZMOfflineDownloadTest, JsonHasTheKeysInWrittenOrderAndReadsBack) {
    auto download = makeDownload(url("Library/media/a.movpkg"), State::completed);
    EXPECT_EQ(
        OfflineDownloadJson::toJson(*download).dump(),
        R"({"id":"0A1B","title":"Big Buck Bunny","playlist_url":"https://cdn.example/v/master.m3u8",)"
        R"("state":2,"license_url":"https://keys.example/license?c=1",)"
        R"("fps_cert_url":"https://keys.example/cert.der","offlineUrl":"Library/media/a.movpkg",)"
        R"("download_progress":0.25,"audio_ids":["en","de"],"subtitles_ids":["fr"],)"
        R"("min_bitrate":800000,"headers":{"Authorization":"Bearer t"}})");
    EXPECT_EQ(OfflineDownloadJson::toJson(*bareDownload("T")).dump(),
              R"({"id":"B","title":"T","playlist_url":"https://h/m.m3u8","state":0,)"
              R"("download_progress":0.0,"min_bitrate":0,"headers":{}})");

    auto reread = OfflineDownloadJson::fromJson(OfflineDownloadJson::toJson(*download));
    ASSERT_NE(reread, nullptr);
    EXPECT_EQ(OfflineDownloadJson::toJson(*reread), OfflineDownloadJson::toJson(*download));
    EXPECT_EQ(reread->offlineUrlAsset()->url(), download->offlineUrlAsset()->url());
    EXPECT_EQ(*reread->licenseUrlQueryItems(), (std::vector<UrlQueryItem>{{"persistent", "true"}}));
}

TEST_F(ZMOfflineDownloadTest, JsonOptionalKeysAbsentOrOfTheWrongTypeGiveEmptyValues) {
    Json object = Json::parse(
        R"({"id":"A","title":"T","state":3,"playlist_url":"https://h/m.m3u8",)"
        R"("license_url":42,"fps_cert_url":"bad url","offlineUrl":["x"],"download_progress":1,)"
        R"("audio_ids":["en",7],"subtitles_ids":"fr"})");
    auto download = OfflineDownloadJson::fromJson(object);
    ASSERT_NE(download, nullptr);
    EXPECT_FALSE(download->licenseUrl() || download->fpsCertUrl() || download->offlineUrl());
    EXPECT_FALSE(download->audioIds() || download->subtitlesIds());
    EXPECT_EQ(download->minBitrate(), 0);
    EXPECT_TRUE(download->headers().empty());
    EXPECT_DOUBLE_EQ(download->progress(), 1.0);

    object["min_bitrate"] = "fast";
    object["headers"] = Json::parse(R"({"A":"1","B":2})");
    download = OfflineDownloadJson::fromJson(object);
    EXPECT_EQ(download->minBitrate(), 0);
    EXPECT_TRUE(download->headers().empty());
    object["min_bitrate"] = 2000000.0;
    EXPECT_EQ(OfflineDownloadJson::fromJson(object)->minBitrate(), 2000000);
}

TEST_F(ZMOfflineDownloadTest, JsonRequiredKeysAndStateNumbersFailTheObject) {
    const Json good = Json::parse(
        R"({"id":"A","title":"T","state":2,"playlist_url":"https://h/m.m3u8","download_progress":0.5})");
    ASSERT_NE(OfflineDownloadJson::fromJson(good), nullptr);
    for (const char* key : {"id", "title", "state", "playlist_url", "download_progress"}) {
        Json missing = good;
        missing.erase(key);
        EXPECT_EQ(OfflineDownloadJson::fromJson(missing), nullptr) << key;
        Json wrongType = good;
        wrongType[key] = Json::array();
        EXPECT_EQ(OfflineDownloadJson::fromJson(wrongType), nullptr) << key;
    }
    for (Json bad : {Json(5), Json(-1), Json("2"), Json(2.5), Json(nullptr)}) {
        Json object = good;
        object["state"] = bad;
        EXPECT_EQ(OfflineDownloadJson::fromJson(object), nullptr) << bad.dump();
    }
    Json badUrl = good;
    badUrl["playlist_url"] = "not a url";
    EXPECT_EQ(OfflineDownloadJson::fromJson(badUrl), nullptr);

    // One bad object makes the whole list unreadable.
    std::string one = good.dump();
    EXPECT_EQ(OfflineDownloadJson::decodeList("[" + one + "," + one + "]")->size(), 2u);
    EXPECT_FALSE(OfflineDownloadJson::decodeList("[" + one + ",{\"id\":\"B\"}]"));
    EXPECT_FALSE(OfflineDownloadJson::decodeList("{}"));
    EXPECT_FALSE(OfflineDownloadJson::decodeList("[" + one));
}

TEST_F(ZMOfflineDownloadTest, ListTextMatchesTheJsonFormAndKeepsOutOnlyValuesJsonCannotHold) {
    auto escaped = std::make_shared<ZMOfflineDownload>(
        "E", "Quote \" slash \\ tab \t nl \n bell \x07 caf\xc3\xa9 \xf0\x9f\x8e\xac", State::failed,
        url("https://h/a%20b.m3u8?x=1&y=2"), std::nullopt, std::nullopt, std::nullopt, std::nullopt,
        std::vector<std::string>{}, std::vector<std::string>{"\x01"}, -5,
        std::map<std::string, std::string>{{"B", "2"}, {"A", "\"1\""}}, 1.0);
    auto download = makeDownload(url("Library/media/a.movpkg"));
    ZMOfflineDownload::List list{download, escaped};
    auto expected = [&] {
        return Json::array(
                   {OfflineDownloadJson::toJson(*download), OfflineDownloadJson::toJson(*escaped)})
            .dump();
    };
    EXPECT_EQ(OfflineDownloadJson::encodeList(list).text, expected());
    for (double progress : {0.0, 0.1, 0.425, 1e-05, 123456789.0, 1.0 / 3.0}) {
        download->setProgress(progress);
        EXPECT_EQ(OfflineDownloadJson::encodeList(list).text, expected()) << progress;
    }
    const std::function<void()> changes[] = {
        [&] { download->setState(State::completed); },
        [&] { download->setUrl(url("https://other.example/m.m3u8")); },
        [&] { download->setOfflineUrl("/x/Library/b.movpkg"); },
        [&] { download->assignOfflineUrl(std::nullopt); },
    };
    for (const auto& change : changes) {
        change();
        EXPECT_EQ(OfflineDownloadJson::encodeList(list).text, expected());
    }

    // A download holding values JSON cannot hold is written as it last was, or left out when
    // it never was written; the others are written all the same.
    std::string last = OfflineDownloadJson::toJson(*download).dump();
    download->setProgress(std::numeric_limits<double>::quiet_NaN());
    auto withNaN = OfflineDownloadJson::encodeList({escaped, download});
    EXPECT_EQ(withNaN.text, "[" + OfflineDownloadJson::toJson(*escaped).dump() + "," + last + "]");
    EXPECT_EQ(withNaN.unencodedIds, std::vector<std::string>{download->id()});
    auto notUtf8 = OfflineDownloadJson::encodeList(
        {bareDownload("\xff\xfe"), escaped, bareDownload("\xed\xa0\x80")});  // a surrogate
    EXPECT_EQ(notUtf8.text, "[" + OfflineDownloadJson::toJson(*escaped).dump() + "]");
    EXPECT_EQ(notUtf8.unencodedIds.size(), 2u);
    download->setProgress(0.5);
    EXPECT_TRUE(OfflineDownloadJson::encodeList({download}).unencodedIds.empty());
}

}  // namespace
}  // namespace zarvo
