#include "zarvo/platform/DispatchQueue.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include <glib.h>

#include "zarvo/platform/EscapedException.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/Immortal.h"
#include "zarvo/platform/MainThreadExceptions.h"

namespace zarvo {
namespace {

// The queues on whose behalf a thread runs, innermost first. sync() links the waiting caller's
// chain, so work run for it on another queue still counts as being on the caller's queue:
// a sync back onto that queue would deadlock and is reported instead.
struct ExecutionContext {
    const DispatchQueue* queue;
    const ExecutionContext* parent;
};

// The main thread always counts as being on the main queue, also outside main-queue work.
const ExecutionContext* initialContext() {
    if (!DispatchQueue::isMainThread()) {
        return nullptr;
    }
    static const ExecutionContext mainThreadRoot{DispatchQueue::main().get(), nullptr};
    return &mainThreadRoot;
}

thread_local const ExecutionContext* currentContext = initialContext();

class ContextScope {
public:
    ContextScope(const DispatchQueue* queue, const ExecutionContext* parent)
        : context_{queue, parent}, saved_(currentContext) {
        currentContext = &context_;
    }
    ~ContextScope() { currentContext = saved_; }
    ContextScope(const ContextScope&) = delete;
    ContextScope& operator=(const ContextScope&) = delete;

private:
    ExecutionContext context_;
    const ExecutionContext* saved_;
};

bool contextIncludes(const DispatchQueue* queue) {
    for (auto context = currentContext; context != nullptr; context = context->parent) {
        if (context->queue == queue) {
            return true;
        }
    }
    return false;
}

// A work item and, for sync(), the chain of the caller waiting for it.
struct WorkItem {
    std::function<void()> work;
    const ExecutionContext* caller = nullptr;
};

[[noreturn]] void syncOnCurrentQueue(const std::string& label) {
    fatalError("DispatchQueue.sync called on the queue \"" + label +
               "\" from that queue itself; it would deadlock");
}

// Posts `work` through `post` and blocks until it has run; rethrows what it threw.
template <typename Post>
void postAndWait(std::function<void()> work, Post&& post) {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    std::exception_ptr error;
    post(WorkItem{[&] {
                      try {
                          work();
                      } catch (...) {
                          error = std::current_exception();
                      }
                      // Notify under the lock: the waiter owns these and leaves once it sees done.
                      std::lock_guard lock(mutex);
                      done = true;
                      finished.notify_one();
                  },
                  currentContext});
    std::unique_lock lock(mutex);
    finished.wait(lock, [&] { return done; });
    if (error) {
        std::rethrow_exception(error);
    }
}

// Worker threads shared by every queue. A thread starts whenever a task arrives and no thread
// is idle, so a blocking item never holds up another queue; threads idle for a while end.
class WorkerPool {
public:
    static WorkerPool& shared() {
        static Immortal<WorkerPool> pool;
        return pool.get();
    }

    void submit(std::function<void()> task) {
        std::unique_lock lock(mutex_);
        tasks_.push_back(std::move(task));
        if (tasks_.size() <= idle_) {
            // Notified after unlocking, so the woken worker does not block on the lock at once.
            lock.unlock();
            wakeup_.notify_one();
            return;
        }
        try {
            std::thread([this] { work(); }).detach();
            ++threads_;
        } catch (const std::system_error&) {
            // Out of threads: the task waits for a busy thread, unless there is none at all.
            if (threads_ == 0) {
                fatalError("DispatchQueue cannot start a worker thread");
            }
        }
    }

private:
    static constexpr auto idleLifetime = std::chrono::seconds(15);

    void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (!tasks_.empty()) {
                auto task = std::move(tasks_.front());
                tasks_.pop_front();
                lock.unlock();
                task();
                task = nullptr;  // release captures before taking the lock again
                lock.lock();
                continue;
            }
            ++idle_;
            const bool woken =
                wakeup_.wait_for(lock, idleLifetime, [this] { return !tasks_.empty(); });
            --idle_;
            if (!woken) {
                --threads_;
                return;
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable wakeup_;
    std::deque<std::function<void()>> tasks_;
    std::size_t idle_ = 0;
    std::size_t threads_ = 0;
};

class SerialQueue final : public DispatchQueue {
public:
    explicit SerialQueue(std::string label) : label_(std::move(label)) {}

