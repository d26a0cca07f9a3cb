#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

// Blocks the test until `count` signals arrive, failing instead of hanging.
void waitFor(DispatchSemaphore& semaphore, int count = 1) {
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(semaphore.wait(30, Scheduler::system()), DispatchSemaphore::WaitResult::success);
    }
}

TEST(SerialQueueTest, RunsItemsOneAtATimeInPostingOrder) {
    auto queue = DispatchQueue::serial("order");
    std::vector<int> seen;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    for (int i = 0; i < 200; ++i) {
        queue->async([&, i] {
            if (running.fetch_add(1) != 0) {
                overlapped = true;
            }
            seen.push_back(i);
            running.fetch_sub(1);
        });
    }
    queue->sync([] {});
    ASSERT_EQ(seen.size(), 200u);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(seen[i], i);
    }
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(queue->label(), "order");
}

TEST(SerialQueueTest, SyncReturnsValuesAndRethrowsWhatTheWorkThrew) {
    auto queue = DispatchQueue::serial("values");
    EXPECT_EQ(queue->syncValue([] { return std::string("answer"); }), "answer");
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
    // The queue keeps working afterwards.
    EXPECT_EQ(queue->syncValue([] { return 7; }), 7);
}

TEST(SerialQueueTest, BlockingItemDoesNotStallOtherQueues) {
    auto waiting = DispatchQueue::serial("waiting");
    auto answering = DispatchQueue::serial("answering");
    DispatchSemaphore answer(0);
    DispatchSemaphore finished(0);
    waiting->async([&] {
        answering->async([&] { answer.signal(); });
        answer.wait();
        finished.signal();
    });
    waitFor(finished);
}

TEST(SerialQueueTest, ManyQueuesBlockedAtOnceStillProgress) {
    constexpr int queueCount = 40;
    DispatchSemaphore release(0);
    DispatchSemaphore done(0);
    std::vector<std::shared_ptr<DispatchQueue>> queues;
    for (int i = 0; i < queueCount; ++i) {
        queues.push_back(DispatchQueue::serial("blocked"));
        queues.back()->async([&] {
            release.wait();
            done.signal();
        });
    }
    // Every queue's item is blocked; one more queue must still run.
    auto free = DispatchQueue::serial("free");
    EXPECT_EQ(free->syncValue([] { return 1; }), 1);
    for (int i = 0; i < queueCount; ++i) {
        release.signal();
    }
    waitFor(done, queueCount);
}

TEST(SerialQueueTest, WorkPostedToADroppedQueueStillRuns) {
    DispatchSemaphore ran(0);
    std::atomic<int> count{0};
    {
        auto queue = DispatchQueue::serial("dropped");
        for (int i = 0; i < 10; ++i) {
            queue->async([&] {
                if (++count == 10) {
                    ran.signal();
                }
            });
        }
    }
    waitFor(ran);
    EXPECT_EQ(count, 10);
}

TEST(SerialQueueTest, QueueReleasedByItsOwnItemDoesNotDeadlock) {
    DispatchSemaphore ran(0);
    auto queue = DispatchQueue::serial("self-releasing");
    std::weak_ptr<DispatchQueue> weak = queue;
    auto holder = std::make_shared<std::shared_ptr<DispatchQueue>>(std::move(queue));
    (*holder)->async([holder, &ran] {
        holder->reset();  // the last outside reference goes away inside the queue's own item
        ran.signal();
    });
    holder.reset();
    waitFor(ran);
    // Once its drain ends the queue is freed.
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return weak.expired(); }));
}

TEST(SerialQueueTest, IsCurrentOnlyInsideItsOwnWork) {
    auto queue = DispatchQueue::serial("current");
    auto other = DispatchQueue::serial("other");
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_TRUE(queue->syncValue([&] { return queue->isCurrent(); }));
    EXPECT_FALSE(queue->syncValue([&] { return other->isCurrent(); }));
    EXPECT_FALSE(queue->syncValue([] { return DispatchQueue::isMainThread(); }));
    // Work run by sync from another queue counts as being on both.
    EXPECT_TRUE(queue->syncValue([&] {
        return other->syncValue([&] { return queue->isCurrent() && other->isCurrent(); });
    }));
}

