#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

TEST(ManualSchedulerTest, PostsDueWorkInDueOrderAndMovesBothClocks) {
    auto scheduler = ManualScheduler::create(1000, Date(2'000'000'000));
    auto main = DispatchQueue::main();
    std::vector<std::string> ran;
    auto record = [&](std::string name) {
        return [&, name] {
            ran.push_back(name);
        };
    };
    scheduler->schedule(3s, main, record("c"));
    scheduler->schedule(1s, main, record("a"));
    scheduler->schedule(2s, main, record("b1"));
    scheduler->schedule(2s, main, record("b2"));
    scheduler->schedule(10s, main, record("later"));
    scheduler->schedule(0s, main, record("now"));  // no delay: posted at once
    EXPECT_EQ(scheduler->pendingCount(), 5u);
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(1));

    scheduler->advance(5s);
    EXPECT_TRUE(ran.empty());  // main-queue work waits for the run loop
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "a", "b1", "b2", "c"}));
    EXPECT_EQ(scheduler->uptime(), 1005);
    EXPECT_EQ(scheduler->now(), Date(2'000'000'005));
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(5));
    scheduler->advance(-10s);  // time never goes back
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
    kept->cancel();  // after running, cancel changes nothing
    EXPECT_FALSE(kept->isCancelled());
    EXPECT_FALSE(scheduler->nextDueIn().has_value());
}

TEST(StandardSchedulerTest, IsTheSystemOneUnlessReplacedForAScope) {
    EXPECT_EQ(Scheduler::standard(), Scheduler::system());
    auto outer = ManualScheduler::create();
    {
        ScopedStandardScheduler scopedOuter(outer);
        {
            ScopedStandardScheduler scopedInner(ManualScheduler::create());
            EXPECT_NE(Scheduler::standard(), outer);
        }
        EXPECT_EQ(Scheduler::standard(), outer);
    }
    EXPECT_EQ(Scheduler::standard(), Scheduler::system());

    // The system scheduler runs earlier work first and honours cancel.
    auto system = Scheduler::system();
    auto queue = DispatchQueue::serial("system-order");
    std::vector<int> ran;
    bool done = false;
    // Far apart, so that a busy machine that pauses this thread between the calls does not
    // change which deadline comes first.
    system->schedule(0.5s, DispatchQueue::main(), [&] { done = true; });
    system->schedule(0.4s, queue, [&] { ran.push_back(2); });
    system->schedule(0.01s, queue, [&] { ran.push_back(1); });
    system->schedule(0.2s, queue, [&] { ran.push_back(99); })->cancel();
    system->schedule(0.2s, DispatchQueue::main(), [&] { ran.push_back(98); })->cancel();
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return done; }));
    queue->sync([] {});
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace zarvo
