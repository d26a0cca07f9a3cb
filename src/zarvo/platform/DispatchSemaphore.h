#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

// A counting semaphore. wait() blocks until the count is positive, then decrements it.
class ZARVO_EXPORT DispatchSemaphore {
public:
    enum class WaitResult { success, timedOut };

    explicit DispatchSemaphore(long value);

    void signal();
    void wait();
    // Waits at most `seconds` as timed by `scheduler` (so tests advance a ManualScheduler).
    WaitResult wait(double seconds,
                    const std::shared_ptr<Scheduler>& scheduler = Scheduler::standard());

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    long value_;
};

}  // namespace zarvo
