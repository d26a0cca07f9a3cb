#include "OriginTestSupport.h"

#include <gtest/gtest.h>

namespace zarvo::origin::test {

std::unique_ptr<TestClock> OriginTest::clock_;
std::unique_ptr<SampleOrigin> OriginTest::origin_;

void OriginTest::SetUpTestSuite() {
    if (origin_) {
        return;
    }
    clock_ = std::make_unique<TestClock>(Date(1'800'000'000.0));
    OriginOptions options;
    options.clock = [clock = clock_.get()] {
        return clock->now();
    };
    options.requiredLicenseHeaders = {};
    origin_ = std::make_unique<SampleOrigin>(options);
    if (auto error = origin_->start()) {
        origin_.reset();
        FAIL() << "origin did not start: " << error->description();
    }
}

void OriginTest::TearDownTestSuite() {
    origin_.reset();
    clock_.reset();
}

void OriginTest::SetUp() {
    ASSERT_TRUE(origin_) << "no origin";
    origin_->faults().clear();
    origin_->beacons().clear();
}

httplib::Client OriginTest::client() {
    httplib::Client client("127.0.0.1", origin_->port());
    client.set_read_timeout(20, 0);
    return client;
}

}  // namespace zarvo::origin::test
