#include <deque>
#include <mutex>

#include <gtest/gtest.h>

#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/tracking/ZMTrackingSession.h"

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
        for (std::string beacon : {"init.gif", "events.gif"}) {
            server.on("/track/" + beacon, [this, beacon](const TestHttpServer::Request&) {
                std::lock_guard lock(mutex);
                if (beacon == "events.gif" && dropEvents) {
                    return Response::dropped();
                }
                auto& script = scripts[beacon];
                if (script.empty()) {
                    return Response::text("GIF89a");
                }
                Response next = script.front();
                script.pop_front();
                return next;
            });
        }
    }

    void script(const std::string& beacon, Response response) {
        std::lock_guard lock(mutex);
        scripts[beacon].push_back(std::move(response));
    }

    std::shared_ptr<ZMTrackingSession> makeSession(std::optional<double> minDuration = {},
                                                   std::string endpoint = {}) {
        return ZMTrackingSession::make(
            test::sampleContent(endpoint.empty() ? server.url("/track") : endpoint),
            test::sampleDevice(), UrlSessionConfiguration(),
            ZMTrackingSessionConfiguration(minDuration));
    }

    // Waits for the beacon in flight, then runs what it posted to the main queue.
    void settle(const std::shared_ptr<ZMTrackingSession>& session) {
        ASSERT_TRUE(RunLoop::main().runUntil([&] { return !session->isAwaitingNetwork(); }));
        RunLoop::main().runUntilIdle();
    }

    std::vector<TestHttpServer::Request> requests(const std::string& beacon) const {
        std::vector<TestHttpServer::Request> found;
        for (auto& request : server.requests()) {
            if (request.path == "/track/" + beacon) {
                found.push_back(request);
            }
        }
        return found;
    }

    // The event texts of every events beacon, one entry per beacon.
    std::vector<std::vector<std::string>> sentBatches() const {
        std::vector<std::vector<std::string>> batches;
        for (auto& request : requests("events.gif")) {
            std::string events = test::queryValue(request.rawQuery, "events").value_or("");
            std::vector<std::string> batch;
            for (std::size_t start = 0; start <= events.size();) {
                std::size_t end = std::min(events.find(';', start), events.size());
                batch.push_back(events.substr(start, end - start));
                start = end + 1;
            }
            batches.push_back(batch);
        }
        return batches;
    }

    std::filesystem::path fileOf(const std::shared_ptr<ZMTrackingSession>& session) const {
        return test::trackingDirectory() / session->localId().uuidString();
    }

    std::optional<ZMTrackingSessionStorageData> stored(
        const std::shared_ptr<ZMTrackingSession>& session) const {
        return test::readSessionFile(fileOf(session));
    }

    test::TempHome home;
    std::shared_ptr<ManualScheduler> clock = ManualScheduler::create();
    ScopedStandardScheduler scopedClock{clock};
    TestHttpServer server;
    std::mutex mutex;
    std::map<std::string, std::deque<Response>> scripts;
    bool dropEvents = false;  // every events beacon loses its connection
};

TEST_F(TrackingSessionTest, StartSendsOneInitialisationBeaconAndStoresTheSession) {
    auto session = makeSession();
    EXPECT_EQ(session->state(), State::objectInitialized);
    session->start();
    session->start();
    settle(session);

    auto inits = requests("init.gif");
    ASSERT_EQ(inits.size(), 1u);
    std::vector<UrlQueryItem> expected = test::sampleDevice().queryItems();
    for (auto& item : session->contentInfo().queryItems()) {
        expected.push_back(item);
    }
    EXPECT_EQ(test::queryItems(inits[0].rawQuery), expected);
    EXPECT_EQ(session->state(), State::readyToSendEvents);
    EXPECT_EQ(session->lastError(), std::nullopt);

    auto file = stored(session);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::initialized);
    EXPECT_EQ(fileOf(session).filename().string(), session->localId().uuidString());
    session->finishAndCancel();
}

TEST_F(TrackingSessionTest, EventsGoInBatchesOfFiftyAndTheRestWithTheFinish) {
    auto session = makeSession();
    session->start();
    settle(session);
    clock->advance(std::chrono::seconds(12));
    for (int i = 0; i < 120; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::playing(i), i);
        settle(session);
        if (i == 48) {
            EXPECT_TRUE(requests("events.gif").empty());
            EXPECT_EQ(stored(session)->events.size(), 49u);
        }
    }
    EXPECT_EQ(session->pendingEventsCount(), 20u);
    EXPECT_EQ(stored(session)->events.size(), 20u);

    session->finishAndSendAllEvents();
    settle(session);
    auto batches = sentBatches();
    ASSERT_EQ(batches.size(), 3u);
    EXPECT_EQ(batches[0].size(), 50u);
    EXPECT_EQ(batches[1].size(), 50u);
    EXPECT_EQ(batches[2].size(), 20u);
    EXPECT_EQ(batches[0][0], "0,12,0,0");
    EXPECT_EQ(batches[2][19], "0,12,119,119");

    auto last = requests("events.gif").back();
    std::vector<std::string> names;
    for (auto& item : test::queryItems(last.rawQuery)) {
        names.push_back(item.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"version", "customerId", "sessionId",
                                               "sessionDuration", "events"}));
    EXPECT_EQ(test::queryValue(last.rawQuery, "sessionDuration"), "12");
    EXPECT_EQ(test::queryValue(last.rawQuery, "customerId"), "202");

    EXPECT_EQ(session->state(), State::sessionMarkedAsFinished);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
    session->addTrackingEvent(ZMTrackingEvent::closed(1), 200);
    EXPECT_EQ(session->pendingEventsCount(), 0u);
}

