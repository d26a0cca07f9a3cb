#pragma once

#include <memory>

#include <gtest/gtest.h>

#include "origin/SampleOrigin.h"

namespace zarvo::test {

// A test suite with one sample origin on loopback, started before its first test and stopped
// after its last. Only for test executables that link the origin library.
class SampleOriginTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        origin_ = std::make_unique<origin::SampleOrigin>();
        auto error = origin_->start();
        ASSERT_FALSE(error) << error->description();
    }
    static void TearDownTestSuite() { origin_.reset(); }

    inline static std::unique_ptr<origin::SampleOrigin> origin_;
};

}  // namespace zarvo::test
