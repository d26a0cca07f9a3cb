#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingSession.h"
#include "zarvo/tracking/ZMTrackingSessionsRestoreManager.h"

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

    // Writes a session file as a live session would have left it; returns its id.
    Uuid storeSession(StorageState state, std::vector<ZMInternalTrackingEvent> events) {
        Uuid id;
        ZMTrackingSessionStorageData data(test::sampleDevice(),
                                          test::sampleContent(server.url("/track")));
        data.sessionState = state;
        data.events = std::move(events);
        test::writeText(fileOf(id), data.encode());
        return id;
    }

    static std::filesystem::path fileOf(const Uuid& id) {
        return test::trackingDirectory() / id.uuidString();
    }

    void sendAndWait(ZMTrackingSessionsRestoreManager& manager) {
        manager.sendAllRestoredSessions();
        ASSERT_TRUE(RunLoop::main().runUntil([&] { return manager.pendingSendsCount() == 0; }));
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
    test::writeText(test::trackingDirectory() / "notes.txt", "not a session");
    std::string lowerCase = Uuid().uuidString();
    std::transform(lowerCase.begin(), lowerCase.end(), lowerCase.begin(), ::tolower);
    test::writeText(test::trackingDirectory() / lowerCase, "{}");
    Uuid garbage;
    test::writeText(fileOf(garbage), "{\"storageFileVersion\":\"v1\",");

    ZMTrackingSessionsRestoreManager manager;
    manager.restoreSessionsIfNotRestored();
    EXPECT_FALSE(std::filesystem::exists(test::trackingDirectory() / "notes.txt"));
    EXPECT_FALSE(std::filesystem::exists(test::trackingDirectory() / lowerCase));
    EXPECT_FALSE(std::filesystem::exists(fileOf(garbage)));
    std::vector<Uuid> expected = {initialized, neverStarted, delivered, empty};
    std::sort(expected.begin(), expected.end(),
              [](const Uuid& a, const Uuid& b) { return a.uuidString() < b.uuidString(); });
    EXPECT_EQ(manager.storedSessionsIds(), expected);

    sendAndWait(manager);
    auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "events"), "9,4,10,a;9,9,10,b;c");
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "sessionDuration"), "9");
    EXPECT_EQ(test::queryValue(requests[0].rawQuery, "sessionId"), "S-42");
    for (const Uuid& id : expected) {
        EXPECT_FALSE(std::filesystem::exists(fileOf(id))) << id.uuidString();
    }

    sendAndWait(manager);  // every stored session was taken on already
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(TrackingRestoreTest, RestoreReadsTheDirectoryOnlyOnce) {
    ZMTrackingSessionsRestoreManager manager;
    manager.restoreSessionsIfNotRestored();
    EXPECT_TRUE(manager.storedSessionsIds().empty());
    Uuid later = storeSession(StorageState::initialized, {event(1, "a")});
    manager.restoreSessionsIfNotRestored();
    sendAndWait(manager);
    EXPECT_TRUE(manager.storedSessionsIds().empty());
    EXPECT_TRUE(std::filesystem::exists(fileOf(later)));
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(TrackingRestoreTest, AFailedBeaconLeavesTheFileForTheNextRun) {
    server.on("/track/events.gif", TestHttpServer::Response::text("busy", 503));
    Uuid id = storeSession(StorageState::initialized, {event(1, "a")});
    std::string before = [&] {
        std::ifstream in(fileOf(id));
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }();
    {
        ZMTrackingSessionsRestoreManager manager;
        manager.restoreSessionsIfNotRestored();
        sendAndWait(manager);
        sendAndWait(manager);
        EXPECT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(test::readSessionFile(fileOf(id)), ZMTrackingSessionStorageData::decode(before));
    }
    server.on("/track/events.gif", TestHttpServer::Response::text("ok"));
    ZMTrackingSessionsRestoreManager nextRun;
    nextRun.restoreSessionsIfNotRestored();
    sendAndWait(nextRun);
    EXPECT_EQ(server.requests().size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(fileOf(id)));
}

// The child half of the kill test: records events in a live session, says so, and waits
// to be killed. Runs only when started by the test below.
TEST(TrackingKillTest, ChildRecordsEventsUntilKilled) {
    const char* endpoint = std::getenv("ZM_TRACKING_CHILD_ENDPOINT");
    if (!endpoint) {
        GTEST_SKIP() << "runs as the child of KilledSessionIsSentByTheNextProcess";
    }
    auto session = ZMTrackingSession::make(test::sampleContent(endpoint), test::sampleDevice());
    session->start();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return !session->isAwaitingNetwork(); }));
    for (int i = 0; i < 75; ++i) {
        session->addTrackingEvent(ZMTrackingEvent::playing(i), i);
        ASSERT_TRUE(RunLoop::main().runUntil([&] { return !session->isAwaitingNetwork(); }));
    }
    std::printf("\nZM-CHILD-READY\n");
    std::fflush(stdout);
    for (;;) {
        ::pause();
    }
}

