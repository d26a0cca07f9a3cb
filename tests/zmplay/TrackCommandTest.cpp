// zmplay track against the sample origin's beacon collector.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/SampleOriginTest.h"
#include "zmplay/ZmplayRun.h"

namespace zarvo {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class TrackCommandTest : public test::ZmplayTest<test::SampleOriginTest> {
protected:
    void SetUp() override { origin_->beacons().clear(); }
    void TearDown() override { origin_->faults().remove("/track/"); }

    test::ZmplayResult track(std::vector<std::string> arguments) {
        std::vector<std::string> all = {"track",        "--endpoint",   origin_->url("/track/t"),
                                        "--content-id", "11",           "--customer-id",
                                        "22",           "--session-id", "S-7"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run(all);
    }

    std::vector<std::string> beaconPaths() const {
        std::vector<std::string> paths;
        std::ranges::transform(origin_->beacons().beacons(), std::back_inserter(paths),
                               &origin::BeaconLog::Beacon::path);
        return paths;
    }

    std::string eventsOf(std::size_t index) const {
        const auto query = origin_->beacons().beacons().at(index).query;
        const auto item = std::ranges::find(query, "events", &UrlQueryItem::name);
        return item == query.end() ? "" : item->value.value_or("");
    }

    std::vector<std::string> storedFiles() const {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(
                 home.path() / "Library/Caches/TrackingSessions", ignored)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }
};

TEST_F(TrackCommandTest, FinishReportsTheSessionAndItsEventsCancelOnlyTheSession) {
    auto result = track({"--event", "playing:10@5", "--event", "audioTrackChanged:pl,en;x@30"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("state: sessionMarkedAsFinished\nlastError: none\n"));
    ASSERT_EQ(beaconPaths(),
              (std::vector<std::string>{"/track/t/init.gif", "/track/t/events.gif"}));
    EXPECT_THAT(eventsOf(1), MatchesRegex("0,[0-9]+,5,10;9,[0-9]+,30,pl,en;x"));
    auto init = origin_->beacons().beacons()[0].query;
    ASSERT_GE(init.size(), 12u);
    EXPECT_EQ(init[0].name, "agent");
    EXPECT_EQ(init[9], (UrlQueryItem{"rendererType", "AVPLAYER"}));
    EXPECT_TRUE(storedFiles().empty());

    // Cancelling instead sends no events and leaves no file either.
    origin_->beacons().clear();
    auto cancelled = track({"--event", "playing:1@1", "--cancel"});
    EXPECT_EQ(cancelled.status, 0) << cancelled.err;
    EXPECT_THAT(cancelled.out, HasSubstr("state: sessionMarkedAsFinished"));
    EXPECT_EQ(beaconPaths(), std::vector<std::string>{"/track/t/init.gif"});
    EXPECT_TRUE(storedFiles().empty());
}

TEST_F(TrackCommandTest, ALeftSessionIsSentByTheNextRestore) {
    auto left = track({"--event", "paused:1@7", "--event", "seeking:120@8", "--leave"});
    EXPECT_EQ(left.status, 0) << left.err;
    EXPECT_THAT(left.out, HasSubstr("state: readyToSendEvents"));
    auto start = left.out.find("localId: ");
    ASSERT_NE(start, std::string::npos);
    std::string id = left.out.substr(start + 9, 36);
    EXPECT_EQ(storedFiles(), std::vector<std::string>{id});
    ASSERT_EQ(beaconPaths().size(), 1u);

    auto restored = run({"track", "--restore"});
    EXPECT_EQ(restored.exit(), (test::Exit{0, "restored: " + id + "\n"})) << restored.err;
    ASSERT_EQ(beaconPaths().size(), 2u);
    EXPECT_THAT(eventsOf(1), MatchesRegex("2,[0-9]+,7,1;3,[0-9]+,8,120"));
    EXPECT_TRUE(storedFiles().empty());

    auto again = run({"track", "--restore"});
    EXPECT_EQ(again.out, "");
    EXPECT_EQ(beaconPaths().size(), 2u);
}

TEST_F(TrackCommandTest, AServerErrorFailsTheRunAndKeepsTheEventsStored) {
    origin_->faults().add(origin::Fault{.pathPrefix = "/track/", .status = 503});
    auto result = track({"--event", "playing:1@1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("lastError: serverError(503"));
    EXPECT_EQ(storedFiles().size(), 1u);
}

TEST_F(TrackCommandTest, BadArgumentsAreRefusedWithoutARequest) {
    for (std::vector<std::string> arguments : {std::vector<std::string>{"--event", "dancing:1@1"},
                                               {"--event", "playing:one@1"},
                                               {"--event", "playing:1"},
                                               {"--finish", "--cancel"},
                                               {"--duration"}}) {
        auto result = track(arguments);
        EXPECT_EQ(result.status, 2) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("zmplay track: "));
    }
    auto missing = run({"track", "--endpoint", origin_->url("/track/t")});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("required"));
    EXPECT_TRUE(beaconPaths().empty());
}

}  // namespace
}  // namespace zarvo
