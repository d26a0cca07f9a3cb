#include <cctype>
#include <chrono>
#include <cstdlib>
#include <regex>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/tracking/ZMTrackingSessionStorage.h"

#include "TrackingTestSupport.h"
#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using test::TestHttpServer;
using StorageState = ZMTrackingSessionStorageState;

class TrackingRestoreTest : public ::testing::Test {
protected:
    void SetUp() override { server.on("/track/events.gif", TestHttpServer::Response::text("ok")); }

    Uuid storeSession(StorageState state, std::vector<ZMInternalTrackingEvent> events) {
        return test::storeSession(server.url("/track"), state, std::move(events));
    }

    static ZMInternalTrackingEvent event(std::int64_t sessionOffset, std::string value) {
        return ZMInternalTrackingEvent::make(ZMTrackingEvent::audioTrackChanged(std::move(value)),
                                             sessionOffset, 10);
    }

    test::TempHome home;
    TestHttpServer server;
};

TEST_F(TrackingRestoreTest, InitialisedSessionsSendTheirEventsOthersAreRemovedUnsent) {
    Uuid initialized = storeSession(StorageState::initialized, {event(4, "a"), event(9, "b;c")});
    Uuid neverStarted = storeSession(StorageState::none, {event(1, "x")});
    Uuid delivered = storeSession(StorageState::markedAsFinished, {});
    Uuid empty = storeSession(StorageState::initialized, {});
    std::string lowerCase = Uuid().uuidString();
    std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), ::tolower);
    Uuid garbage;
    std::vector<std::filesystem::path> strays = {test::trackingDirectory() / "notes.txt",
                                                 test::trackingDirectory() / lowerCase,
                                                 test::sessionFile(garbage)};
    test::writeText(strays[0], "not a session");
    test::writeText(strays[1], "{}");
    test::writeText(strays[2], "{\"storageFileVersion\":\"v1\",");

    ZMTrackingSessionsRestoreManager manager;
    manager.restoreSessionsIfNotRestored();
    for (const auto& stray : strays) {
        EXPECT_FALSE(std::filesystem::exists(stray)) << stray;
    }
    std::vector<Uuid> expected = {initialized, neverStarted, delivered, empty};
    std::sort(expected.begin(), expected.end(),
              [](const Uuid& a, const Uuid& b) { return a.uuidString() < b.uuidString(); });
    EXPECT_EQ(manager.storedSessionsIds(), expected);

    test::sendRestored(manager);
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "events"), "9,4,10,a;9,9,10,b;c");
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "sessionDuration"), "9");
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "sessionId"), "S-42");
    for (const Uuid& id : expected) {
        EXPECT_FALSE(std::filesystem::exists(test::sessionFile(id))) << id.uuidString();
    }

    // The directory is read only once: a later file waits for the next run.
    Uuid later = storeSession(StorageState::initialized, {event(1, "a")});
    test::sendRestored(manager);
    EXPECT_EQ(server.requests().size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(test::sessionFile(later)));
    EXPECT_EQ(manager.storedSessionsIds(), expected);
}

TEST_F(TrackingRestoreTest, ASaveUnderWayElsewhereSurvivesARestoreAndAFailedSaveIsRetried) {
    namespace fs = std::filesystem;
    const fs::path saving = ZMTrackingSessionStorageUrls::savingDirectory();
    const fs::path underWay = saving / (Uuid().uuidString() + ".tmp-99999-0");
    const fs::path leftover = saving / (Uuid().uuidString() + ".tmp-99998-0");
    test::writeText(underWay, "{\"storageFileVersion\":");
    test::writeText(leftover, "{");
    fs::last_write_time(leftover, fs::file_time_type::clock::now() - std::chrono::minutes(10));
    ZMTrackingSessionsRestoreManager().restoreSessionsIfNotRestored();
    EXPECT_TRUE(fs::exists(underWay));
    EXPECT_FALSE(fs::exists(leftover));

    // A save that cannot be written is kept as the last error and done by the next one.
    ZMTrackingSessionStorage storage(
        Uuid(), ZMTrackingSessionStorageData(test::sampleDevice(), test::sampleContent("e")));
    fs::remove_all(saving);
    test::writeText(saving, "a file where the folder belongs");
    EXPECT_FALSE(storage.save());
    EXPECT_TRUE(storage.lastError());
    EXPECT_FALSE(fs::exists(test::sessionFile(storage.sessionLocalId())));
    fs::remove(saving);
    storage.storageData.sessionState = StorageState::initialized;
    EXPECT_TRUE(storage.save());
    EXPECT_FALSE(storage.lastError());
    auto stored = test::readSessionFile(test::sessionFile(storage.sessionLocalId()));
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->sessionState, StorageState::initialized);
    EXPECT_TRUE(fs::is_empty(saving));
}