TEST(SyncOnCurrentQueueTest, IsFatalAndNamesTheQueue) {
    ScopedFatalErrorHandler throwing;
    auto queue = DispatchQueue::serial("SynchronizationQueue");
    try {
        queue->sync([&] { queue->sync([] {}); });
        FAIL() << "sync on the current queue returned";
    } catch (const FatalErrorException& error) {
        EXPECT_NE(std::string(error.what()).find("\"SynchronizationQueue\""), std::string::npos)
            << error.what();
    }
    // A cycle through another queue would deadlock the same way.
    auto other = DispatchQueue::serial("other");
    EXPECT_THROW(queue->sync([&] { other->sync([&] { queue->sync([] {}); }); }),
                 FatalErrorException);
    // Async onto the current queue is fine.
    DispatchSemaphore ran(0);
    queue->async([&] { queue->async([&] { ran.signal(); }); });
    waitFor(ran);
}

TEST(SyncOnCurrentQueueTest, MainQueueSyncFromTheMainThreadIsFatal) {
    ScopedFatalErrorHandler throwing;
    ASSERT_TRUE(DispatchQueue::isMainThread());
    EXPECT_THROW(DispatchQueue::main()->sync([] {}), FatalErrorException);
    // The main thread waiting in a sync onto a worker cannot serve a sync back onto main.
    auto worker = DispatchQueue::serial("worker");
    EXPECT_THROW(worker->sync([] { DispatchQueue::main()->sync([] {}); }), FatalErrorException);
    EXPECT_TRUE(worker->syncValue([] { return DispatchQueue::main()->isCurrent(); }));
}

TEST(MainQueueTest, ItemsRunOnlyWhileTheRunLoopRuns) {
    auto main = DispatchQueue::main();
    std::vector<int> seen;
    std::atomic<bool> onMainThread{true};
    for (int i = 0; i < 5; ++i) {
        main->async([&, i] {
            seen.push_back(i);
            onMainThread = onMainThread && DispatchQueue::isMainThread() && main->isCurrent();
        });
    }
    EXPECT_TRUE(seen.empty());
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_TRUE(onMainThread);
}

TEST(MainQueueTest, RunUntilIdleAlsoRunsWhatItemsPost) {
    auto main = DispatchQueue::main();
    int depth = 0;
    std::function<void()> post = [&] {
        if (++depth < 3) {
            main->async(post);
        }
    };
    main->async(post);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(depth, 3);
}

TEST(MainQueueTest, PostsFromOtherThreadsWakeTheLoop) {
    auto worker = DispatchQueue::serial("poster");
    std::atomic<int> answered{0};
    worker->async([&] {
        // sync onto main from a worker waits for the main thread to run it.
        DispatchQueue::main()->sync([&] { answered = DispatchQueue::isMainThread() ? 1 : -1; });
    });
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return answered != 0; }));
    EXPECT_EQ(answered, 1);
}

TEST(MainQueueTest, FatalErrorInMainWorkSurfacesFromTheRunLoop) {
    ScopedFatalErrorHandler throwing;
    bool later = false;
    DispatchQueue::main()->async([] { fatalError("main-queue failure"); });
    DispatchQueue::main()->async([&] { later = true; });
    EXPECT_THROW(RunLoop::main().runUntilIdle(), FatalErrorException);
    // The items after the failing one are kept and run next time.
    RunLoop::main().runUntilIdle();
    EXPECT_TRUE(later);
}

TEST(GlobalQueueTest, RunsItemsConcurrently) {
    auto global = DispatchQueue::global();
    DispatchSemaphore first(0);
    DispatchSemaphore second(0);
    DispatchSemaphore done(0);
    // Each item waits for the other: only concurrent execution lets both finish.
    global->async([&] {
        second.signal();
        first.wait();
        done.signal();
    });
    global->async([&] {
        second.wait();
        first.signal();
        done.signal();
    });
    waitFor(done, 2);
    EXPECT_TRUE(global->syncValue([&] { return global->isCurrent(); }));
    EXPECT_FALSE(global->isCurrent());
}

