#pragma once

#include <memory>
#include <mutex>

#include <gtest/gtest.h>
#include <httplib.h>

#include "origin/SampleOrigin.h"

namespace zarvo::origin::test {

// A wall clock that only moves when told to.
class TestClock {
  public:
    explicit TestClock(Date start) : now_(start) {}
    Date now() const {
        std::lock_guard lock(mutex_);
        return now_;
    }
    void set(Date date) {
        std::lock_guard lock(mutex_);
        now_ = date;
    }
    void advance(double seconds) { set(now().addingTimeInterval(seconds)); }

  private:
    mutable std::mutex mutex_;
    Date now_;
};

// One origin for a whole test suite (the content is made once and cached), with a test clock.
class OriginTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;

    static httplib::Client client();

    static std::unique_ptr<TestClock> clock_;
    static std::unique_ptr<SampleOrigin> origin_;
};

}  // namespace zarvo::origin::test
