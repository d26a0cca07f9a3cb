#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Scheduler.h"

namespace zarvo {

// A queue of work items. Serial queues run one item at a time, in order, on worker threads;
// main() runs on GLib's default main context (the thread driving RunLoop::main());
// global() is concurrent. Items may block (on semaphores, network answers) without stalling
// other queues.
class ZARVO_EXPORT DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
public:
    virtual ~DispatchQueue() = default;

    static std::shared_ptr<DispatchQueue> serial(std::string label);
    static std::shared_ptr<DispatchQueue> main();
    static std::shared_ptr<DispatchQueue> global();

    // True on the process's main thread (the one that runs the main queue).
    static bool isMainThread();

    virtual const std::string& label() const = 0;
    virtual void async(std::function<void()> work) = 0;
    // Runs `work` on the queue and waits for it. Calling sync on a serial queue (or main)
    // from that queue itself is a fatal error that names the queue, instead of a deadlock.
    virtual void sync(std::function<void()> work) = 0;
    // True when the calling code runs on this queue.
    virtual bool isCurrent() const = 0;

    // Runs `work` on this queue after `seconds`, timed by `scheduler`.
    void asyncAfter(double seconds, std::function<void()> work,
                    std::shared_ptr<Scheduler> scheduler = Scheduler::standard());

    // sync with a result.
    template <typename F>
    auto syncValue(F&& f) -> std::invoke_result_t<F> {
        using R = std::invoke_result_t<F>;
        std::optional<R> result;
        sync([&] { result.emplace(f()); });
        return std::move(*result);
    }
};

}  // namespace zarvo
