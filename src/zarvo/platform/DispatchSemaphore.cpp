#include "zarvo/platform/DispatchSemaphore.h"

#include <chrono>

#include "zarvo/platform/DispatchQueue.h"

namespace zarvo {
namespace {

// The time-out of one timed wait. The scheduled work wakes the waiter only while the waiter
// is still inside wait(): the semaphore may be gone by the time a cancelled time-out runs.
struct WaitTimeout {
    std::mutex mutex;
    std::mutex* semaphoreMutex = nullptr;
    std::condition_variable* semaphoreCondition = nullptr;
    bool fired = false;  // guarded by the semaphore's mutex

    void fire() {
        std::lock_guard lock(mutex);
        if (semaphoreMutex == nullptr) {
            return;
        }
        std::lock_guard semaphoreLock(*semaphoreMutex);
        fired = true;
        semaphoreCondition->notify_all();
    }

    void detach() {
        std::lock_guard lock(mutex);
        semaphoreMutex = nullptr;
        semaphoreCondition = nullptr;
    }
};

}  // namespace

DispatchSemaphore::DispatchSemaphore(long value) : value_(value) {}

void DispatchSemaphore::signal() {
    std::lock_guard lock(mutex_);
    ++value_;
    condition_.notify_one();
}

void DispatchSemaphore::wait() {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [this] { return value_ > 0; });
    --value_;
}

DispatchSemaphore::WaitResult DispatchSemaphore::wait(double seconds,
                                                      const std::shared_ptr<Scheduler>& scheduler) {
    {
        std::lock_guard lock(mutex_);
        if (value_ > 0) {
            --value_;
            return WaitResult::success;
        }
        if (seconds <= 0) {
            return WaitResult::timedOut;
        }
    }
    const auto clock = scheduler ? scheduler : Scheduler::standard();
    if (clock == Scheduler::system()) {
        // Real time needs no scheduled work: the condition variable times itself.
        std::unique_lock lock(mutex_);
        const bool available = condition_.wait_for(lock, std::chrono::duration<double>(seconds),
                                                   [this] { return value_ > 0; });
        if (!available) {
            return WaitResult::timedOut;
        }
        --value_;
        return WaitResult::success;
    }

    auto timeout = std::make_shared<WaitTimeout>();
    timeout->semaphoreMutex = &mutex_;
    timeout->semaphoreCondition = &condition_;
    auto scheduled = clock->schedule(Scheduler::Duration(seconds), DispatchQueue::global(),
                                     [timeout] { timeout->fire(); });
    WaitResult result = WaitResult::timedOut;
    {
        std::unique_lock lock(mutex_);
        condition_.wait(lock, [&] { return value_ > 0 || timeout->fired; });
        if (value_ > 0) {
            --value_;
            result = WaitResult::success;
        }
    }
    timeout->detach();
    scheduled->cancel();
    return result;
}

}  // namespace zarvo
