#include <thread>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
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
    ScopedStandardScheduler scoped{scheduler};
    int fires = 0;
    Timer::Block count = [this](Timer&) {
        ++fires;
    };
};

TEST_F(TimerTest, RepeatingTimerFiresOncePerIntervalUntilInvalidated) {
    auto timer = Timer::scheduledTimer(10, true, count);
    advance(9s);
    EXPECT_EQ(fires, 0);
    for (int i = 1; i <= 5; ++i) {
        advance(10s);
        EXPECT_EQ(fires, i);
    }
    timer->invalidate();
    EXPECT_FALSE(timer->isValid());
    EXPECT_EQ(scheduler->pendingCount(), 0u);
    advance(100s);
    EXPECT_EQ(fires, 5);

    // The block can invalidate its own timer.
    auto self = Timer::scheduledTimer(5, true, [&](Timer& own) {
        if (++fires == 8) {
            own.invalidate();
        }
    });
    for (int i = 0; i < 6; ++i) {
        advance(5s);
    }
    EXPECT_EQ(fires, 8);
}

TEST_F(TimerTest, RepeatingTimerSkipsFiresMissedWhileTheLoopWasNotRunning) {
    auto timer = Timer::scheduledTimer(1, true, count);
    const Date start = scheduler->now();
    advance(10.5s);
    EXPECT_EQ(fires, 1);
    EXPECT_EQ(timer->fireDate(), start.addingTimeInterval(11));  // still on the grid
    advance(0.5s);
    EXPECT_EQ(fires, 2);
    timer->invalidate();
}

TEST_F(TimerTest, OneShotTimerFiresOnceOnTheMainThreadAndEnds) {
    bool onMain = false;
    std::weak_ptr<Timer> weak;
    // Made on another thread and dropped by its maker: the run loop holds it until it fires.
    DispatchQueue::serial("maker")->sync([&] {
        weak = Timer::scheduledTimer(120, false, [&](Timer&) {
            ++fires;
            onMain = DispatchQueue::isMainThread();
        });
    });
    advance(119s);
    EXPECT_EQ(fires, 0);
    EXPECT_FALSE(weak.expired());
    EXPECT_EQ(scheduler->nextDueIn(), Scheduler::Duration(1));
    advance(1s);
    EXPECT_EQ(fires, 1);
    EXPECT_TRUE(onMain);
    EXPECT_TRUE(weak.expired());
    advance(240s);
    EXPECT_EQ(fires, 1);
}

TEST_F(TimerTest, MadeTimerNeverFiresUntilAddedToTheRunLoop) {
    auto timer = Timer::make(scheduler->now().addingTimeInterval(30), 0, false, count);
    EXPECT_TRUE(timer->isValid());
    EXPECT_FALSE(timer->isScheduled());
    advance(3600s);
    EXPECT_EQ(fires, 0);
    // Its fire date has passed, so once added it fires on the next loop iteration, once.
    RunLoop::main().add(timer);
    RunLoop::main().add(timer);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fires, 1);

    auto invalidated = Timer::make(scheduler->now(), 1, true, count);
    invalidated->invalidate();
    RunLoop::main().add(invalidated);
    advance(5s);
    EXPECT_EQ(fires, 1);
}

TEST(RealTimerTest, FiresOnTheSystemClock) {
    int fires = 0;
    auto timer = Timer::scheduledTimer(
        0.005, true, [&](Timer&) { ++fires; }, Scheduler::system());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return fires >= 3; }));
    timer->invalidate();
}

TEST(RunLoopTest, RunStopsFromAnotherThreadRunUntilGivesUpAndNestsWithMainWork) {
    EXPECT_FALSE(RunLoop::main().runUntil([] { return false; }, 20ms));
    bool ranMainWork = false;
    DispatchQueue::main()->async([&] { ranMainWork = true; });
    std::thread stopper([] {
        DispatchQueue::main()->sync([] {});  // returns once the loop is running
        RunLoop::main().stop();
    });
    RunLoop::main().run();
    stopper.join();
    EXPECT_TRUE(ranMainWork);

    // A nested runUntil still runs main work.
    bool inner = false;
    bool outer = false;
    DispatchQueue::main()->async([&] {
        DispatchQueue::main()->async([&] { inner = true; });
        outer = RunLoop::main().runUntil([&] { return inner; }, 5s);
    });
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return outer; }));
}

}  // namespace
}  // namespace zarvo
