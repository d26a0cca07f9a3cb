#include <gtest/gtest.h>

#include "zarvo/platform/ManualScheduler.h"

#include "TrackingTestSupport.h"
#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using test::TestHttpServer;
using Response = TestHttpServer::Response;
using State = ZMTrackingSessionState;

class TrackingSessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        server.on("/track/init.gif", Response::text("GIF89a"));
        server.on("/track/events.gif", Response::text("GIF89a"));
    }

    std::shared_ptr<ZMTrackingSession> startedSession(std::optional<double> minDuration = {},
                                                      std::string endpoint = {}) {
        auto session = ZMTrackingSession::make(
            test::sampleContent(endpoint.empty() ? server.url("/track") : endpoint),
            test::sampleDevice(), UrlSessionConfiguration(),
            ZMTrackingSessionConfiguration(minDuration));
        session->start();
        if (!minDuration) {  // otherwise the initialisation waits for the clock
            test::settle(session);
        }
        return session;
    }

    void advance(int seconds) {
        clock->advance(std::chrono::seconds(seconds));
        RunLoop::main().runUntilIdle();
    }

    std::vector<std::string> sent(const std::string& beacon, const std::string& item) const {
        return test::sentValues(server.requests(), "/track/" + beacon, item);
    }

    static std::filesystem::path fileOf(const std::shared_ptr<ZMTrackingSession>& session) {
        return test::sessionFile(session->localId());
    }

    test::TempHome home;
    std::shared_ptr<ManualScheduler> clock = ManualScheduler::create();
    ScopedStandardScheduler scopedClock{clock};
    TestHttpServer server;
};

TEST_F(TrackingSessionTest, StartSendsOneInitialisationBeaconAndStoresTheSession) {
    auto session =
        ZMTrackingSession::make(test::sampleContent(server.url("/track")), test::sampleDevice());
    EXPECT_EQ(session->state(), State::objectInitialized);
    session->start();
    session->start();
    test::settle(session);

    auto inits = server.requests();
    ASSERT_EQ(inits.size(), 1u);
    auto expected = test::sampleDevice().queryItems();
    auto content = session->contentInfo().queryItems();
    expected.insert(expected.end(), content.begin(), content.end());
    EXPECT_EQ(test::queryItems(inits[0].rawQuery), expected);
    EXPECT_EQ(session->state(), State::readyToSendEvents);
    EXPECT_EQ(session->lastError(), std::nullopt);
    auto file = test::readSessionFile(fileOf(session));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::initialized);
    session->finishAndCancel();
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, EventsGoInBatchesOfFiftyAndTheRestWithTheFinish) {
    auto session = startedSession();
    clock->advance(std::chrono::seconds(12));
    for (int i = 0; i < 120; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::playing(i), i);
        test::settle(session);
        if (i == 48) {
            EXPECT_TRUE(sent("events.gif", "events").empty());
            EXPECT_EQ(test::readSessionFile(fileOf(session))->events.size(), 49u);
        }
    }
    EXPECT_EQ(session->pendingEventsCount(), 20u);
    EXPECT_EQ(test::readSessionFile(fileOf(session))->events.size(), 20u);

    session->finishAndSendAllEvents();
    test::settle(session);
    std::vector<std::string> batches(3);  // 50, 50 and the last 20
    for (int i = 0; i < 120; ++i) {
        batches[std::min(i / 50, 2)] +=
            (i % 50 ? ";0,12," : "0,12,") + std::to_string(i) + "," + std::to_string(i);
    }
    EXPECT_EQ(sent("events.gif", "events"), batches);

    auto last = test::queryItems(server.requests().back().rawQuery);
    EXPECT_EQ(last, (std::vector<UrlQueryItem>{{"version", "V1"},
                                               {"customerId", "202"},
                                               {"sessionId", "S-42"},
                                               {"sessionDuration", "12"},
                                               {"events", last.back().value}}));
    EXPECT_EQ(session->state(), State::sessionMarkedAsFinished);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
    session->addTrackingEvent(ZMTrackingEvent::closed(1), 200);
    EXPECT_EQ(session->pendingEventsCount(), 0u);
}

