#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/Timer.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

class TimerTest : public ::testing::Test {
  protected:
    // Moves time and lets the main run loop run what fell due.
    void advance(Scheduler::Duration by) {
        scheduler->advance(by);
        RunLoop::main().runUntilIdle();
    }

    std::shared_ptr<ManualScheduler> scheduler = ManualScheduler::create();
};

TEST_F(TimerTest, RepeatingTimerFiresOncePerIntervalUntilInvalidated) {
    int fires = 0;
    bool onMainThread = true;
    auto timer = Timer::scheduledTimer(
        10, true,
        [&](Timer&) {
            ++fires;
            onMainThread = onMainThread && DispatchQueue::isMainThread();
        },
        scheduler);
    EXPECT_TRUE(timer->isScheduled());
    advance(9s);
    EXPECT_EQ(fires, 0);
    for (int i = 1; i <= 5; ++i) {
        advance(10s);
        EXPECT_EQ(fires, i);
    }
    EXPECT_TRUE(onMainThread);
    EXPECT_EQ(timer->fireDate(), scheduler->now().addingTimeInterval(1));

    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    EXPECT_FALSE(timer->isScheduled());
    EXPECT_EQ(scheduler->pendingCount(), 0u);
    advance(100s);
    EXPECT_EQ(fires, 5);
}

TEST_F(TimerTest, RepeatingTimerSkipsFiresMissedWhileTheLoopWasNotRunning) {
    int fires = 0;
    auto timer = Timer::scheduledTimer(
        1, true, [&](Timer&) { ++fires; }, scheduler);
    const Date start = scheduler->now();
    scheduler->advance(10.5s);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fires, 1);
    // The next fire stays on the one-second grid, in the future.
    EXPECT_EQ(timer->fireDate(), start.addingTimeInterval(11));
    advance(0.5s);
    EXPECT_EQ(fires, 2);
    timer->invalidate();
}

TEST_F(TimerTest, BlockCanInvalidateItsOwnTimer) {
    int fires = 0;
    auto timer = Timer::scheduledTimer(
        5, true,
        [&](Timer& self) {
            if (++fires == 3) {
                self.invalidate();
            }
        },
        scheduler);
    for (int i = 0; i < 6; ++i) {
        advance(5s);
    }
    EXPECT_EQ(fires, 3);
    EXPECT_FALSE(timer->isValid());
}

TEST_F(TimerTest, OneShotTimerFiresOnceAndInvalidatesItself) {
    int fires = 0;
    auto timer = Timer::scheduledTimer(
        120, false, [&](Timer&) { ++fires; }, scheduler);
    advance(119s);
    EXPECT_EQ(fires, 0);
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(1));
    advance(1s);
    EXPECT_EQ(fires, 1);
    EXPECT_FALSE(timer->isValid());
    advance(240s);
    EXPECT_EQ(fires, 1);
}

TEST_F(TimerTest, ScheduledTimerKeepsRunningWhenItsOwnerDropsIt) {
    int fires = 0;
    std::weak_ptr<Timer> weak = Timer::scheduledTimer(
        3, false, [&](Timer&) { ++fires; }, scheduler);
    EXPECT_FALSE(weak.expired());  // the run loop holds a scheduled timer
    advance(3s);
    EXPECT_EQ(fires, 1);
    EXPECT_TRUE(weak.expired());  // and lets go once it is done
}

TEST_F(TimerTest, MadeTimerNeverFiresUntilAddedToTheRunLoop) {
    int fires = 0;
    auto timer = Timer::make(
        scheduler->now().addingTimeInterval(30), 0, false, [&](Timer&) { ++fires; }, scheduler);
    EXPECT_TRUE(timer->isValid());
    EXPECT_FALSE(timer->isScheduled());
    EXPECT_EQ(scheduler->pendingCount(), 0u);
    advance(3600s);
    EXPECT_EQ(fires, 0);

    // Its fire date has passed, so once added it fires on the next loop iteration.
    RunLoop::main().add(timer);
    RunLoop::main().add(timer);  // adding twice schedules it once
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fires, 1);
}

TEST_F(TimerTest, InvalidatedTimerCannotBeAdded) {
    int fires = 0;
    auto timer = Timer::make(
        scheduler->now().addingTimeInterval(1), 1, true, [&](Timer&) { ++fires; }, scheduler);
    timer->invalidate();
    RunLoop::main().add(timer);
    advance(5s);
    EXPECT_EQ(fires, 0);
    EXPECT_FALSE(timer->isScheduled());
}

TEST_F(TimerTest, UsesTheStandardSchedulerByDefault) {
    ScopedStandardScheduler scoped(scheduler);
    int fires = 0;
    auto timer = Timer::scheduledTimer(116, false, [&](Timer&) { ++fires; });
    EXPECT_EQ(timer->timeInterval(), 116);
    advance(116s);
    EXPECT_EQ(fires, 1);
}

TEST_F(TimerTest, TimersAddedFromAnotherThreadFireOnTheMainThread) {
    std::shared_ptr<Timer> timer;
    DispatchQueue::serial("adder")->sync([&] {
        timer = Timer::scheduledTimer(
            2, false, [](Timer&) {}, scheduler);
    });
    bool onMain = false;
    auto second = Timer::make(
        scheduler->now().addingTimeInterval(2), 0, false,
        [&](Timer&) { onMain = DispatchQueue::isMainThread(); }, scheduler);
    DispatchQueue::global()->sync([&] { RunLoop::main().add(second); });
    advance(2s);
    EXPECT_TRUE(onMain);
    EXPECT_FALSE(timer->isValid());
}

TEST(RealTimerTest, FiresOnTheSystemClock) {
    int fires = 0;
    auto timer = Timer::scheduledTimer(
        0.005, true, [&](Timer&) { ++fires; }, Scheduler::system());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return fires >= 3; }));
    timer->invalidate();
}

TEST(RunLoopTest, RunUntilGivesUpAfterItsSafetyTimeOut) {
    EXPECT_FALSE(RunLoop::main().runUntil([] { return false; }, 20ms));
}

TEST(RunLoopTest, RunReturnsWhenStoppedFromAnotherThread) {
    bool ranMainWork = false;
    DispatchQueue::main()->async([&] { ranMainWork = true; });
    std::thread stopper([] {
        DispatchQueue::main()->sync([] {});  // returns once the loop is running
        RunLoop::main().stop();
    });
    RunLoop::main().run();
    stopper.join();
    EXPECT_TRUE(ranMainWork);
}

TEST(RunLoopTest, NestedRunUntilStillRunsMainWork) {
    bool inner = false;
    bool outer = false;
    DispatchQueue::main()->async([&] {
        DispatchQueue::main()->async([&] { inner = true; });
        outer = RunLoop::main().runUntil([&] { return inner; }, 5s);
    });
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return outer; }));
}

TEST(RunLoopTest, FatalErrorInATimerSurfacesFromRunUntil) {
    ScopedFatalErrorHandler throwing;
    auto scheduler = ManualScheduler::create();
    auto timer = Timer::scheduledTimer(
        1, false, [](Timer&) { fatalError("timer failure"); }, scheduler);
    scheduler->advance(1s);
    EXPECT_THROW(RunLoop::main().runUntil([] { return false; }, 5s), FatalErrorException);
}

}  // namespace
}  // namespace zarvo
