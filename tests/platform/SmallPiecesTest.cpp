#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/Base64.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/Json.h"
#include "zarvo/platform/Locale.h"
#include "zarvo/platform/Uuid.h"

namespace zarvo {
namespace {

TEST(UuidTest, RandomUuidsAreVersion4UpperCaseDistinctAndParseBack) {
    std::set<std::string> seen;
    for (int i = 0; i < 200; ++i) {
        Uuid uuid;
        std::string text = uuid.uuidString();
        ASSERT_EQ(text.size(), 36u);
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
        for (char c : text) {
            EXPECT_TRUE(c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << text;
        }
        EXPECT_TRUE(Uuid::isValid(text));
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 200u);

    auto lower = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->uuidString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(lower->bytes()[0], 0xE6);
    EXPECT_EQ(lower->bytes()[15], 0x5F);
    EXPECT_EQ(lower, Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));

    for (const char* text :
         {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5FF", "E621E1F8-C36C-495A-93FC+0C247A3E6E5F",
          "G621E1F8-C36C-495A-93FC-0C247A3E6E5F", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5}"}) {
        EXPECT_FALSE(Uuid::isValid(text)) << text;
        EXPECT_EQ(Uuid::parse(text), std::nullopt) << text;
    }
}

TEST(Base64Test, EncodesAndDecodesWhatItEncodesAndNothingElse) {
    const char* vectors[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (std::size_t n = 0; n < 7; ++n) {
        EXPECT_EQ(Base64::encode(std::string("foobar").substr(0, n)), vectors[n]);
        EXPECT_EQ(Base64::decode(vectors[n]), std::string("foobar").substr(0, n));
    }
    EXPECT_EQ(Base64::encode(std::string("\xfb\xff\xbf", 3)), "+/+/");
    EXPECT_EQ(Base64::encodeUrlSafe(std::string("\xfb\xff\xbf"
                                                "f",
                                                4)),
              "-_-_Zg");
    EXPECT_EQ(Base64::decodeUrlSafe("-_-_Zg"), std::string("\xfb\xff\xbf"
                                                           "f",
                                                           4));
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes.push_back(static_cast<char>(i));
    }
    for (std::size_t length = 0; length <= bytes.size(); length += 17) {
        std::string slice = bytes.substr(bytes.size() - length);
        EXPECT_EQ(Base64::decode(Base64::encode(slice)), slice) << length;
    }
    for (const char* text : {"Zg", "Zg=", "Zm9vY", "Zm9v YmFy", "Zm9v\nYmFy",
                             "Zg==Zg==", "Z===", "====", "Zm-_", "Zm9v!mFy", "=Zm9"}) {
        EXPECT_EQ(Base64::decode(text), std::nullopt) << text;
    }
}

TEST(DataFileTest, ReadsRegularFilesOnlyAndNeverThrows) {
    const auto folder =
        std::filesystem::temp_directory_path() / ("zm-datafile-" + Uuid().uuidString());
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "bytes", std::ios::binary) << std::string("a\0b", 3);
    EXPECT_EQ(DataFile::read(folder / "bytes"), (Data{'a', '\0', 'b'}));
    EXPECT_EQ(DataFile::read(folder), std::nullopt) << "a directory";
    EXPECT_EQ(DataFile::read(folder / "missing"), std::nullopt);
    std::filesystem::remove_all(folder);
}

TEST(JsonTest, ParseRejectsNonJsonAndDumpIsCompactInKeyOrder) {
    for (const char* text : {"", "{", "{\"a\":}", "[1,2", "nul", "{'a':1}", "1 2", "\"\xff\""}) {
        EXPECT_EQ(json::parse(text), std::nullopt) << text;
    }
    auto value = json::parse(" {\"a\": [1, 2.5, \"x\"], \"b\": null} ");
    ASSERT_TRUE(value);
    EXPECT_EQ((*value)["a"][2], "x");

    Json object;
    object["zeta"] = "https://h/a/b";
    object["alpha"] = 1;
    object["list"] = Json::array({true, nullptr, 0.5});
    object["text"] = "quote\" tab\t \xc5\xbc";
    EXPECT_EQ(json::dump(object),
              "{\"zeta\":\"https://h/a/b\",\"alpha\":1,\"list\":[true,null,0.5],"
              "\"text\":\"quote\\\" tab\\t \xc5\xbc\"}");
    // Parsing keeps the written order too.
    EXPECT_EQ(json::dump(*json::parse("{\"b\":1,\"a\":2}")), "{\"b\":1,\"a\":2}");
    // A string that is not UTF-8 still dumps.
    EXPECT_NO_THROW(json::dump(Json("bad \xff byte")));
}

TEST(JsonTest, TypedReadsGiveNothingForAbsentOrMistypedMembers) {
    auto object = *json::parse(
        R"({"s":"text","i":42,"neg":-3,"f":2.5,"whole":3.0,"b":true,"n":null,"big":18446744073709551615})");
    EXPECT_EQ(json::string(object, "s"), "text");
    EXPECT_EQ(json::string(object, "i"), std::nullopt);
    EXPECT_EQ(json::string(object, "missing"), std::nullopt);

    EXPECT_EQ(json::integer(object, "i"), 42);
    EXPECT_EQ(json::integer(object, "neg"), -3);
    EXPECT_EQ(json::integer(object, "whole"), 3);
    for (const char* key : {"f", "s", "big"}) {
        EXPECT_EQ(json::integer(object, key), std::nullopt) << key;
    }

    EXPECT_EQ(json::number(object, "f"), 2.5);
    EXPECT_EQ(json::number(object, "i"), 42.0);
    EXPECT_EQ(json::number(object, "b"), std::nullopt);

    EXPECT_EQ(json::boolean(object, "b"), true);
    EXPECT_EQ(json::boolean(object, "i"), std::nullopt);
    EXPECT_EQ(json::boolean(object, "n"), std::nullopt);

    Json array = Json::array({1, 2});
    EXPECT_EQ(json::string(array, "s"), std::nullopt);
    EXPECT_EQ(json::integer(Json(5), "i"), std::nullopt);
}

TEST(LocaleTest, LanguageCodeOfIdentifiers) {
    for (auto [id, code] : {std::pair{"pl", "pl"},
                            {"en-US", "en"},
                            {"pl_PL", "pl"},
                            {"pl_PL.UTF-8", "pl"},
                            {"zh-Hant-TW", "zh"},
                            {"EN_us", "en"}}) {
        EXPECT_EQ(Locale::languageCode(id), code) << id;
    }
    EXPECT_EQ(Locale::languageCode(""), std::nullopt);
    EXPECT_EQ(Locale::languageCode("-US"), std::nullopt);
}

// Clears the locale variables for one test and restores them afterwards.
struct ScopedLocaleEnvironment {
    ScopedLocaleEnvironment() {
        for (auto& [name, value] : saved) {
            if (const char* old = std::getenv(name)) {
                value = old;
            }
            unsetenv(name);
        }
    }
    ~ScopedLocaleEnvironment() {
        for (auto& [name, value] : saved) {
            value ? setenv(name, value->c_str(), 1) : unsetenv(name);
        }
    }
    std::vector<std::pair<const char*, std::optional<std::string>>> saved{
        {"LANGUAGE", {}}, {"LC_ALL", {}}, {"LC_MESSAGES", {}}, {"LANG", {}}};
};

TEST(LocaleTest, PreferredLanguagesFollowTheEnvironmentInOrder) {
    ScopedLocaleEnvironment environment;
    EXPECT_TRUE(Locale::preferredLanguages().empty());

    setenv("LANG", "C.UTF-8", 1);
    EXPECT_TRUE(Locale::preferredLanguages().empty());
    setenv("LANGUAGE", "pl_PL:en::de", 1);
    setenv("LC_ALL", "POSIX", 1);
    setenv("LC_MESSAGES", "fr_FR.UTF-8@euro", 1);
    setenv("LANG", "pl_PL.UTF-8", 1);
    EXPECT_EQ(Locale::preferredLanguages(),
              (std::vector<std::string>{"pl-PL", "en", "de", "fr-FR"}));
}

}  // namespace
}  // namespace zarvo
