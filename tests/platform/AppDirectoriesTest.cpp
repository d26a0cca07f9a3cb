#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/Bundle.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

// Sets or clears an environment variable for one scope and restores it afterwards.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, std::optional<std::string> value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            previous_ = old;
        }
        apply(value);
    }
    ~ScopedEnvironment() { apply(previous_); }

private:
    void apply(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    std::string name_;
    std::optional<std::string> previous_;
};

class AppDirectoriesTest : public ::testing::Test {
protected:
    test::TempHome scratch_;  // a folder to put homes in; also the home unless a test resets it
};

TEST_F(AppDirectoriesTest, HomePrecedenceIsSetHomeThenEnvironmentThenXdgDefault) {
    const fs::path fromEnvironment = scratch_.path() / "env-home";
    const fs::path xdg = scratch_.path() / "xdg";
    ScopedEnvironment zmHome("ZM_HOME", fromEnvironment.string());
    ScopedEnvironment xdgHome("XDG_DATA_HOME", xdg.string());

    const fs::path explicitHome = scratch_.path() / "explicit";
    AppDirectories::setHome(explicitHome);
    EXPECT_EQ(AppDirectories::home(), explicitHome);

    AppDirectories::resetHome();
    EXPECT_EQ(AppDirectories::home(), fromEnvironment);

    ::unsetenv("ZM_HOME");
    Bundle::setMain(Bundle{"com.example.player", "1.0", "7"});
    EXPECT_EQ(AppDirectories::home(), xdg / "com.example.player");

    ::unsetenv("XDG_DATA_HOME");
    ScopedEnvironment userHome("HOME", (scratch_.path() / "user").string());
    EXPECT_EQ(AppDirectories::home(),
              scratch_.path() / "user" / ".local" / "share" / "com.example.player");
    Bundle::resetMain();
    AppDirectories::setHome(scratch_.path());  // TempHome's destructor resets it
}

TEST_F(AppDirectoriesTest, FoldersKeepTheirShapeAndAreCreatedOnDemand) {
    const fs::path home = scratch_.path() / "fresh";
    AppDirectories::setHome(home);
    ASSERT_FALSE(fs::exists(home));

    EXPECT_EQ(AppDirectories::documents(), home / "Documents");
    EXPECT_EQ(AppDirectories::library(), home / "Library");
    EXPECT_EQ(AppDirectories::caches(), home / "Library" / "Caches");
    EXPECT_EQ(AppDirectories::preferences(), home / "Library" / "Preferences");
    for (const auto& folder :
         {home / "Documents", home / "Library" / "Caches", home / "Library" / "Preferences"}) {
        EXPECT_TRUE(fs::is_directory(folder)) << folder;
    }

    // A folder removed while the program runs comes back on the next request.
    fs::remove_all(home / "Library");
    EXPECT_TRUE(fs::is_directory(AppDirectories::caches()));

    // A relative home is made absolute.
    const fs::path previous = fs::current_path();
    fs::current_path(scratch_.path());
    AppDirectories::setHome("relative-home");
    fs::current_path(previous);
    EXPECT_EQ(AppDirectories::home(), scratch_.path() / "relative-home");
    AppDirectories::setHome(scratch_.path());
}

TEST_F(AppDirectoriesTest, IsInsideHomeResolvesDotsAndSymbolicLinks) {
    const fs::path home = AppDirectories::home();
    EXPECT_TRUE(AppDirectories::isInsideHome(home / "Library" / "media" / "a.movpkg"));
    EXPECT_TRUE(AppDirectories::isInsideHome(home / "Documents" / ".." / "Library"));
    EXPECT_TRUE(AppDirectories::isInsideHome("Library/Caches/file"));  // relative to the home
    EXPECT_FALSE(AppDirectories::isInsideHome(home));
    EXPECT_FALSE(AppDirectories::isInsideHome(home / "."));
    EXPECT_FALSE(AppDirectories::isInsideHome(home / "Documents" / ".." / ".." / "other"));
    EXPECT_FALSE(AppDirectories::isInsideHome("../escape"));
    EXPECT_FALSE(AppDirectories::isInsideHome("/etc/passwd"));
    // A sibling whose name merely starts with the home's name is outside.
    EXPECT_FALSE(AppDirectories::isInsideHome(home.string() + "-sibling/file"));

    const fs::path outside =
        scratch_.path().parent_path() / (scratch_.path().filename().string() + "-outside");
    fs::create_directories(outside);
    fs::create_directory_symlink(outside, home / "link-out");
    fs::create_directory_symlink(AppDirectories::documents(), outside / "link-in");
    EXPECT_FALSE(AppDirectories::isInsideHome(home / "link-out" / "file"));
    EXPECT_TRUE(AppDirectories::isInsideHome(outside / "link-in" / "file"));
    fs::remove_all(outside);

    // A home reached through a symbolic link still contains its files.
    const fs::path real = scratch_.path() / "real-home";
    const fs::path link = scratch_.path() / "linked-home";
    fs::create_directories(real);
    fs::create_directory_symlink(real, link);
    AppDirectories::setHome(link);
    EXPECT_TRUE(AppDirectories::isInsideHome(real / "Documents" / "x"));
    EXPECT_TRUE(AppDirectories::isInsideHome(link / "Documents" / "x"));
    AppDirectories::setHome(scratch_.path());
}

TEST(BundleTest, MainDefaultsToTheExecutableUntilTheHostDeclaresIt) {
    Bundle::resetMain();
    EXPECT_EQ(Bundle::main().identifier, program_invocation_short_name);
    EXPECT_EQ(Bundle::main().shortVersion, "0");
    EXPECT_EQ(Bundle::main().buildVersion, "0");

    const Bundle sdk = Bundle::sdk();
    EXPECT_EQ(sdk.identifier, "com.zarvo.ZarvoMediaPlayer");
    EXPECT_FALSE(sdk.shortVersion.empty());
}

}  // namespace
}  // namespace zarvo
