#include "zarvo/platform/Scheduler.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include <glib.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Immortal.h"
#include "zarvo/platform/ProcessInfo.h"

namespace zarvo {
namespace {

// Work waiting in the system scheduler. It runs at most once; cancelling drops it (and what
// it captured) at once.
class SystemWork final : public ScheduledWork {
public:
    SystemWork(std::shared_ptr<DispatchQueue> queue, std::function<void()> work)
        : queue_(std::move(queue)), work_(std::move(work)) {}

    void cancel() override {
        std::function<void()> dropped;
        GSource* source = nullptr;
        {
            std::lock_guard lock(mutex_);
            if (!work_) {
                return;
            }
            cancelled_ = true;
            dropped = std::move(work_);
            work_ = nullptr;
            source = std::exchange(source_, nullptr);
        }
        if (source != nullptr) {
            g_source_destroy(source);
            g_source_unref(source);
        }
    }

    bool isCancelled() const override {
        std::lock_guard lock(mutex_);
        return cancelled_;
    }

    // Hands the work to its queue; it still checks for a cancel made before it runs.
    void post(const std::shared_ptr<SystemWork>& self) {
        queue_->async([self] { self->run(); });
    }

    void run() {
        std::function<void()> work;
        GSource* source = nullptr;
        {
            std::lock_guard lock(mutex_);
            work = std::move(work_);
            work_ = nullptr;
            source = std::exchange(source_, nullptr);
        }
        if (source != nullptr) {
            g_source_unref(source);
        }
        if (work) {
            work();
        }
    }

    void setSource(GSource* source) {
        std::lock_guard lock(mutex_);
        source_ = g_source_ref(source);
    }

private:
    const std::shared_ptr<DispatchQueue> queue_;
    mutable std::mutex mutex_;
    std::function<void()> work_;
    GSource* source_ = nullptr;
    bool cancelled_ = false;
};

// One thread that waits for the due times of work on worker queues.
class TimerThread {
public:
    static TimerThread& shared() {
        static Immortal<TimerThread> thread;
        return thread.get();
    }

    void add(std::chrono::steady_clock::time_point due, std::shared_ptr<SystemWork> work) {
        std::lock_guard lock(mutex_);
        pending_.emplace(due, std::move(work));
        if (!started_) {
            started_ = true;
            std::thread([this] { loop(); }).detach();
        }
        changed_.notify_one();
    }

private:
    void loop() {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (pending_.empty()) {
                changed_.wait(lock);
                continue;
            }
            const auto first = pending_.begin();
            if (first->first > std::chrono::steady_clock::now()) {
                changed_.wait_until(lock, first->first);
                continue;
            }
            auto work = std::move(first->second);
            pending_.erase(first);
            lock.unlock();
            if (!work->isCancelled()) {
                work->post(work);
            }
            work.reset();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<std::chrono::steady_clock::time_point, std::shared_ptr<SystemWork>> pending_;
    bool started_ = false;
};

// Real time: GLib timeouts on the main context for main-queue work, the timer thread for the
// other queues.
class SystemScheduler final : public Scheduler {
public:
    double uptime() const override { return ProcessInfo::systemUptime(); }
    Date now() const override { return Date::systemNow(); }

    std::shared_ptr<ScheduledWork> schedule(Duration delay, std::shared_ptr<DispatchQueue> queue,
                                            std::function<void()> work) override {
        if (!queue) {
            queue = DispatchQueue::global();
        }
        const bool onMain = queue == DispatchQueue::main();
        auto scheduled = std::make_shared<SystemWork>(std::move(queue), std::move(work));
        const double seconds = std::max(0.0, delay.count());
        if (onMain) {
            scheduleOnMainContext(scheduled, seconds);
        } else {
            const auto due = std::chrono::steady_clock::now() +
                             std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                 std::chrono::duration<double>(seconds));
            TimerThread::shared().add(due, scheduled);
        }
        return scheduled;
    }

private:
    static void scheduleOnMainContext(const std::shared_ptr<SystemWork>& work, double seconds) {
        const auto millis = static_cast<guint>(std::min(std::ceil(seconds * 1000.0), 4.0e9));
        GSource* source = g_timeout_source_new(millis);
        // The source owns a reference to the work until it fires or is destroyed.
        auto holder = std::make_unique<std::shared_ptr<SystemWork>>(work);
        g_source_set_callback(
            source,
            [](gpointer data) -> gboolean {
                auto& held = *static_cast<std::shared_ptr<SystemWork>*>(data);
                // Run through the main queue, which keeps order and reports exceptions.
                held->post(held);
                return G_SOURCE_REMOVE;
            },
            holder.release(),
            [](gpointer data) {
                std::unique_ptr<std::shared_ptr<SystemWork>> owned(
                    static_cast<std::shared_ptr<SystemWork>*>(data));
            });
        work->setSource(source);
        g_source_attach(source, g_main_context_default());
        g_source_unref(source);
    }
};

struct StandardSlot {
    std::mutex mutex;
    std::shared_ptr<Scheduler> scheduler;
};

StandardSlot& standardSlot() {
    static Immortal<StandardSlot> slot;
    return slot.get();
}

}  // namespace

std::shared_ptr<Scheduler> Scheduler::system() {
    static Immortal<std::shared_ptr<Scheduler>> scheduler(std::make_shared<SystemScheduler>());
    return scheduler.get();
}

std::shared_ptr<Scheduler> Scheduler::standard() {
    auto& slot = standardSlot();
    std::lock_guard lock(slot.mutex);
    if (!slot.scheduler) {
        slot.scheduler = system();
    }
    return slot.scheduler;
}

void Scheduler::setStandard(std::shared_ptr<Scheduler> scheduler) {
    auto& slot = standardSlot();
    std::lock_guard lock(slot.mutex);
    slot.scheduler = std::move(scheduler);
}

ScopedStandardScheduler::ScopedStandardScheduler(std::shared_ptr<Scheduler> scheduler)
    : previous_(Scheduler::standard()) {
    Scheduler::setStandard(std::move(scheduler));
}

ScopedStandardScheduler::~ScopedStandardScheduler() {
    Scheduler::setStandard(std::move(previous_));
}

}  // namespace zarvo
