#include <atomic>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "zarvo/platform/BriefSpin.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using WaitResult = DispatchSemaphore::WaitResult;

// Blocks the test until `count` signals arrive, failing instead of hanging.
void waitFor(DispatchSemaphore& semaphore, int count = 1) {
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(semaphore.wait(30, Scheduler::system()), WaitResult::success);
    }
}

TEST(SerialQueueTest, RunsItemsOneAtATimeInPostingOrder) {
    auto queue = DispatchQueue::serial("order");
    std::vector<int> seen;
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    for (int i = 0; i < 200; ++i) {
        queue->async([&, i] {
            overlapped = overlapped || running.fetch_add(1) != 0;
            seen.push_back(i);
            running.fetch_sub(1);
        });
    }
    EXPECT_EQ(queue->syncValue([&] { return seen.size(); }), 200u);
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(seen[i], i);
    }
    EXPECT_FALSE(overlapped);
    // sync hands back what the work threw, and the queue goes on.
    EXPECT_THROW(queue->sync([] { throw std::runtime_error("boom"); }), std::runtime_error);
    EXPECT_EQ(queue->syncValue([] { return std::string("after"); }), "after");
}

TEST(SerialQueueTest, BlockedItemsDoNotStallOtherQueues) {
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
    // Every queue above is blocked; another queue's item releases them all.
    DispatchQueue::serial("releasing")->async([&] {
        for (int i = 0; i < queueCount; ++i) {
            release.signal();
        }
    });
    waitFor(done, queueCount);
}

TEST(SerialQueueTest, DroppedQueuesFinishTheirWorkSafely) {
    DispatchSemaphore ran(0);
    std::atomic<int> count{0};
    std::weak_ptr<DispatchQueue> weak;
    {
        auto queue = DispatchQueue::serial("dropped");
        weak = queue;
        for (int i = 0; i < 10; ++i) {
            queue->async([&] { ++count; });
        }
        // The last reference goes away inside the queue's own item.
        auto holder = std::make_shared<std::shared_ptr<DispatchQueue>>(std::move(queue));
        (*holder)->async([holder, &ran] {
            holder->reset();
            ran.signal();
        });
    }
    waitFor(ran);
    EXPECT_EQ(count, 10);
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return weak.expired(); }));
}

TEST(SyncOnCurrentQueueTest, IsFatalAndNamesTheQueueInsteadOfDeadlocking) {
    ScopedFatalErrorHandler throwing;
    auto queue = DispatchQueue::serial("SynchronizationQueue");
    auto other = DispatchQueue::serial("other");
    try {
        queue->sync([&] { queue->sync([] {}); });
        FAIL() << "sync on the current queue returned";
    } catch (const FatalErrorException& error) {
        EXPECT_NE(std::string(error.what()).find("\"SynchronizationQueue\""), std::string::npos);
    }
    // Cycles through other queues, or back to a main thread waiting in a sync, are caught too.
    EXPECT_THROW(queue->sync([&] { other->sync([&] { queue->sync([] {}); }); }),
                 FatalErrorException);
    ASSERT_TRUE(DispatchQueue::isMainThread());
    EXPECT_THROW(DispatchQueue::main()->sync([] {}), FatalErrorException);
    EXPECT_THROW(queue->sync([] { DispatchQueue::main()->sync([] {}); }), FatalErrorException);
    // Work run by a sync counts as on both queues; async onto the current queue is fine.
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_TRUE(queue->syncValue([&] {
        return other->syncValue([&] { return queue->isCurrent() && other->isCurrent(); });
    }));
    DispatchSemaphore ran(0);
    queue->async([&] { queue->async([&] { ran.signal(); }); });
    waitFor(ran);
}

TEST(MainQueueTest, ItemsRunOnTheMainThreadOnlyWhileTheRunLoopRuns) {
    auto main = DispatchQueue::main();
    std::vector<int> seen;
    bool onMain = true;
    for (int i = 0; i < 3; ++i) {
        main->async([&, i] {
            seen.push_back(i);
            onMain = onMain && DispatchQueue::isMainThread() && main->isCurrent();
            if (i == 2) {
                main->async([&] { seen.push_back(3); });  // posted by an item: runs too
            }
        });
    }
    EXPECT_TRUE(seen.empty());
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_TRUE(onMain);

    // A sync from a worker wakes the loop.
    std::atomic<int> answered{0};
    DispatchQueue::serial("poster")->async([&] {
        DispatchQueue::main()->sync([&] { answered = DispatchQueue::isMainThread() ? 1 : -1; });
    });
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return answered == 1; }));
}

