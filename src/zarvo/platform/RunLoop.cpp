#include "zarvo/platform/RunLoop.h"

#include <atomic>

#include <glib.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/MainThreadExceptions.h"
#include "zarvo/platform/Timer.h"

namespace zarvo {
namespace {

std::atomic<bool> stopRequested{false};

// Makes sure the main queue's source is attached before the context runs.
GMainContext* mainContext() {
    DispatchQueue::main();
    return g_main_context_default();
}

// Wakes the context every few milliseconds so runUntil sees conditions that other threads
// change without posting to the main queue.
class WakeTicker {
public:
    explicit WakeTicker(GMainContext* context) : source_(g_timeout_source_new(5)) {
        g_source_set_callback(
            source_, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
        g_source_attach(source_, context);
    }
    ~WakeTicker() {
        g_source_destroy(source_);
        g_source_unref(source_);
    }
    WakeTicker(const WakeTicker&) = delete;
    WakeTicker& operator=(const WakeTicker&) = delete;

private:
    GSource* source_;
};

// One iteration of the main context; rethrows what main-queue work threw.
bool iterate(GMainContext* context, bool mayBlock) {
    const bool dispatched = g_main_context_iteration(context, mayBlock ? TRUE : FALSE);
    MainThreadExceptions::rethrowKept();
    return dispatched;
}

}  // namespace

RunLoop& RunLoop::main() {
    static RunLoop loop;  // no state of its own; the loop is GLib's default context
    return loop;
}

void RunLoop::add(const std::shared_ptr<Timer>& timer) {
    if (!timer) {
        return;
    }
    std::lock_guard lock(timer->mutex_);
    if (!timer->valid_ || timer->scheduled_) {
        return;
    }
    timer->scheduled_ = true;
    timer->selfWhileScheduled_ = timer;
    timer->scheduleNext();
}

bool RunLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    GMainContext* context = mainContext();
    MainThreadExceptions::DriveScope driving;
    WakeTicker ticker(context);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return done();
        }
        iterate(context, true);
    }
    return true;
}

void RunLoop::runUntilIdle() {
    GMainContext* context = mainContext();
    MainThreadExceptions::DriveScope driving;
    while (iterate(context, false)) {
    }
}

void RunLoop::run() {
    GMainContext* context = mainContext();
    MainThreadExceptions::DriveScope driving;
    stopRequested = false;
    while (!stopRequested.exchange(false)) {
        iterate(context, true);
    }
}

void RunLoop::stop() {
    stopRequested = true;
    g_main_context_wakeup(g_main_context_default());
}

}  // namespace zarvo
