// Files that take their place only whole, and folders and stores that are the user's alone.
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/DurableFile.h"
#include "zarvo/platform/SqliteDatabase.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

fs::perms permissionsOf(const fs::path& path) {
    return fs::status(path).permissions() & fs::perms::all;
}

// The most permissive umask for a scope: what is private is made so on purpose.
class OpenUmask {
public:
    OpenUmask() : previous_(::umask(0)) {}
    ~OpenUmask() { ::umask(previous_); }

private:
    mode_t previous_;
};

TEST(DurableFileTest, AFileTakesItsPlaceOnlyWholeAndALeftWriterLeavesNothing) {
    test::TempHome home;
    const fs::path place = home.path() / "key";
    ASSERT_FALSE(DurableFile::writeWhole(place, "old", 3, fs::perms(0600)));

    {
        auto created = DurableFile::create(place, fs::perms(0600));
        auto& file = std::get<DurableFile>(created);
        ASSERT_FALSE(file.write("new bytes", 9));
        EXPECT_EQ(DataFile::read(place), Data("old")) << "the place keeps what it had";
        ASSERT_FALSE(file.restart());
        ASSERT_FALSE(file.write("newer", 5));
        ASSERT_FALSE(file.commit());
    }
    EXPECT_EQ(DataFile::read(place), Data("newer"));
    {
        auto created = DurableFile::create(place, fs::perms(0600));
        ASSERT_FALSE(std::get<DurableFile>(created).write("dropped", 7));
    }
    EXPECT_EQ(DataFile::read(place), Data("newer"));
    EXPECT_EQ(std::distance(fs::directory_iterator(home.path()), fs::directory_iterator()), 1)
        << "no leftover beside the key";

    // What a killed writer left goes; what is in place stays.
    fs::create_directories(home.path() / "package" / "video");
    std::ofstream(home.path() / "package" / "video" /
                  ("0.ts" + std::string(DurableFile::temporarySuffix)))
        << "half";
    std::ofstream(home.path() / "package" / "video" / "1.ts") << "whole";
    DurableFile::removeLeftovers(home.path() / "package");
    EXPECT_FALSE(fs::exists(home.path() / "package" / "video" /
                            ("0.ts" + std::string(DurableFile::temporarySuffix))));
    EXPECT_TRUE(fs::exists(home.path() / "package" / "video" / "1.ts"));

    // A place that cannot be written says why, and nothing is left behind.
    auto refused =
        DurableFile::writeWhole(home.path() / "missing" / "file", "x", 1, fs::perms(0600));
    EXPECT_EQ(refused, std::errc::no_such_file_or_directory);
}

TEST(DurableFileTest, TheHomeItsFoldersKeysAndStoresAreTheUsersAloneWhateverTheUmask) {
    OpenUmask open;
    test::TempHome home;
    fs::permissions(home.path(), fs::perms(0755));
    EXPECT_EQ(permissionsOf(AppDirectories::home()), fs::perms(0700));
    const fs::path deep = AppDirectories::library() / "a" / "b";
    ASSERT_FALSE(AppDirectories::makeFolder(deep));
    for (fs::path at = deep; at != home.path(); at = at.parent_path()) {
        EXPECT_EQ(permissionsOf(at), fs::perms(0700)) << at;
    }
    ASSERT_TRUE(DataFile::writeAtomically(deep / "key", "k", fs::perms(0600)));
    EXPECT_EQ(permissionsOf(deep / "key"), fs::perms(0600));

    auto database = SqliteDatabase::open(deep / "records.sqlite");
    ASSERT_TRUE(database);
    database->execute("PRAGMA journal_mode = WAL");
    database->execute("CREATE TABLE t(x)");
    for (const char* name : {"records.sqlite", "records.sqlite-wal", "records.sqlite-shm"}) {
        ASSERT_TRUE(fs::exists(deep / name)) << name;
        EXPECT_EQ(permissionsOf(deep / name), fs::perms(0600)) << name;
    }
}

}  // namespace
}  // namespace zarvo
