#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class DispatchQueue;

// A piece of work waiting in a scheduler. Dropping the handle does not cancel the work.
class ZARVO_EXPORT ScheduledWork {
public:
    virtual ~ScheduledWork() = default;
    virtual void cancel() = 0;
    virtual bool isCancelled() const = 0;
};

// The source of time for everything that waits: timers, asyncAfter, semaphore time-outs,
// retry delays. Production code uses Scheduler::standard(); tests install a ManualScheduler
// and advance its time instead of sleeping.
class ZARVO_EXPORT Scheduler {
public:
    using Duration = std::chrono::duration<double>;  // seconds

    virtual ~Scheduler() = default;

    // Monotonic seconds since boot (the system uptime for the real scheduler).
    virtual double uptime() const = 0;
    // Wall-clock time.
    virtual Date now() const = 0;
    // Runs `work` on `queue` once `delay` has passed.
    virtual std::shared_ptr<ScheduledWork> schedule(Duration delay,
                                                    std::shared_ptr<DispatchQueue> queue,
                                                    std::function<void()> work) = 0;

    // The process-wide scheduler: the system one unless a test replaced it.
    static std::shared_ptr<Scheduler> standard();
    static void setStandard(std::shared_ptr<Scheduler> scheduler);
    static std::shared_ptr<Scheduler> system();
};

// Replaces Scheduler::standard() for its lifetime.
class ZARVO_EXPORT ScopedStandardScheduler {
public:
    explicit ScopedStandardScheduler(std::shared_ptr<Scheduler> scheduler);
    ~ScopedStandardScheduler();
    ScopedStandardScheduler(const ScopedStandardScheduler&) = delete;
    ScopedStandardScheduler& operator=(const ScopedStandardScheduler&) = delete;

private:
    std::shared_ptr<Scheduler> previous_;
};

}  // namespace zarvo