TEST(AsyncAfterTest, WaitsForTheSchedulerToAdvance) {
    auto scheduler = ManualScheduler::create();
    auto main = DispatchQueue::main();
    std::vector<std::string> fired;
    main->asyncAfter(
        120, [&] { fired.push_back("two minutes"); }, scheduler);
    main->asyncAfter(
        1, [&] { fired.push_back("one second"); }, scheduler);
    scheduler->advance(119s);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fired, (std::vector<std::string>{"one second"}));
    scheduler->advance(1s);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fired, (std::vector<std::string>{"one second", "two minutes"}));
}

TEST(AsyncAfterTest, UsesTheStandardSchedulerByDefault) {
    auto scheduler = ManualScheduler::create();
    ScopedStandardScheduler scoped(scheduler);
    auto queue = DispatchQueue::serial("delayed");
    DispatchSemaphore ran(0);
    queue->asyncAfter(30, [&] { ran.signal(); });
    EXPECT_EQ(scheduler->pendingCount(), 1u);
    EXPECT_EQ(ran.wait(0), DispatchSemaphore::WaitResult::timedOut);
    scheduler->advance(30s);
    waitFor(ran);
}

TEST(AsyncAfterTest, RealSchedulerRunsShortDelays) {
    auto queue = DispatchQueue::serial("real-time");
    DispatchSemaphore ran(0);
    const auto start = std::chrono::steady_clock::now();
    queue->asyncAfter(
        0.02, [&] { ran.signal(); }, Scheduler::system());
    waitFor(ran);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);

    bool onMain = false;
    DispatchQueue::main()->asyncAfter(
        0.01, [&] { onMain = DispatchQueue::isMainThread(); }, Scheduler::system());
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return onMain; }));
}

TEST(DispatchSemaphoreTest, CountsSignalsAndWakesWaiters) {
    DispatchSemaphore semaphore(2);
    semaphore.wait();
    semaphore.wait();
    EXPECT_EQ(semaphore.wait(0), DispatchSemaphore::WaitResult::timedOut);
    std::atomic<bool> woke{false};
    std::thread waiter([&] {
        semaphore.wait();
        woke = true;
    });
    semaphore.signal();
    waiter.join();
    EXPECT_TRUE(woke);
}

TEST(DispatchSemaphoreTest, TimesOutWhenTheSchedulerPassesTheTimeOut) {
    auto scheduler = ManualScheduler::create();
    DispatchSemaphore semaphore(0);
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = static_cast<int>(semaphore.wait(60, scheduler)); });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return scheduler->pendingCount() == 1; }));
    scheduler->advance(59s);
    EXPECT_EQ(result, -1);
    scheduler->advance(1s);
    waiter.join();
    EXPECT_EQ(result, static_cast<int>(DispatchSemaphore::WaitResult::timedOut));
    // A signal after the time-out is kept for the next waiter.
    semaphore.signal();
    EXPECT_EQ(semaphore.wait(60, scheduler), DispatchSemaphore::WaitResult::success);
}

TEST(DispatchSemaphoreTest, SignalBeforeTheTimeOutSucceedsAndCancelsIt) {
    auto scheduler = ManualScheduler::create();
    DispatchSemaphore semaphore(0);
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = static_cast<int>(semaphore.wait(60, scheduler)); });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return scheduler->pendingCount() == 1; }));
    semaphore.signal();
    waiter.join();
    EXPECT_EQ(result, static_cast<int>(DispatchSemaphore::WaitResult::success));
    EXPECT_EQ(scheduler->pendingCount(), 0u);
    scheduler->advance(120s);  // the cancelled time-out must not touch anything
}

TEST(DispatchSemaphoreTest, RealTimeOut) {
    DispatchSemaphore semaphore(0);
    EXPECT_EQ(semaphore.wait(0.01, Scheduler::system()), DispatchSemaphore::WaitResult::timedOut);
}

}  // namespace
}  // namespace zarvo
