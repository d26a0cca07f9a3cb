#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <sys/utsname.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DeviceInfo.h"
#include "zarvo/platform/OsRelease.h"
#include "zarvo/platform/UserDefaults.h"
#include "zarvo/platform/Uuid.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

TEST(OsReleaseTest, ReadsQuotedEscapedAndPlainValuesFromAFile) {
    test::TempHome home;
    const fs::path file = home.path() / "os-release";
    std::ofstream(file) << "# a comment line\n"
                           "PRETTY_NAME='Debian GNU/Linux 12 (bookworm)'\n"
                           "NAME=\"Debian GNU/Linux\"\r\n"
                           "VERSION_ID=\"12\"\n"
                           "\n"
                           "ID=debian\n"
                           "QUOTED=\"say \\\"hi\\\" to \\$HOME \\\\ and \\n stays\"\n"
                           "MIXED=one\\ two' three'\n"
                           "EMPTY=\n"
                           "ID=overridden\n"
                           "OPEN=\"never closed\n"
                           "no equals sign here\n"
                           "1STARTS_WITH_DIGIT=x\n"
                           "BAD-KEY=x";

    auto release = OsRelease::read(file);
    ASSERT_TRUE(release.has_value());
    EXPECT_EQ(release->name(), "Debian GNU/Linux");
    EXPECT_EQ(release->versionId(), "12");
    EXPECT_EQ(release->value("PRETTY_NAME"), "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(release->value("ID"), "overridden");  // the last assignment wins
    EXPECT_EQ(release->value("QUOTED"), "say \"hi\" to $HOME \\ and \\n stays");
    EXPECT_EQ(release->value("MIXED"), "one two three");
    EXPECT_EQ(release->value("EMPTY"), "");
    EXPECT_EQ(release->value("OPEN"), std::nullopt);
    EXPECT_EQ(release->value("1STARTS_WITH_DIGIT"), std::nullopt);
    EXPECT_EQ(release->value("BAD-KEY"), std::nullopt);

    EXPECT_EQ(OsRelease::read(home.path() / "missing"), std::nullopt);
    EXPECT_EQ(OsRelease::parse("").name(), std::nullopt);
}

TEST(DeviceInfoTest, DescribesThisMachine) {
    utsname names{};
    ASSERT_EQ(::uname(&names), 0);
    EXPECT_EQ(DeviceInfo::machine(), names.machine);
    EXPECT_EQ(DeviceInfo::model(), "PC");
    EXPECT_FALSE(DeviceInfo::name().empty());

    const auto release = OsRelease::system();
    const std::string expectedName = release && release->name() ? *release->name() : "Linux";
    EXPECT_EQ(DeviceInfo::systemName(), expectedName);
    EXPECT_FALSE(DeviceInfo::systemVersion().empty());
}

TEST(DeviceInfoTest, VendorIdentifierIsKeptInTheHomesDefaults) {
    test::TempHome home;
    const std::string first = DeviceInfo::identifierForVendor();
    EXPECT_TRUE(Uuid::isValid(first)) << first;
    EXPECT_EQ(DeviceInfo::identifierForVendor(), first);
    EXPECT_EQ(UserDefaults::standard()->string("ZMIdentifierForVendor"), first);

    // Another application home is another installation.
    AppDirectories::setHome(home.path() / "other-app");
    const std::string other = DeviceInfo::identifierForVendor();
    EXPECT_NE(other, first);

    AppDirectories::setHome(home.path());
    EXPECT_EQ(DeviceInfo::identifierForVendor(), first);

    // A stored valid one is kept; garbage is replaced.
    auto defaults = UserDefaults::standard();
    const std::string stored = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";
    ASSERT_TRUE(defaults->setString("ZMIdentifierForVendor", stored));
    EXPECT_EQ(DeviceInfo::identifierForVendor(), stored);

    ASSERT_TRUE(defaults->setString("ZMIdentifierForVendor", "not a uuid"));
    const std::string replaced = DeviceInfo::identifierForVendor();
    EXPECT_TRUE(Uuid::isValid(replaced));
    EXPECT_EQ(defaults->string("ZMIdentifierForVendor"), replaced);
}

TEST(DeviceInfoTest, ThreadsAskingAtOnceGetOneVendorIdentifier) {
    test::TempHome home;
    std::vector<std::string> seen(4);
    std::vector<std::thread> threads;
    for (auto& slot : seen) {
        threads.emplace_back([&slot] { slot = DeviceInfo::identifierForVendor(); });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()).size(), 1u);
}

}  // namespace
}  // namespace zarvo
