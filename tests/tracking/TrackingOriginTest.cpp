// Tracking sessions end to end against the sample origin's beacon collector.
#include <gtest/gtest.h>

#include "zarvo/platform/ManualScheduler.h"

#include "TrackingTestSupport.h"
#include "support/SampleOriginTest.h"
#include "support/TempHome.h"

namespace zarvo {
namespace {

class TrackingOriginTest : public test::SampleOriginTest {
protected:
    void SetUp() override { origin_->beacons().clear(); }
    void TearDown() override { origin_->faults().clear(); }

    std::vector<std::string> received(const std::string& path, const std::string& item) const {
        return test::sentValues(origin_->beacons().beacons(), path, item);
    }

    test::TempHome home;
    std::shared_ptr<ManualScheduler> clock = ManualScheduler::create();
    ScopedStandardScheduler scopedClock{clock};
};

TEST_F(TrackingOriginTest, TheCollectorReceivesEveryEventThroughAServerError) {
    origin_->faults().add(
        origin::Fault{.pathPrefix = "/track/c/events.gif", .status = 503, .count = 1});
    auto session = ZMTrackingSession::make(test::sampleContent(origin_->url("/track/c")),
                                           test::sampleDevice());
    session->start();
    test::settle(session);
    clock->advance(std::chrono::seconds(3));
    for (int i = 0; i < 60; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::seeking(i), i * 2);
        test::settle(session);
        if (i == 49) {
            EXPECT_EQ(session->lastError(),
                      ZMTrackingSessionError::serverError(503, "Fault injected: status 503\n"));
        }
    }
    clock->advance(std::chrono::seconds(120));
    RunLoop::main().runUntilIdle();
    test::settle(session);
    session->finishAndSendAllEvents();
    test::settle(session);

    EXPECT_EQ(received("/track/c/init.gif", "sessionId"), std::vector<std::string>{"S-42"});
    // The batch of 50 went again with the next event; the last 10 went with the finish.
    auto events = received("/track/c/events.gif", "events");
    ASSERT_GE(events.size(), 2u);
    events.erase(events.begin(), events.end() - 2);
    EXPECT_EQ(events[0].substr(0, 14), "3,3,0,0;3,3,2,");
    EXPECT_EQ(std::count(events[0].begin(), events[0].end(), ';'), 49);
    EXPECT_EQ(std::count(events[1].begin(), events[1].end(), ';'), 9);
    EXPECT_EQ(received("/track/c/events.gif", "sessionDuration").back(), "123");
    EXPECT_EQ(session->pendingEventsCount(), 0u);
    EXPECT_TRUE(std::filesystem::is_empty(test::trackingDirectory()));
}

TEST_F(TrackingOriginTest, ARestoredSessionReachesTheCollector) {
    test::storeSession(origin_->url("/track/r"), ZMTrackingSessionStorageState::initialized,
                       {ZMInternalTrackingEvent::make(ZMTrackingEvent::stopped(5), 40, 600)});
    ZMTrackingSessionsRestoreManager manager;
    test::sendRestored(manager);
    EXPECT_EQ(received("/track/r/events.gif", "events"), std::vector<std::string>{"6,40,600,5"});
    EXPECT_EQ(received("/track/r/events.gif", "sessionDuration"), std::vector<std::string>{"40"});
    EXPECT_TRUE(std::filesystem::is_empty(test::trackingDirectory()));
}

}  // namespace
}  // namespace zarvo
