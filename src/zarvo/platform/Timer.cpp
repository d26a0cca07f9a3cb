#include "zarvo/platform/Timer.h"

#include <cmath>
#include <utility>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/RunLoop.h"

namespace zarvo {
namespace {

// A repeating timer needs a positive interval; a smaller one becomes 0.1 milliseconds.
constexpr double minimumRepeatInterval = 0.0001;

}  // namespace

std::shared_ptr<Timer> Timer::make(Date fireDate, double interval, bool repeats, Block block,
                                   std::shared_ptr<Scheduler> scheduler) {
    if (!scheduler) {
        scheduler = Scheduler::standard();
    }
    // The constructor is private; make() is the only way to build a timer.
    return std::shared_ptr<Timer>(
        new Timer(fireDate, interval, repeats, std::move(block), std::move(scheduler)));
}

std::shared_ptr<Timer> Timer::scheduledTimer(double interval, bool repeats, Block block,
                                             std::shared_ptr<Scheduler> scheduler) {
    if (!scheduler) {
        scheduler = Scheduler::standard();
    }
    const Date fireDate = scheduler->now().addingTimeInterval(std::max(0.0, interval));
    auto timer = make(fireDate, interval, repeats, std::move(block), std::move(scheduler));
    RunLoop::main().add(timer);
    return timer;
}

Timer::Timer(Date fireDate, double interval, bool repeats, Block block,
             std::shared_ptr<Scheduler> scheduler)
    : fireDate_(fireDate),
      interval_(repeats && !(interval > 0) ? minimumRepeatInterval : interval),
      repeats_(repeats),
      block_(std::move(block)),
      scheduler_(std::move(scheduler)) {}

Timer::~Timer() {
    if (pending_) {
        pending_->cancel();
    }
}

void Timer::invalidate() {
    // Moved out and released after the lock: dropping the last reference may destroy the timer.
    std::shared_ptr<ScheduledWork> pending;
    std::shared_ptr<Timer> self;
    Block block;
    {
        std::lock_guard lock(mutex_);
        valid_ = false;
        scheduled_ = false;
        pending = std::move(pending_);
        block = std::move(block_);
        self = std::move(selfWhileScheduled_);
        pending_ = nullptr;
        block_ = nullptr;
        selfWhileScheduled_ = nullptr;
    }
    if (pending) {
        pending->cancel();
    }
}

bool Timer::isValid() const {
    std::lock_guard lock(mutex_);
    return valid_;
}

bool Timer::isScheduled() const {
    std::lock_guard lock(mutex_);
    return valid_ && scheduled_;
}

Date Timer::fireDate() const {
    std::lock_guard lock(mutex_);
    return fireDate_;
}

// Called with mutex_ held.
void Timer::scheduleNext() {
    const double delay = fireDate_.timeIntervalSince(scheduler_->now());
    pending_ = scheduler_->schedule(Scheduler::Duration(delay), DispatchQueue::main(),
                                    [weak = weak_from_this()] {
                                        if (auto timer = weak.lock()) {
                                            timer->fire();
                                        }
                                    });
}

void Timer::fire() {
    auto self = shared_from_this();
    Block block;
    {
        std::lock_guard lock(mutex_);
        if (!valid_ || !scheduled_) {
            return;
        }
        block = block_;
        if (repeats_) {
            // Fire dates stay on the interval's grid; fires missed while the loop was busy
            // are skipped, not made up.
            const double now = scheduler_->now().timeIntervalSince1970();
            const double first = fireDate_.timeIntervalSince1970();
            const double steps = std::max(1.0, std::floor((now - first) / interval_) + 1);
            fireDate_ = Date(first + steps * interval_);
            scheduleNext();
        } else {
            pending_ = nullptr;
        }
    }
    // A one-shot timer is done after its block, even when the block throws.
    struct InvalidateAfterOneShot {
        Timer& timer;
        ~InvalidateAfterOneShot() {
            if (!timer.repeats_) {
                timer.invalidate();
            }
        }
    } done{*this};
    if (block) {
        block(*this);
    }
}

}  // namespace zarvo
