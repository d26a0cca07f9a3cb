#include <gtest/gtest.h>

#include "zarvo/platform/Error.h"
#include "zarvo/platform/FatalError.h"

namespace zarvo {
namespace {

TEST(ErrorTest, DescribesAndComparesEveryPartIncludingTheInnerError) {
    const auto cause = Error::withDescription("NSURLErrorDomain", -1001, "timed out");
    const Error error("ZMPlayerErrorDomain", 10,
                      {{Error::localizedDescriptionKey, "Key loading failed"}, {"extra", "x"}},
                      cause);
    EXPECT_EQ(error.localizedDescription(), "Key loading failed");
    EXPECT_EQ(error.userInfoValue("extra"), "x");
    EXPECT_EQ(error.userInfoValue("missing"), std::nullopt);
    ASSERT_NE(error.innerError(), nullptr);
    EXPECT_EQ(*error.innerError(), cause);
    EXPECT_EQ(cause.innerError(), nullptr);
    EXPECT_EQ(error.description(),
              "Error Domain=ZMPlayerErrorDomain Code=10 \"Key loading failed\" "
              "InnerError={Error Domain=NSURLErrorDomain Code=-1001 \"timed out\"}");
    EXPECT_EQ(Error("SomeDomain", -3).localizedDescription(),
              "The operation couldn't be completed. (SomeDomain error -3.)");

    const auto base = Error::withDescription("D", 1, "text");
    EXPECT_EQ(base, Error::withDescription("D", 1, "text"));
    for (const auto& other :
         {Error::withDescription("E", 1, "text"), Error::withDescription("D", 2, "text"),
          Error::withDescription("D", 1, "other")}) {
        EXPECT_NE(base, other);
    }
    const Error withInner("D", 1, base.userInfo(), Error("I", 1));
    EXPECT_NE(base, withInner);
    EXPECT_NE(withInner, base);
    EXPECT_EQ(withInner, Error("D", 1, base.userInfo(), Error("I", 1)));
    EXPECT_NE(withInner, Error("D", 1, base.userInfo(), Error("I", 2)));
}

TEST(FatalErrorTest, ThrowingHandlersNestAndRestoreThePreviousOne) {
    ScopedFatalErrorHandler outer;
    try {
        fatalError("a second task for one download");
        FAIL() << "fatalError returned";
    } catch (const FatalErrorException& error) {
        EXPECT_STREQ(error.what(), "a second task for one download");
    }
    {
        ScopedFatalErrorHandler inner(
            [](const std::string& text) { throw std::logic_error(text); });
        EXPECT_THROW(fatalError("x"), std::logic_error);
    }
    EXPECT_THROW(fatalError("x"), FatalErrorException);
}

TEST(FatalErrorDeathTest, DefaultHandlerPrintsAndAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(fatalError("impossible status"), "Fatal error: impossible status");
    // A handler that returns does not keep the process alive.
    EXPECT_DEATH(
        {
            ScopedFatalErrorHandler returning([](const std::string&) {});
            fatalError("returned");
        },
        "Fatal error: returned");
}

}  // namespace
}  // namespace zarvo
