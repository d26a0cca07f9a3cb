#include <filesystem>
#include <fstream>
#include <functional>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/AppDirectories.h"
#include "zarvo/platform/UserDefaults.h"

#include "support/TempHome.h"

namespace zarvo {
namespace {

namespace fs = std::filesystem;

class UserDefaultsTest : public ::testing::Test {
protected:
    fs::path databasePath() const { return home_.path() / "store.sqlite"; }
    std::shared_ptr<UserDefaults> openStore() const {
        auto store = UserDefaults::open(databasePath());
        EXPECT_NE(store, nullptr);
        return store;
    }

    test::TempHome home_;
};

// Runs `body` in a child process, and `meanwhile` in this one, and returns the child's exit
// status (-1 when it died by a signal). The body reports through its exit code, since test
// assertions do not cross the fork.
template <typename Body>
int runInChild(
    Body body, const std::function<void()>& meanwhile = [] {}) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    meanwhile();
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(UserDefaultsTest, ValuesOfEveryKindSurviveReopening) {
    const std::string binary("\x00\x01\xff zero-bytes\x00", 16);
    {
        auto store = openStore();
        ASSERT_TRUE(store->setString("text", "h\xc3\xa9llo"));
        ASSERT_TRUE(store->setData("blob", binary));
        ASSERT_TRUE(store->setData("empty", ""));
        ASSERT_TRUE(store->setInteger("count", -9'000'000'000LL));
        ASSERT_TRUE(store->setBoolean("flag", true));
    }
    auto store = openStore();
    EXPECT_EQ(store->string("text"), "h\xc3\xa9llo");
    EXPECT_EQ(store->data("blob"), binary);
    EXPECT_EQ(store->data("empty"), Data());
    EXPECT_TRUE(store->hasValue("empty"));
    EXPECT_EQ(store->integer("count"), -9'000'000'000LL);
    EXPECT_TRUE(store->boolean("flag"));
    EXPECT_EQ(store->keys(), (std::vector<std::string>{"blob", "count", "empty", "flag", "text"}));

    // Setting another kind replaces the value; removing forgets it, for good.
    ASSERT_TRUE(store->setInteger("text", 5));
    EXPECT_EQ(store->string("text"), "5");
    EXPECT_EQ(store->keys().size(), 5u);
    EXPECT_TRUE(store->removeObject("text"));
    EXPECT_FALSE(store->hasValue("text"));
    EXPECT_TRUE(store->removeObject("never-set"));
    EXPECT_EQ(store->keys().size(), 4u);
    EXPECT_TRUE(store->synchronize());
    EXPECT_FALSE(openStore()->hasValue("text"));
}

TEST_F(UserDefaultsTest, ReadsConvertBetweenKinds) {
    auto store = openStore();
    store->setInteger("integer", 42);
    store->setBoolean("yes", true);
    store->setBoolean("no", false);
    store->setData("data", "bytes");
    for (const char* text : {" 17 ", "-3.9", "twelve", "YES", "true", "1", "0"}) {
        store->setString(text, text);
    }

    EXPECT_EQ(store->string("integer"), "42");
    EXPECT_EQ(store->string("yes"), "1");
    EXPECT_EQ(store->string("no"), "0");
    EXPECT_EQ(store->string("data"), std::nullopt);
    EXPECT_EQ(store->data("twelve"), "twelve");
    EXPECT_EQ(store->data("integer"), std::nullopt);

    for (auto [key, integer, boolean] : {std::tuple{" 17 ", 17, true},
                                         {"-3.9", -3, true},
                                         {"twelve", 0, false},
                                         {"data", 0, false},
                                         {"yes", 1, true},
                                         {"no", 0, false},
                                         {"absent", 0, false},
                                         {"integer", 42, true},
                                         {"YES", 0, true},
                                         {"true", 0, true},
                                         {"1", 1, true},
                                         {"0", 0, false}}) {
        EXPECT_EQ(store->integer(key), integer) << key;
        EXPECT_EQ(store->boolean(key), boolean) << key;
    }
    EXPECT_EQ(store->string("absent"), std::nullopt);
}

TEST_F(UserDefaultsTest, StandardStoreFollowsTheCurrentHome) {
    auto first = UserDefaults::standard();
    EXPECT_EQ(first, UserDefaults::standard());
    ASSERT_TRUE(first->setString("where", "first home"));
    EXPECT_TRUE(fs::exists(home_.path() / "Library" / "Preferences" / "UserDefaults.sqlite"));

    AppDirectories::setHome(home_.path() / "other");
    auto second = UserDefaults::standard();
    EXPECT_NE(first, second);
    EXPECT_FALSE(second->hasValue("where"));

    AppDirectories::setHome(home_.path());
    EXPECT_EQ(UserDefaults::standard()->string("where"), "first home");

    // A home wiped and made again gets a fresh database, not the removed file's connection.
    fs::remove_all(home_.path() / "Library");
    auto fresh = UserDefaults::standard();
    EXPECT_FALSE(fresh->hasValue("where"));
    ASSERT_TRUE(fresh->setString("where", "again"));
    EXPECT_EQ(
        UserDefaults::open(AppDirectories::preferences() / "UserDefaults.sqlite")->string("where"),
        "again");
}

TEST_F(UserDefaultsTest, AFileThatIsNotADatabaseIsRefusedAndLeftAlone) {
    {
        std::ofstream file(databasePath());
        file << "not a database, just some text that must survive";
    }
    EXPECT_EQ(UserDefaults::open(databasePath()), nullptr);
    EXPECT_EQ(UserDefaults::open(home_.path() / "missing-folder" / "x.sqlite"), nullptr);
    std::ifstream file(databasePath());
    std::string contents((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(contents, "not a database, just some text that must survive");
}

TEST_F(UserDefaultsTest, ConcurrentWritersFromThreadsAndConnectionsLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kKeysPerThread = 150;
    auto shared = openStore();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Half the threads share one store, the others each use a connection of their own.
            auto store = t % 2 == 0 ? shared : UserDefaults::open(databasePath());
            for (int i = 0; i < kKeysPerThread; ++i) {
                const std::string key = "k" + std::to_string(t) + "-" + std::to_string(i);
                EXPECT_TRUE(store->setInteger(key, i));
                EXPECT_TRUE(store->setInteger("counter-" + std::to_string(t), i));
                EXPECT_EQ(shared->integer(key), i);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    auto reopened = openStore();
    EXPECT_EQ(reopened->keys().size(), static_cast<std::size_t>(kThreads * (kKeysPerThread + 1)));
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(reopened->integer("counter-" + std::to_string(t)), kKeysPerThread - 1);
        EXPECT_EQ(reopened->integer("k" + std::to_string(t) + "-77"), 77);
    }
}

TEST_F(UserDefaultsTest, TwoProcessesWritingAtOnceLoseNothing) {
    constexpr int kKeys = 200;
    auto store = openStore();  // both processes find the database made
    const int result = runInChild(
        [&] {
            auto own = UserDefaults::open(databasePath());
            bool ok = own != nullptr;
            for (int i = 0; ok && i < kKeys; ++i) {
                ok = own->setInteger("child-" + std::to_string(i), i);
            }
            return ok ? 0 : 1;
        },
        [&] {
            for (int i = 0; i < kKeys; ++i) {
                EXPECT_TRUE(store->setInteger("parent-" + std::to_string(i), i));
            }
        });
    ASSERT_EQ(result, 0);
    EXPECT_EQ(store->keys().size(), static_cast<std::size_t>(2 * kKeys));
}

// A value whose every byte tells which write made it.
std::string largeValue(int generation) {
    return std::string(1 << 20, static_cast<char>('A' + generation % 26));
}

TEST_F(UserDefaultsTest, AProcessKilledInTheMiddleOfLargeWritesLeavesAWholeValue) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ready[0]);
        auto store = UserDefaults::open(databasePath());
        for (int generation = 0; store; ++generation) {
            store->setString("big", largeValue(generation));
            if (generation == 3) {
                (void)!::write(ready[1], "x", 1);
            }
        }
        ::_exit(1);
    }
    ::close(ready[1]);
    char signal = 0;
    ASSERT_EQ(::read(ready[0], &signal, 1), 1);
    ::close(ready[0]);
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));

    auto store = openStore();
    auto value = store->string("big");
    ASSERT_TRUE(value.has_value());
    ASSERT_EQ(value->size(), 1u << 20);
    EXPECT_EQ(*value, largeValue((*value)[0] - 'A'));
    EXPECT_TRUE(store->setString("big", "after the crash"));
}

TEST_F(UserDefaultsTest, AFullDiskFailsTheWriteAndKeepsTheOldValue) {
    auto store = openStore();
    ASSERT_TRUE(store->setString("downloads", "old list"));
    ASSERT_TRUE(store->synchronize());

    const int result = runInChild([&] {
        // Files may not grow past their present size: every larger write fails like a full disk.
        ::signal(SIGXFSZ, SIG_IGN);
        struct stat info {};
        ::stat(databasePath().c_str(), &info);
        const rlim_t limit = static_cast<rlim_t>(info.st_size) + 8192;
        rlimit cap{limit, limit};
        ::setrlimit(RLIMIT_FSIZE, &cap);
        auto writer = UserDefaults::open(databasePath());
        if (!writer) {
            return 1;
        }
        if (writer->setString("downloads", largeValue(1))) {
            return 2;
        }
        return writer->string("downloads") == "old list" ? 0 : 3;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(openStore()->string("downloads"), "old list");
}

TEST_F(UserDefaultsTest, AReadOnlyDatabaseRefusesWritesAndKeepsTheOldValue) {
    {
        auto store = openStore();
        ASSERT_TRUE(store->setString("downloads", "old list"));
    }
    ::chmod(databasePath().c_str(), 0444);
    ::chmod(home_.path().c_str(), 0755);

    const int result = runInChild([&] {
        // Permissions do not bind the super-user, so the check runs as an ordinary user.
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            return 9;
        }
        auto store = UserDefaults::open(databasePath());
        if (!store) {
            return 1;
        }
        if (store->string("downloads") != "old list") {
            return 2;
        }
        if (store->setString("downloads", "new list") || store->removeObject("downloads")) {
            return 3;
        }
        return store->string("downloads") == "old list" ? 0 : 4;
    });
    EXPECT_EQ(result, 0);
    ::chmod(databasePath().c_str(), 0644);
    EXPECT_EQ(openStore()->string("downloads"), "old list");
}

}  // namespace
}  // namespace zarvo