TEST(TrackingKillTest, KilledSessionIsSentByTheNextProcess) {
    test::TempHome home;
    TestHttpServer server;
    server.on("/track/init.gif", TestHttpServer::Response::text("ok"));
    server.on("/track/events.gif", TestHttpServer::Response::text("ok"));

    int output[2];
    ASSERT_EQ(::pipe(output), 0);
    std::string homeText = home.path().string();
    std::string endpoint = server.url("/track");
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::close(output[0]);
        ::setenv("ZM_HOME", homeText.c_str(), 1);
        ::setenv("ZM_TRACKING_CHILD_ENDPOINT", endpoint.c_str(), 1);
        ::execl("/proc/self/exe", "tracking_tests",
                "--gtest_filter=TrackingKillTest.ChildRecordsEventsUntilKilled", nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    std::string seen;
    char buffer[512];
    ssize_t count;
    while (seen.find("ZM-CHILD-READY") == std::string::npos &&
           (count = ::read(output[0], buffer, sizeof buffer)) > 0) {
        seen.append(buffer, static_cast<std::size_t>(count));
    }
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(output[0]);
    ASSERT_NE(seen.find("ZM-CHILD-READY"), std::string::npos) << seen;
    ASSERT_TRUE(WIFSIGNALED(status));

    ASSERT_EQ(server.requestCount("/track/events.gif"), 1u);  // the first 50
    ZMTrackingSessionsRestoreManager manager;
    manager.restoreSessionsIfNotRestored();
    ASSERT_EQ(manager.storedSessionsIds().size(), 1u);
    manager.sendAllRestoredSessions();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return manager.pendingSendsCount() == 0; }));

    std::vector<std::string> sent;
    for (auto& request : server.requests()) {
        if (request.path == "/track/events.gif") {
            sent.push_back(test::queryValue(request.rawQuery, "events").value_or(""));
        }
    }
    ASSERT_EQ(sent.size(), 2u);
    // Real time passes in the child: compare everything but the session offsets.
    std::vector<std::string> events;
    for (std::size_t start = 0; start < sent[1].size();) {
        std::size_t end = std::min(sent[1].find(';', start), sent[1].size());
        std::string event = sent[1].substr(start, end - start);
        std::size_t second = event.find(',', 2);
        events.push_back(event.substr(0, 2) + event.substr(second + 1));
        start = end + 1;
    }
    ASSERT_EQ(events.size(), 25u);
    for (int i = 50; i < 75; ++i) {
        EXPECT_EQ(events[i - 50], "0," + std::to_string(i) + "," + std::to_string(i));
    }
    EXPECT_TRUE(std::filesystem::is_empty(test::trackingDirectory()));
}

}  // namespace
}  // namespace zarvo