    const std::string& label() const override { return label_; }

    void async(std::function<void()> work) override {
        if (work) {
            enqueue(WorkItem{std::move(work), nullptr});
        }
    }

    void sync(std::function<void()> work) override {
        if (isCurrent()) {
            syncOnCurrentQueue(label_);
        }
        if (!work) {
            return;
        }
        if (claimIdleQueue()) {
            runClaimed(work);
        } else {
            postAndWait(std::move(work), [this](WorkItem item) { enqueue(std::move(item)); });
        }
    }

    bool isCurrent() const override { return contextIncludes(this); }

private:
    void enqueue(WorkItem item) {
        {
            std::lock_guard lock(mutex_);
            items_.push_back(std::move(item));
            if (draining_) {
                return;
            }
            draining_ = true;
        }
        startDrain();
    }

    void startDrain() {
        // The drain holds the queue, so work posted to a queue that is then dropped still runs.
        auto self = std::static_pointer_cast<SerialQueue>(shared_from_this());
        WorkerPool::shared().submit([self] { self->drain(); });
    }

    // An idle queue lets a sync caller run its work on the calling thread, as the queue's only
    // item, which saves two thread hand-offs.
    bool claimIdleQueue() {
        std::lock_guard lock(mutex_);
        if (draining_ || !items_.empty()) {
            return false;
        }
        draining_ = true;
        return true;
    }

    void runClaimed(const std::function<void()>& work) {
        struct Release {
            std::shared_ptr<SerialQueue> queue;  // the work may drop the caller's reference
            ~Release() {
                {
                    std::lock_guard lock(queue->mutex_);
                    if (queue->items_.empty()) {
                        queue->draining_ = false;
                        return;
                    }
                }
                queue->startDrain();  // work posted meanwhile
            }
        } release{std::static_pointer_cast<SerialQueue>(shared_from_this())};
        ContextScope scope(this, currentContext);
        work();
    }

    void drain() {
        for (;;) {
            WorkItem item;
            {
                std::lock_guard lock(mutex_);
                if (items_.empty()) {
                    draining_ = false;
                    return;
                }
                item = std::move(items_.front());
                items_.pop_front();
            }
            ContextScope scope(this, item.caller);
            try {
                item.work();
            } catch (...) {
                failOnEscapedException(label_, std::current_exception());
            }
        }
    }

    const std::string label_;
    std::mutex mutex_;
    std::deque<WorkItem> items_;
    bool draining_ = false;
};

// The concurrent queue: items go straight to the worker pool, at most `width` at a time.
class GlobalQueue final : public DispatchQueue {
public:
    const std::string& label() const override { return label_; }

    void async(std::function<void()> work) override {
        if (!work) {
            return;
        }
        {
            std::lock_guard lock(mutex_);
            if (running_ >= width) {
                waiting_.push_back(std::move(work));
                return;
            }
            ++running_;
        }
        start(std::move(work));
    }

    // A concurrent queue cannot deadlock on itself: the work runs on the calling thread.
    void sync(std::function<void()> work) override {
        if (work) {
            ContextScope scope(this, currentContext);
            work();
        }
    }

    bool isCurrent() const override { return contextIncludes(this); }

private:
    static constexpr std::size_t width = 64;

    void start(std::function<void()> work) {
        WorkerPool::shared().submit([this, first = std::move(work)]() mutable {
            auto work = std::move(first);
            for (;;) {
                try {
                    ContextScope scope(this, nullptr);
                    work();
                } catch (...) {
                    failOnEscapedException(label_, std::current_exception());
                }
                work = nullptr;
                std::lock_guard lock(mutex_);
                if (waiting_.empty()) {
                    --running_;
                    return;
                }
                work = std::move(waiting_.front());
                waiting_.pop_front();
            }
        });
    }

