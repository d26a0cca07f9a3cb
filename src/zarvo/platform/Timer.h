#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "zarvo/platform/Date.h"
#include "zarvo/platform/Export.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

// A timer on the main run loop. A timer made with make() does nothing until it is added to
// the run loop (RunLoop::main().add); scheduledTimer() makes and adds one. A one-shot timer
// invalidates itself after firing; destroying a timer invalidates it.
class ZARVO_EXPORT Timer : public std::enable_shared_from_this<Timer> {
public:
    using Block = std::function<void(Timer&)>;

    // A timer that first fires at `fireDate` (on the scheduler's clock) and then, if it
    // repeats, every `interval` seconds.
    static std::shared_ptr<Timer> make(
        Date fireDate, double interval, bool repeats, Block block,
        std::shared_ptr<Scheduler> scheduler = Scheduler::standard());
    // A timer added to the main run loop at once, first firing after `interval` seconds.
    static std::shared_ptr<Timer> scheduledTimer(
        double interval, bool repeats, Block block,
        std::shared_ptr<Scheduler> scheduler = Scheduler::standard());

    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void invalidate();
    bool isValid() const;
    bool isScheduled() const;
    double timeInterval() const { return interval_; }
    Date fireDate() const;

private:
    friend class RunLoop;
    Timer(Date fireDate, double interval, bool repeats, Block block,
          std::shared_ptr<Scheduler> scheduler);
    void scheduleNext();
    void fire();

    mutable std::mutex mutex_;
    Date fireDate_;
    const double interval_;
    const bool repeats_;
    Block block_;
    std::shared_ptr<Scheduler> scheduler_;
    std::shared_ptr<ScheduledWork> pending_;
    std::shared_ptr<Timer> selfWhileScheduled_;  // the run loop keeps a scheduled timer alive
    bool valid_ = true;
    bool scheduled_ = false;
};

}  // namespace zarvo
