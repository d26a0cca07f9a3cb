#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/ProcessInfo.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

TEST(ManualSchedulerTest, ClockMovesOnlyWhenAdvanced) {
    auto scheduler = ManualScheduler::create(50, Date(2'000'000'000));
    EXPECT_EQ(scheduler->uptime(), 50);
    EXPECT_EQ(scheduler->now(), Date(2'000'000'000));
    scheduler->advance(2.5s);
    EXPECT_EQ(scheduler->uptime(), 52.5);
    EXPECT_EQ(scheduler->now(), Date(2'000'000'002.5));
    scheduler->advance(-10s);  // time never goes back
    EXPECT_EQ(scheduler->uptime(), 52.5);
}

TEST(ManualSchedulerTest, PostsDueWorkInDueOrderWithTiesInSchedulingOrder) {
    auto scheduler = ManualScheduler::create();
    auto main = DispatchQueue::main();
    std::vector<std::string> ran;
    std::vector<double> clock;
    auto record = [&](std::string name) {
        return [&, name] {
            ran.push_back(name);
            clock.push_back(scheduler->uptime());
        };
    };
    scheduler->schedule(3s, main, record("c"));
    scheduler->schedule(1s, main, record("a"));
    scheduler->schedule(2s, main, record("b1"));
    scheduler->schedule(2s, main, record("b2"));
    scheduler->schedule(10s, main, record("later"));
    EXPECT_EQ(scheduler->pendingCount(), 5u);
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(1));

    scheduler->advance(5s);
    EXPECT_TRUE(ran.empty());  // main-queue work waits for the run loop
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"a", "b1", "b2", "c"}));
    EXPECT_EQ(scheduler->pendingCount(), 1u);
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(5));
    EXPECT_EQ(scheduler->uptime(), 1005);
}

TEST(ManualSchedulerTest, CancelledWorkNeverRuns) {
    auto scheduler = ManualScheduler::create();
    auto main = DispatchQueue::main();
    int ran = 0;
    auto pending = scheduler->schedule(1s, main, [&] { ++ran; });
    auto posted = scheduler->schedule(1s, main, [&] { ++ran; });
    auto kept = scheduler->schedule(1s, main, [&] { ++ran; });
    pending->cancel();
    EXPECT_TRUE(pending->isCancelled());
    EXPECT_EQ(scheduler->pendingCount(), 2u);
    scheduler->advance(1s);
    posted->cancel();  // already handed to the queue but not yet run
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(ran, 1);
    EXPECT_FALSE(kept->isCancelled());
    kept->cancel();  // after running, cancel changes nothing
    EXPECT_FALSE(kept->isCancelled());
    EXPECT_FALSE(scheduler->nextDueIn().has_value());
}

TEST(ManualSchedulerTest, DroppingTheHandleDoesNotCancel) {
    auto scheduler = ManualScheduler::create();
    bool ran = false;
    scheduler->schedule(7s, DispatchQueue::main(), [&] { ran = true; });
    scheduler->advance(7s);
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(ran);
}

TEST(ManualSchedulerTest, WorkWithoutDelayIsPostedAtOnce) {
    auto scheduler = ManualScheduler::create();
    bool ran = false;
    scheduler->schedule(0s, DispatchQueue::main(), [&] { ran = true; });
    EXPECT_EQ(scheduler->pendingCount(), 0u);
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(ran);
}

TEST(ManualSchedulerTest, WorkScheduledByDueWorkUsesTheNewTime) {
    auto scheduler = ManualScheduler::create();
    auto main = DispatchQueue::main();
    std::vector<double> ranAt;
    std::function<void()> retry = [&] {
        ranAt.push_back(scheduler->uptime());
        if (ranAt.size() < 3) {
            scheduler->schedule(120s, main, retry);
        }
    };
    scheduler->schedule(120s, main, retry);
    for (int i = 0; i < 4; ++i) {
        scheduler->advance(120s);
        RunLoop::main().runUntilIdle();
    }
    EXPECT_EQ(ranAt, (std::vector<double>{1120, 1240, 1360}));
}

TEST(StandardSchedulerTest, IsTheSystemOneUnlessReplacedForAScope) {
    EXPECT_EQ(Scheduler::standard(), Scheduler::system());
    auto outer = ManualScheduler::create();
    {
        ScopedStandardScheduler scopedOuter(outer);
        EXPECT_EQ(Scheduler::standard(), outer);
        {
            auto inner = ManualScheduler::create();
            ScopedStandardScheduler scopedInner(inner);
            EXPECT_EQ(Scheduler::standard(), inner);
        }
        EXPECT_EQ(Scheduler::standard(), outer);
    }
    EXPECT_EQ(Scheduler::standard(), Scheduler::system());
}

TEST(StandardSchedulerTest, SystemSchedulerUsesTheRealClocks) {
    auto system = Scheduler::system();
    EXPECT_NEAR(system->uptime(), ProcessInfo::systemUptime(), 1.0);
    EXPECT_NEAR(system->now().timeIntervalSince1970(), Date::systemNow().timeIntervalSince1970(),
                1.0);
}

TEST(StandardSchedulerTest, SystemSchedulerRunsEarlierWorkFirstAndHonoursCancel) {
    auto system = Scheduler::system();
    auto queue = DispatchQueue::serial("system-order");
    std::vector<int> ran;
    bool done = false;
    system->schedule(0.03s, DispatchQueue::main(), [&] { done = true; });
    system->schedule(0.02s, queue, [&] { ran.push_back(2); });
    system->schedule(0.01s, queue, [&] { ran.push_back(1); });
    auto cancelled = system->schedule(0.015s, queue, [&] { ran.push_back(99); });
    auto cancelledMain =
        system->schedule(0.015s, DispatchQueue::main(), [&] { ran.push_back(98); });
    cancelled->cancel();
    cancelledMain->cancel();
    EXPECT_TRUE(cancelled->isCancelled());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return done; }));
    queue->sync([] {});
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace zarvo