TEST(MainQueueTest, FatalErrorInMainWorkSurfacesFromTheRunLoop) {
    ScopedFatalErrorHandler throwing;
    bool later = false;
    DispatchQueue::main()->async([] { fatalError("main-queue failure"); });
    DispatchQueue::main()->async([&] { later = true; });
    EXPECT_THROW(RunLoop::main().runUntilIdle(), FatalErrorException);
    RunLoop::main().runUntilIdle();  // the items after the failing one are kept
    EXPECT_TRUE(later);
}

// Work that throws on a worker thread names its queue in the fatal message, where the
// process would otherwise end in std::terminate without a word.
TEST(QueueWorkTest, AnExceptionEscapingWorkIsFatalAndNamesTheQueue) {
    std::mutex mutex;
    std::vector<std::string> messages;
    DispatchSemaphore reported(0);
    ScopedFatalErrorHandler recording([&](const std::string& message) {
        {
            std::lock_guard lock(mutex);
            messages.push_back(message);
        }
        reported.signal();
        throw FatalErrorException(message);
    });
    auto queue = DispatchQueue::serial("com.zarvo.test.throwing");
    queue->async([] { throw std::runtime_error("disk gone"); });
    waitFor(reported);
    DispatchQueue::global()->async([] { throw 42; });
    waitFor(reported);
    DispatchQueue::main()->async([] { throw std::logic_error("nobody drives the loop"); });
    g_main_context_iteration(nullptr, FALSE);  // dispatches without RunLoop
    waitFor(reported);

    std::lock_guard lock(mutex);
    EXPECT_EQ(messages, (std::vector<std::string>{
                            "work on the queue \"com.zarvo.test.throwing\" threw: disk gone",
                            "work on the queue \"global\" threw: an exception that is not a "
                            "std::exception",
                            "work on the queue \"main\" threw: nobody drives the loop"}));
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

TEST(AsyncAfterTest, RunsWhenTheSchedulerReachesTheDelay) {
    auto scheduler = ManualScheduler::create();
    ScopedStandardScheduler scoped(scheduler);
    std::vector<std::string> fired;
    DispatchQueue::main()->asyncAfter(120, [&] { fired.push_back("two minutes"); });
    DispatchQueue::main()->asyncAfter(1, [&] { fired.push_back("one second"); });
    scheduler->advance(119s);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fired, (std::vector<std::string>{"one second"}));
    scheduler->advance(1s);
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(fired, (std::vector<std::string>{"one second", "two minutes"}));
}

TEST(BriefSpinTest, ReturnsOnReadinessAndSkipsWaitsAfterAnEmptyOne) {
    int checks = 0;
    EXPECT_TRUE(BriefSpin(std::chrono::seconds(30)).wait([&] { return ++checks >= 3; }));
    EXPECT_EQ(checks, 3);

    BriefSpin spin(std::chrono::microseconds(1));

    // An empty wait: the work is sparse, so the next waits only look once.
    EXPECT_FALSE(spin.wait([] { return false; }));
    for (int i = 0; i < 15; ++i) {
        checks = 0;
        EXPECT_FALSE(spin.wait([&] { return ++checks > 1; }));
        EXPECT_EQ(checks, 1);
    }
    checks = 0;
    EXPECT_TRUE(spin.wait([&] { return ++checks > 1; }));
    EXPECT_EQ(checks, 2);
}

TEST(DispatchSemaphoreTest, CountsSignalsAndWakesWaiters) {
    DispatchSemaphore semaphore(1);
    semaphore.wait();
    EXPECT_EQ(semaphore.wait(0), WaitResult::timedOut);
    EXPECT_EQ(semaphore.wait(0.01, Scheduler::system()), WaitResult::timedOut);
    std::thread unblocked([&] { semaphore.wait(); });
    semaphore.signal();
    unblocked.join();

    // A time-out follows the given scheduler.
    auto scheduler = ManualScheduler::create();
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = static_cast<int>(semaphore.wait(60, scheduler)); });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return scheduler->pendingCount() == 1; }));
    scheduler->advance(59s);
    EXPECT_EQ(result, -1);
    scheduler->advance(1s);
    waiter.join();
    EXPECT_EQ(result, static_cast<int>(WaitResult::timedOut));

    // A signal before the time-out wins and cancels the time-out.
    std::thread signalled([&] { result = static_cast<int>(semaphore.wait(60, scheduler)); });
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return scheduler->pendingCount() == 1; }));
    semaphore.signal();
    signalled.join();
    EXPECT_EQ(result, static_cast<int>(WaitResult::success));
    EXPECT_EQ(scheduler->pendingCount(), 0u);
}

}  // namespace
}  // namespace zarvo