TEST_F(TrackingRestoreTest, AFailedBeaconLeavesTheFileForTheNextRun) {
    server.on("/track/events.gif", TestHttpServer::Response::text("busy", 503));
    Uuid id = storeSession(StorageState::initialized, {event(1, "a")});
    auto before = test::readSessionFile(test::sessionFile(id));
    ASSERT_TRUE(before);
    {
        ZMTrackingSessionsRestoreManager manager;
        test::sendRestored(manager);
        test::sendRestored(manager);
        EXPECT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(test::readSessionFile(test::sessionFile(id)), before);
    }
    server.on("/track/events.gif", TestHttpServer::Response::text("ok"));
    ZMTrackingSessionsRestoreManager nextRun;
    test::sendRestored(nextRun);
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(test::sessionFile(id)));
}

// The child half of the kill test: records events in a live session, then dies by SIGKILL.
// Runs only when started by the test below.
TEST(TrackingKillTest, ChildRecordsEventsUntilKilled) {
    const char* endpoint = std::getenv("ZM_TRACKING_CHILD_ENDPOINT");
    if (!endpoint) {
        GTEST_SKIP() << "runs as the child of KilledSessionIsSentByTheNextProcess";
    }
    auto session = ZMTrackingSession::make(test::sampleContent(endpoint), test::sampleDevice());
    session->start();
    test::settle(session);
    for (int i = 0; i < 75; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::playing(i), i);
        test::settle(session);
    }
    if (!::testing::Test::HasFailure()) {
        ::kill(::getpid(), SIGKILL);
    }
}

TEST(TrackingKillTest, KilledSessionIsSentByTheNextProcess) {
    test::TempHome home;
    TestHttpServer server;
    server.on("/track/init.gif", TestHttpServer::Response::text("ok"));
    server.on("/track/events.gif", TestHttpServer::Response::text("ok"));
    std::string homeText = home.path().string();
    std::string endpoint = server.url("/track");
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::setenv("ZM_HOME", homeText.c_str(), 1);
        ::setenv("ZM_TRACKING_CHILD_ENDPOINT", endpoint.c_str(), 1);
        ::execl("/proc/self/exe", "tracking_tests",
                "--gtest_filter=TrackingKillTest.ChildRecordsEventsUntilKilled", nullptr);
        ::_exit(127);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;

    ASSERT_EQ(server.requestCount("/track/events.gif"), 1u);  // the first 50
    ZMTrackingSessionsRestoreManager manager;
    manager.restoreSessionsIfNotRestored();
    ASSERT_EQ(manager.storedSessionsIds().size(), 1u);
    test::sendRestored(manager);

    auto sent = test::sentValues(server.requests(), "/track/events.gif", "events");
    ASSERT_EQ(sent.size(), 2u);
    // Real time passes in the child: the session offsets are not compared.
    std::string expected;
    for (int i = 50; i < 75; ++i) {
        expected += (i > 50 ? ";0,#," : "0,#,") + std::to_string(i) + "," + std::to_string(i);
    }
    EXPECT_EQ(std::regex_replace(sent[1], std::regex("0,\\d+,(\\d+,\\d+)"), "0,#,$1"), expected);
    EXPECT_TRUE(std::filesystem::is_empty(test::trackingDirectory()));
}

}  // namespace
}  // namespace zarvo