    const std::string label_ = "global";
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
    std::size_t running_ = 0;
};

// The main queue: a GLib source on the default main context that is ready while items wait.
// Each dispatch runs the items that were waiting when it began; items they post run in the
// next iteration, so RunLoop can check its condition in between.
class MainQueue final : public DispatchQueue {
public:
    MainQueue() {
        source_ = g_source_new(&sourceFuncs, sizeof(Source));
        reinterpret_cast<Source*>(source_)->queue = this;
        g_source_set_priority(source_, G_PRIORITY_DEFAULT);
        // Work that runs a nested RunLoop must still see later main-queue items.
        g_source_set_can_recurse(source_, TRUE);
        g_source_set_name(source_, "zarvo main queue");
        g_source_attach(source_, g_main_context_default());
    }

    const std::string& label() const override { return label_; }

    void async(std::function<void()> work) override {
        if (work) {
            enqueue(WorkItem{std::move(work), nullptr});
        }
    }

    void sync(std::function<void()> work) override {
        if (isCurrent()) {
            syncOnCurrentQueue(label_);
        }
        if (work) {
            postAndWait(std::move(work), [this](WorkItem item) { enqueue(std::move(item)); });
        }
    }

    bool isCurrent() const override { return contextIncludes(this); }

private:
    struct Source {
        GSource base;
        MainQueue* queue;
    };

    static gboolean prepare(GSource* source, gint* timeout) {
        *timeout = -1;
        return reinterpret_cast<Source*>(source)->queue->waiting_.load() > 0;
    }
    static gboolean check(GSource* source) {
        return reinterpret_cast<Source*>(source)->queue->waiting_.load() > 0;
    }
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
        reinterpret_cast<Source*>(source)->queue->runWaitingItems();
        return G_SOURCE_CONTINUE;
    }
    static inline GSourceFuncs sourceFuncs = {prepare, check, dispatch, nullptr, nullptr, nullptr};

    void enqueue(WorkItem item) {
        {
            std::lock_guard lock(mutex_);
            items_.push_back(std::move(item));
            waiting_.store(items_.size());
        }
        g_main_context_wakeup(g_main_context_default());
    }

    void runWaitingItems() {
        for (std::size_t count = waiting_.load(); count > 0; --count) {
            WorkItem item;
            {
                std::lock_guard lock(mutex_);
                if (items_.empty()) {
                    return;
                }
                item = std::move(items_.front());
                items_.pop_front();
                waiting_.store(items_.size());
            }
            try {
                ContextScope scope(this, item.caller);
                item.work();
            } catch (...) {
                MainThreadExceptions::keep(std::current_exception());
                return;
            }
        }
    }

    const std::string label_ = "main";
    GSource* source_ = nullptr;
    std::mutex mutex_;
    std::deque<WorkItem> items_;
    std::atomic<std::size_t> waiting_{0};
};

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::serial(std::string label) {
    return std::make_shared<SerialQueue>(std::move(label));
}

std::shared_ptr<DispatchQueue> DispatchQueue::main() {
    static Immortal<std::shared_ptr<DispatchQueue>> queue(std::make_shared<MainQueue>());
    return queue.get();
}

std::shared_ptr<DispatchQueue> DispatchQueue::global() {
    static Immortal<std::shared_ptr<DispatchQueue>> queue(std::make_shared<GlobalQueue>());
    return queue.get();
}

bool DispatchQueue::isMainThread() {
    // The process's initial thread is the one whose thread id equals the process id.
    static thread_local const bool mainThread = gettid() == getpid();
    return mainThread;
}

void DispatchQueue::asyncAfter(double seconds, std::function<void()> work,
                               std::shared_ptr<Scheduler> scheduler) {
    if (!work) {
        return;
    }
    if (!scheduler) {
        scheduler = Scheduler::standard();
    }
    scheduler->schedule(Scheduler::Duration(seconds), shared_from_this(), std::move(work));
}

}  // namespace zarvo
