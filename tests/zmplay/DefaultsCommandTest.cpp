#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zarvo/platform/UserDefaults.h"

#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;

using DefaultsCommandTest = test::ZmplayTest<>;

TEST_F(DefaultsCommandTest, WriteReadListAndDeleteKeys) {
    ASSERT_EQ(run({"defaults", "write", "Greeting", "hello world"}).status, 0);
    EXPECT_EQ(run({"defaults", "read", "Greeting"}).exit(), (test::Exit{0, "hello world\n"}));
    EXPECT_EQ(UserDefaults::standard()->string("Greeting"), "hello world");

    UserDefaults::standard()->setInteger("a", 1);
    UserDefaults::standard()->setData("c", std::string("\x00\xff", 2));
    EXPECT_EQ(run({"defaults", "read"}).exit(),
              (test::Exit{0, "Greeting = hello world\na = 1\nc = <00ff>\n"}));

    ASSERT_EQ(run({"defaults", "delete", "Greeting"}).status, 0);
    EXPECT_FALSE(UserDefaults::standard()->hasValue("Greeting"));
    auto missing = run({"defaults", "read", "Greeting"});
    EXPECT_EQ(missing.exit(), (test::Exit{1, ""}));
    EXPECT_THAT(missing.err, HasSubstr("Greeting does not exist"));
    auto deleteMissing = run({"defaults", "delete", "Greeting"});
    EXPECT_EQ(deleteMissing.status, 1);
    EXPECT_THAT(deleteMissing.err, HasSubstr("nothing was changed"));
    EXPECT_EQ(UserDefaults::standard()->integer("a"), 1);
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
