#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/platform/UserDefaults.h"

#include "support/TempHome.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;

class DefaultsCommandTest : public ::testing::Test {
protected:
    test::ZmplayResult run(const std::vector<std::string>& arguments) {
        return test::runZmplay(arguments, home.path());
    }
    test::TempHome home;
};

TEST_F(DefaultsCommandTest, WriteReadAndDeleteAKey) {
    ASSERT_EQ(run({"defaults", "write", "Greeting", "hello world"}).status, 0);
    auto read = run({"defaults", "read", "Greeting"});
    EXPECT_EQ(read.status, 0);
    EXPECT_EQ(read.out, "hello world\n");
    EXPECT_EQ(UserDefaults::standard()->string("Greeting"), "hello world");

    ASSERT_EQ(run({"defaults", "delete", "Greeting"}).status, 0);
    EXPECT_FALSE(UserDefaults::standard()->hasValue("Greeting"));
    auto missing = run({"defaults", "read", "Greeting"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "");
    EXPECT_THAT(missing.err, HasSubstr("Greeting does not exist"));
}

TEST_F(DefaultsCommandTest, DeletingAMissingKeyFailsAndChangesNothing) {
    UserDefaults::standard()->setString("Other", "kept");
    auto result = run({"defaults", "delete", "Missing"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("nothing was changed"));
    EXPECT_EQ(UserDefaults::standard()->string("Other"), "kept");
}

TEST_F(DefaultsCommandTest, ReadWithoutKeyListsEveryValue) {
    UserDefaults::standard()->setString("b", "two");
    UserDefaults::standard()->setInteger("a", 1);
    UserDefaults::standard()->setData("c", std::string("\x00\xff", 2));
    auto result = run({"defaults", "read"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "a = 1\nb = two\nc = <00ff>\n");
}

TEST_F(DefaultsCommandTest, MalformedCommandsPrintTheUsage) {
    for (std::vector<std::string> arguments : {std::vector<std::string>{"defaults"},
                                               {"defaults", "write", "K"},
                                               {"defaults", "delete"},
                                               {"defaults", "read", "a", "b"},
                                               {"defaults", "rename", "a"}}) {
        auto result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr("usage: zmplay defaults read"));
    }
}

}  // namespace
}  // namespace zarvo
