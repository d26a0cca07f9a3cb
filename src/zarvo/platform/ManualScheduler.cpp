#include "zarvo/platform/ManualScheduler.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "zarvo/platform/DispatchQueue.h"

namespace zarvo {

struct ManualScheduler::Entry final : ScheduledWork {
    enum State { waiting, posted, ran, cancelled };

    Entry(std::weak_ptr<ManualScheduler> owner, double due, std::shared_ptr<DispatchQueue> queue,
          std::function<void()> work)
        : owner(std::move(owner)), due(due), queue(std::move(queue)), work(std::move(work)) {}

    void cancel() override {
        int expected = waiting;
        if (state.compare_exchange_strong(expected, cancelled)) {
            if (auto scheduler = owner.lock()) {
                scheduler->remove(*this);
            }
        } else if (expected != posted || !state.compare_exchange_strong(expected, cancelled)) {
            return;  // already ran, running or cancelled
        }
        // Whoever wins the move to `cancelled` owns the work; drop what it captured now.
        work = nullptr;
    }

    bool isCancelled() const override { return state.load() == cancelled; }

    void post(const std::shared_ptr<Entry>& self) {
        queue->async([self] {
            int expected = posted;
            if (self->state.compare_exchange_strong(expected, ran)) {
                auto run = std::move(self->work);
                run();
            }
        });
    }

    const std::weak_ptr<ManualScheduler> owner;
    const double due;
    const std::shared_ptr<DispatchQueue> queue;
    std::function<void()> work;
    std::atomic<int> state{waiting};
};

std::shared_ptr<ManualScheduler> ManualScheduler::create(double startUptime, Date startDate) {
    // The constructor is private; create() is the only way to make one.
    return std::shared_ptr<ManualScheduler>(new ManualScheduler(startUptime, startDate));
}

ManualScheduler::ManualScheduler(double startUptime, Date startDate)
    : uptime_(startUptime), date_(startDate) {}

double ManualScheduler::uptime() const {
    std::lock_guard lock(mutex_);
    return uptime_;
}

Date ManualScheduler::now() const {
    std::lock_guard lock(mutex_);
    return date_;
}

std::shared_ptr<ScheduledWork> ManualScheduler::schedule(Duration delay,
                                                         std::shared_ptr<DispatchQueue> queue,
                                                         std::function<void()> work) {
    if (!queue) {
        queue = DispatchQueue::global();
    }
    std::shared_ptr<Entry> entry;
    {
        std::lock_guard lock(mutex_);
        entry = std::make_shared<Entry>(weak_from_this(), uptime_ + std::max(0.0, delay.count()),
                                        std::move(queue), std::move(work));
        if (delay.count() > 0) {
            pending_.emplace(entry->due, entry);
            return entry;
        }
        entry->state = Entry::posted;
    }
    // Work without a delay is due at once.
    entry->post(entry);
    return entry;
}

void ManualScheduler::advance(Duration by) {
    std::unique_lock lock(mutex_);
    const double target = uptime_ + std::max(0.0, by.count());
    for (;;) {
        const auto first = pending_.begin();
        if (first == pending_.end() || first->first > target) {
            break;
        }
        auto entry = first->second;
        pending_.erase(first);
        moveClockTo(entry->due);
        int expected = Entry::waiting;
        if (!entry->state.compare_exchange_strong(expected, Entry::posted)) {
            continue;
        }
        lock.unlock();
        entry->post(entry);
        lock.lock();
    }
    moveClockTo(target);
}

std::size_t ManualScheduler::pendingCount() const {
    std::lock_guard lock(mutex_);
    return pending_.size();
}

std::optional<Scheduler::Duration> ManualScheduler::nextDueIn() const {
    std::lock_guard lock(mutex_);
    if (pending_.empty()) {
        return std::nullopt;
    }
    return Duration(pending_.begin()->first - uptime_);
}

void ManualScheduler::moveClockTo(double uptime) {
    if (uptime > uptime_) {
        date_ = date_.addingTimeInterval(uptime - uptime_);
        uptime_ = uptime;
    }
}

void ManualScheduler::remove(const Entry& entry) {
    std::lock_guard lock(mutex_);
    auto [begin, end] = pending_.equal_range(entry.due);
    for (auto it = begin; it != end; ++it) {
        if (it->second.get() == &entry) {
            pending_.erase(it);
            return;
        }
    }
}

}  // namespace zarvo