TEST_F(TrackingSessionTest, AMinimumDurationKeepsTheSessionUnreportedUntilCancelled) {
    auto session = startedSession(30.0);
    session->addTrackingEvent(ZMTrackingEvent::playing(1), 1);
    advance(60);
    session->finishAndSendAllEvents();  // not started: nothing happens
    EXPECT_EQ(session->state(), State::ongoingSessionInitialization);
    auto file = test::readSessionFile(fileOf(session));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::none);
    EXPECT_EQ(file->events.size(), 1u);

    session->finishAndCancel();
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
    EXPECT_EQ(session->state(), State::sessionMarkedAsFinished);
    session->start();
    session->addTrackingEvent(ZMTrackingEvent::paused(2), 6);
    session->finishAndSendAllEvents();
    advance(60);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, ServerErrorsAreRetriedAfterAboutTwoMinutesOthersAreFinal) {
    server.on("/track/init.gif", Response::text("busy", 503));
    auto session = startedSession();
    EXPECT_EQ(session->lastError(), ZMTrackingSessionError::serverError(503, "busy"));
    EXPECT_EQ(session->state(), State::sessionStarted);
    ASSERT_EQ(clock->pendingCount(), 1u);
    EXPECT_GE(clock->nextDueIn()->count(), 116.0);
    EXPECT_LE(clock->nextDueIn()->count(), 120.0);

    server.on("/track/init.gif", Response::text("GIF89a"));
    advance(121);
    test::settle(session);
    EXPECT_EQ(server.requestCount("/track/init.gif"), 2u);
    EXPECT_EQ(session->state(), State::readyToSendEvents);
    EXPECT_EQ(session->lastError(), std::nullopt);

    // A 404 is final: no retry and the file goes.
    server.on("/track/events.gif", Response::text("gone", 404));
    session->addTrackingEvent(ZMTrackingEvent::playing(1), 1);
    session->finishAndSendAllEvents();
    test::settle(session);
    EXPECT_EQ(session->lastError(), ZMTrackingSessionError::serverError(404, "gone"));
    EXPECT_EQ(clock->pendingCount(), 0u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));

    server.on("/track/init.gif", Response::text("no such customer", 404));
    auto refused = startedSession();
    EXPECT_EQ(refused->lastError(), ZMTrackingSessionError::serverError(404, "no such customer"));
    EXPECT_EQ(clock->pendingCount(), 0u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(refused)));

    auto wrong = startedSession({}, "http://bad host/track");
    EXPECT_EQ(wrong->lastError(),
              ZMTrackingSessionError::wrongEndpointUrl("http://bad host/track"));
    EXPECT_FALSE(std::filesystem::exists(fileOf(wrong)));
}

TEST_F(TrackingSessionTest, ADroppedConnectionKeepsTheEventsAndIsRetried) {
    auto session = startedSession();
    server.on("/track/events.gif", Response::dropped());
    for (int i = 0; i < 3; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::buffering(i), i);
    }
    session->finishAndSendAllEvents();
    test::settle(session);
    ASSERT_TRUE(session->lastError());
    EXPECT_EQ(session->lastError()->kind(), ZMTrackingSessionError::Kind::connectionError);
    auto file = test::readSessionFile(fileOf(session));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::initialized);
    EXPECT_EQ(file->events.size(), 3u);

    server.on("/track/events.gif", Response::text("GIF89a"));
    advance(120);
    test::settle(session);
    auto batches = sent("events.gif", "events");
    ASSERT_GE(batches.size(), 2u);
    EXPECT_EQ(batches.back(), "1,0,0,0;1,0,1,1;1,0,2,2");
    EXPECT_EQ(session->lastError(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, AFinishingSessionOutlivesItsOwnerUntilItsEventsAreSent) {
    server.on("/track/events.gif", Response::text("slow", 503));
    auto session = startedSession();
    std::weak_ptr<ZMTrackingSession> weak = session;
    // Values with separators are sent as they are.
    session->addTrackingEvent(ZMTrackingEvent::audioTrackChanged("pl,en;de&x"), 30);
    session->finishAndSendAllEvents();
    test::settle(session);
    auto file = fileOf(session);
    session.reset();
    ASSERT_FALSE(weak.expired());

    server.on("/track/events.gif", Response::text("GIF89a"));
    advance(120);
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return weak.expired(); }));
    EXPECT_EQ(sent("events.gif", "events"), (std::vector<std::string>(2, "9,0,30,pl,en;de&x")));
    EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
}  // namespace zarvo