TEST_F(TrackingSessionTest, ValuesWithSeparatorsAreSentAsTheyAre) {
    auto session = makeSession();
    session->start();
    settle(session);
    session->addTrackingEvent(ZMTrackingEvent::audioTrackChanged("pl,en;de&x"), 30);
    session->finishAndSendAllEvents();
    settle(session);
    ASSERT_EQ(requests("events.gif").size(), 1u);
    EXPECT_EQ(test::queryValue(requests("events.gif")[0].rawQuery, "events"), "9,0,30,pl,en;de&x");
}

TEST_F(TrackingSessionTest, CancelRemovesTheFileAndStopsTheSession) {
    auto session = makeSession();
    session->start();
    settle(session);
    session->addTrackingEvent(ZMTrackingEvent::paused(1), 5);
    ASSERT_TRUE(std::filesystem::exists(fileOf(session)));

    session->finishAndCancel();
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
    EXPECT_EQ(session->state(), State::sessionMarkedAsFinished);
    session->start();
    session->addTrackingEvent(ZMTrackingEvent::paused(2), 6);
    session->finishAndSendAllEvents();
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(requests("events.gif").empty());
    EXPECT_EQ(requests("init.gif").size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, AMinimumDurationKeepsTheSessionUnreported) {
    auto session = makeSession(30.0);
    session->start();
    session->addTrackingEvent(ZMTrackingEvent::playing(1), 1);
    clock->advance(std::chrono::seconds(60));
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(session->state(), State::ongoingSessionInitialization);

    session->finishAndSendAllEvents();  // not started: nothing happens
    EXPECT_EQ(session->state(), State::ongoingSessionInitialization);
    auto file = stored(session);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::none);
    EXPECT_EQ(file->events.size(), 1u);
    EXPECT_TRUE(server.requests().empty());

    session->finishAndCancel();
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, ServerErrorsAreRetriedAfterAboutTwoMinutesOthersAreFinal) {
    script("init.gif", Response::text("busy", 503));
    auto session = makeSession();
    session->start();
    settle(session);
    EXPECT_EQ(session->lastError(), ZMTrackingSessionError::serverError(503, "busy"));
    EXPECT_EQ(session->state(), State::sessionStarted);
    ASSERT_EQ(clock->pendingCount(), 1u);
    double delay = clock->nextDueIn()->count();
    EXPECT_GE(delay, 116.0);
    EXPECT_LE(delay, 120.0);

    clock->advance(std::chrono::seconds(121));
    RunLoop::main().runUntilIdle();
    settle(session);
    EXPECT_EQ(requests("init.gif").size(), 2u);
    EXPECT_EQ(session->state(), State::readyToSendEvents);
    EXPECT_EQ(session->lastError(), std::nullopt);

    // A 404 on the events beacon is final: no retry and the file goes.
    script("events.gif", Response::text("gone", 404));
    session->addTrackingEvent(ZMTrackingEvent::playing(1), 1);
    session->finishAndSendAllEvents();
    settle(session);
    EXPECT_EQ(session->lastError(), ZMTrackingSessionError::serverError(404, "gone"));
    EXPECT_EQ(clock->pendingCount(), 0u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, AFinalInitialisationFailureRemovesTheFile) {
    script("init.gif", Response::text("no such customer", 404));
    auto session = makeSession();
    session->start();
    settle(session);
    EXPECT_EQ(session->lastError(), ZMTrackingSessionError::serverError(404, "no such customer"));
    EXPECT_EQ(clock->pendingCount(), 0u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));

    auto wrong = makeSession({}, "http://bad host/track");
    wrong->start();
    EXPECT_EQ(wrong->lastError(),
              ZMTrackingSessionError::wrongEndpointUrl("http://bad host/track"));
    EXPECT_FALSE(std::filesystem::exists(fileOf(wrong)));
}

TEST_F(TrackingSessionTest, ADroppedConnectionKeepsTheEventsAndIsRetried) {
    auto session = makeSession();
    session->start();
    settle(session);
    {
        std::lock_guard lock(mutex);
        dropEvents = true;
    }
    for (int i = 0; i < 3; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::buffering(i), i);
    }
    session->finishAndSendAllEvents();
    settle(session);
    ASSERT_TRUE(session->lastError());
    EXPECT_EQ(session->lastError()->kind(), ZMTrackingSessionError::Kind::connectionError);
    auto file = stored(session);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->sessionState, ZMTrackingSessionStorageState::initialized);
    EXPECT_EQ(file->events.size(), 3u);

    {
        std::lock_guard lock(mutex);
        dropEvents = false;
    }
    clock->advance(std::chrono::seconds(120));
    RunLoop::main().runUntilIdle();
    settle(session);
    auto batches = sentBatches();
    ASSERT_GE(batches.size(), 2u);
    EXPECT_EQ(batches.back(), (std::vector<std::string>{"1,0,0,0", "1,0,1,1", "1,0,2,2"}));
    EXPECT_EQ(session->lastError(), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(fileOf(session)));
}

TEST_F(TrackingSessionTest, AFinishingSessionOutlivesItsOwnerUntilItsEventsAreSent) {
    script("events.gif", Response::text("slow", 503));
    auto session = makeSession();
    std::weak_ptr<ZMTrackingSession> weak = session;
    session->start();
    settle(session);
    session->addTrackingEvent(ZMTrackingEvent::complete(1), 99);
    session->finishAndSendAllEvents();
    settle(session);
    auto file = fileOf(session);
    session.reset();
    ASSERT_FALSE(weak.expired());

    clock->advance(std::chrono::seconds(120));
    RunLoop::main().runUntilIdle();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return weak.expired(); }));
    EXPECT_EQ(sentBatches().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(file));
}

}  // namespace
}  // namespace zarvo
